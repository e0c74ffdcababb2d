#!/bin/bash
# Tries the packages in a Debian that has nothing else: installs, works, builds against them, removes and purges them.
#
# usage: try.sh     in the directory of the packages
set -euo pipefail
cd "$(dirname "$0")"
database=/var/lib/mailserver/delegation.db

say() { echo "packages: $*"; }
is() { [ "$2" == "$3" ] || { say "$1: expected $3, got $2"; exit 1; }; }
packages() { apt-get "$1" -qq --no-install-recommends "${@:2}" > apt.log 2>&1 || { cat apt.log; exit 1; }; }

apt-get update -qq
packages install ./delegationctl_*.deb ./libmailserver-delegation1_*.deb
is "the directory of the database" "$(stat -c '%a %U:%G' /var/lib/mailserver)" "750 root:root"
for page in delegationctl.1 delegations.json.5 mailserver.conf.5 mailserver-delegation.7; do
  gzip -t "/usr/share/man/man${page##*.}/$page.gz"
done

groupadd helpdesk
useradd --groups helpdesk mara
delegationctl --quiet create Helpdesk --priority 20 --tab log_list,queue --group helpdesk
is "an answer" "$(delegationctl can mara Webapi_Queue_Flush_v1)" yes
is "the database" "$(stat -c '%a %U:%G' $database)" "640 root:root"
gpasswd --delete mara helpdesk > /dev/null
delegationctl refresh > /dev/null
is "an answer after a refresh" "$(delegationctl can mara Webapi_Queue_Flush_v1 || true)" no
say "work as the README says"

packages install systemd man-db bash-completion
systemd-analyze verify delegationctl-refresh.service delegationctl-refresh.timer
is "what is enabled" "$(find /etc/systemd -name 'delegationctl*')" ""
COMP_WORDS=(delegationctl show Hel) COMP_CWORD=2
source /usr/share/bash-completion/completions/delegationctl
_delegationctl
is "the completion" "${COMPREPLY[*]}" Helpdesk
say "timer off, units sound, completion answers"

packages install ./libmailserver-delegation-dev_*.deb cmake g++ ninja-build
consumer/run.sh
say "programs build against them"

before=$(sha256sum $database)
packages remove libmailserver-delegation1
is "the database after removal" "$(sha256sum $database)" "$before"
dpkg --purge delegationctl libmailserver-delegation1 libmailserver-delegation-dev > apt.log 2>&1
is "the database after a purge" "$(sha256sum $database)" "$before"
is "what a purge leaves" "$(find / -xdev -name '*delegation*' ! -path '/try/*' ! -path '/var/cache/*' | sort | xargs)" \
  "$database $database.admin $database.before-refresh $database.edit-lock $database.lock"
packages install ./delegationctl_*.deb ./libmailserver-delegation1_*.deb
is "the delegations after a new installation" "$(delegationctl list -q)" Helpdesk
say "removed, purged and installed again, with the database as it was"
