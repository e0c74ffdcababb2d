#!/bin/bash
# Builds the Debian packages, lets lintian look at them, and tries them in a fresh Debian 12 of their own (try.sh).
#
# usage: run.sh DIRECTORY     the packages go there
set -euo pipefail
here=$(cd "$(dirname "$0")" && pwd)
cd "$here/../.."
output=$1
rm -rf "$output"
mkdir -p "$output/source"
output=$(cd "$output" && pwd)
git ls-files --cached --others --exclude-standard -z | tar --null -T - -c | tar -x -C "$output/source"
(cd "$output/source" && DEB_BUILD_OPTIONS=${DEB_BUILD_OPTIONS:-parallel=$(nproc)} dpkg-buildpackage -us -uc) \
  > "$output/build.log" 2>&1 || { tail -n 50 "$output/build.log"; exit 1; }
rm -rf "$output/source"
lintian --allow-root --fail-on error,warning "$output"/*.changes

as_root=()
if [ "$(id -u)" -ne 0 ]; then as_root=(sudo); fi
# What is mounted in there goes with the mount namespace.
"${as_root[@]}" unshare --mount "$here/chroot.sh" "$output"
