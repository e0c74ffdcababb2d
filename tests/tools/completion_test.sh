#!/bin/bash
# Checks what the completion offers by calling it as the shell does.
#
# usage: completion_test.sh DELEGATIONCTL COMPLETION
set -euo pipefail
program=$1
work=$(mktemp -d)
trap 'rm -rf "$work"' EXIT
world=$work/world
source "$2"

# Completes a command line: `offer` is what it offers, as readline sorts it.
offered() {
  local line=${1//WORLD/$world}
  read -ra COMP_WORDS <<< "${line//=/ = }"
  [[ $line != *' ' ]] || COMP_WORDS+=("")
  COMP_WORDS[0]=$program
  COMP_CWORD=$((${#COMP_WORDS[@]} - 1))
  _delegationctl || true
  mapfile -t COMPREPLY < <(printf '%s\n' "${COMPREPLY[@]}" | LC_ALL=C sort -u)
  offer=${COMPREPLY[*]}
}

"$program" "--demo=$world" create "Night shift" --priority 60 --tab monitor_all > /dev/null
failures=0
while IFS='|' read -r line expected; do
  offered "$line"
  [ "$offer" == "$expected" ] && continue
  printf 'FAILED %s\n  expected %s\n  offered  %s\n' "$line" "$expected" "$offer"
  failures=$((failures + 1))
done <<'CASES'
delegationctl un|unassign undo
delegationctl --d|--db --demo --dry-run
delegationctl update Helpdesk --o|--off --on
delegationctl --color a|always auto
delegationctl --demo=WORLD show |Helpdesk Night\ shift Postmaster
delegationctl --db WORLD/delegation.db -q show Nig|Night\ shift
delegationctl --db=WORLD/delegation.db delete Helpdesk Po|Postmaster
delegationctl --demo=WORLD show "Nig|Night shift
delegationctl --demo=WORLD can e|eva
delegationctl --demo can e|eva
delegationctl --demo can eva Webapi_Queue_Fl|Webapi_Queue_FlushAll_v1 Webapi_Queue_Flush_v1
delegationctl --demo=WORLD assign Helpdesk --group hel|helpdesk
delegationctl --demo=WORLD assign Helpdesk --user ann,b|ann,bob
delegationctl can roo|
delegationctl assign Helpdesk --group roo|root
delegationctl create --demo Nobody --tab=queue,log_li|queue,log_list
delegationctl tabs queu|queue
delegationctl tabs --method Webapi_Queue_Fl|Webapi_Queue_FlushAll_v1 Webapi_Queue_Flush_v1
delegationctl create |
delegationctl show Helpdesk |
CASES
[ "$failures" -eq 0 ]
