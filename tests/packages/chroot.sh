#!/bin/bash
# Makes a fresh Debian 12 beside this system, with this system's ways to packages, and runs try.sh in it. As root, in a
# mount namespace of its own.
#
# usage: chroot.sh DIRECTORY     of the packages
set -euo pipefail
tests=$(cd "$(dirname "$0")/.." && pwd)
root=$(mktemp -d /var/tmp/packages-XXXXXX)
trap 'umount --recursive --lazy "$root"/{proc,dev} 2> /dev/null || true; rm -rf --one-file-system "$root"' EXIT
debootstrap --variant=minbase bookworm "$root" http://deb.debian.org/debian > "$1/debootstrap.log" ||
  { tail "$1/debootstrap.log"; exit 1; }
chmod 755 "$root"
for part in apt.conf.d sources.list sources.list.d; do
  rm -rf "$root/etc/apt/$part"
  if [ -e "/etc/apt/$part" ]; then cp -r "/etc/apt/$part" "$root/etc/apt/"; fi
done
printf '#!/bin/sh\nexit 101\n' > "$root/usr/sbin/policy-rc.d"
chmod 755 "$root/usr/sbin/policy-rc.d"
mkdir "$root/try"
cp "$1"/*.deb "$tests/packages/try.sh" "$root/try"
cp -r "$tests/consumer" "$root/try"

mount -t proc proc "$root/proc"
mount --rbind /dev "$root/dev"
chroot "$root" env -i PATH=/usr/sbin:/usr/bin:/sbin:/bin LC_ALL=C.UTF-8 HOME=/root DEBIAN_FRONTEND=noninteractive /try/try.sh
