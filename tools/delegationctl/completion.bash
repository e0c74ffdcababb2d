# Completion of delegationctl for bash. Verbs, options and what stands behind them are read from the program's own help,
# names from the database and the host; nothing of it is written down here a second time.

# The names of one kind, one per line, some of them twice. The variables are those of _delegationctl: `tool` runs
# `program` on the database of the command line, `world` is its --demo, `prefix` what the names begin with.
_delegationctl_names() {
  case $1 in
    DELEGATION) "${tool[@]}" list -q ;;
    TAB) "$program" tabs -q ;;
    METHOD) "$program" tabs --json | grep -o 'Webapi_[A-Za-z0-9_]*' ;;
    USER | GROUP) _delegationctl_accounts "$1" ;;
    WHEN) printf '%s\n' auto always never ;;
    FILE) compgen -f -- "$prefix" ;;
  esac 2> /dev/null
}

# The accounts of a demo world or of the host, which the shell itself enumerates faster than getent, without those of the
# system: they are nobody's, and always in its file.
_delegationctl_accounts() {
  case $1$world in
    USER--demo) "${tool[@]}" users -q ;;  # there is no world yet
    USER--demo=*) cut -d: -f1 "${world#--demo=}/passwd" ;;
    GROUP--demo=*) cut -d: -f1 "${world#--demo=}/group" ;;
    USER) timeout 1 bash -c 'compgen -u -- "$1"' - "$prefix" | grep -vxFf <(_delegationctl_system_accounts) ;;
    GROUP) timeout 1 bash -c 'compgen -g -- "$1"' - "$prefix" ;;
  esac
}

_delegationctl_system_accounts() {
  LC_ALL=C grep -E '^[^:]*:[^:]*:([0-9]{1,3}|65534):' /etc/passwd | cut -d: -f1
}

# Reads a help text: adds its options to `values`, with the kind of their value or "", and its verbs to `verbs`.
_delegationctl_read() {
  local line option
  while IFS= read -r line; do
    if [[ $line =~ ^'  '(-[a-zA-Z])?(', ')?(--[a-z-]+)?('[='[A-Z]+']')?(' '([A-Z]+(',..')?))?'  ' ]]; then
      for option in "${BASH_REMATCH[1]}" "${BASH_REMATCH[3]}"; do
        [[ -z $option ]] || values[$option]=${BASH_REMATCH[6]}
      done
    fi
    [[ ! $line =~ ^'  '([a-z][a-z-]*)'  ' ]] || verbs+=("${BASH_REMATCH[1]}")
    [[ $line != usage:* ]] || usage=$line
  done
}

# The kind of the verb's argument number $1, from its usage: "tabs [TAB | --user U]" has one, a TAB.
_delegationctl_argument() {
  local -a kinds
  read -ra kinds < <(sed -E "s/^usage: .* $verb( |$)//; s/ [|] / /g; s/-[a-z-]+( [A-Z]+(,\.\.)?)?//g; s/[][]//g" <<< "$usage")
  local kind=${kinds[$1]:-${kinds[*]: -1}}
  (($1 < ${#kinds[@]})) || [[ $kind == *... ]] || return
  kind=${kind%...}
  case $verb:$kind in
    create:NAME) ;;  # a new one
    *:NAME) echo DELEGATION ;;
    *) echo "${kind//|/ }" ;;
  esac
}

_delegationctl() {
  local -A values=()
  local -a verbs=() words=()
  local program=${COMP_WORDS[0]/#\~\//$HOME/}
  local -a tool=(timeout 1 "$program")
  local word current verb= usage= world= option= literal= arguments=0 kinds= prefix behind=
  COMPREPLY=()

  # bash takes "--demo=DIR" for three words.
  for word in "${COMP_WORDS[@]:1:COMP_CWORD}"; do
    if ((${#words[@]})) && [[ ${words[-1]} == --* && ($word == = || ${words[-1]} == *=) ]]; then
      words[-1]+=$word
    else
      words+=("$word")
    fi
  done
  current=${words[-1]//[\"\'\\]/}
  unset 'words[-1]'

  _delegationctl_read < <("$program" --help 2> /dev/null)
  for word in "${words[@]//[\"\'\\]/}"; do
    if [[ -n $option ]]; then
      [[ $option != --db ]] || tool+=("--db=$word")
      option=
    elif [[ $word == -- ]]; then
      literal=yes
    elif [[ -z $literal && $word == -* ]]; then
      case $word in
        --demo | --demo=*) world=$word tool+=("$word") ;;
        --db=*) tool+=("$word") ;;
        *) [[ -z ${values[$word]-} ]] || option=$word ;;
      esac
    elif [[ -z $verb ]]; then
      verb=$word
      _delegationctl_read < <("$program" "$verb" --help 2> /dev/null)
    else
      arguments=$((arguments + 1))
    fi
  done

  if [[ -z $option && -z $literal && $current == --*=* ]]; then
    option=${current%%=*}
    current=${current#*=}
  fi
  prefix=$current
  if [[ -n $option ]]; then
    kinds=${values[$option]-}
    if [[ $kinds == *,.. && $current == *,* ]]; then
      behind=${current%,*},
      prefix=${current##*,}
    fi
    case ${kinds%,..} in
      U) kinds=USER ;;
      G) kinds=GROUP ;;
      T) kinds=TAB ;;
      M) kinds=METHOD ;;
      D) kinds=DELEGATION ;;
    esac
  elif [[ -z $literal && $current == -* ]]; then
    COMPREPLY=($(compgen -W "${!values[*]}" -- "$current"))
    return
  elif [[ -z $verb ]]; then
    COMPREPLY=($(compgen -W "${verbs[*]}" -- "$current"))
    return
  else
    kinds=$(_delegationctl_argument $arguments)
  fi

  # A world that is thrown away need not reach the disk.
  [[ $world != --demo || ! -w /dev/shm ]] || local -x TMPDIR=/dev/shm
  # The shell is to read what is offered as one word: it quotes names of files itself, and what a quote stands before.
  local name kind quote=q
  [[ ${COMP_WORDS[COMP_CWORD]} != [\"\']* ]] || quote=s
  [[ $kinds != FILE ]] || { quote=s && compopt -o filenames 2> /dev/null; }
  while IFS= read -r name; do
    [[ $name != "$prefix"* ]] || printf -v 'COMPREPLY[${#COMPREPLY[@]}]' "%s%$quote" "$behind" "$name"
  done < <(for kind in $kinds; do _delegationctl_names "$kind"; done)
}
complete -F _delegationctl delegationctl
