# Completes syslogctl's commands, options and files in bash.

_syslogctl() {
  local word=$2 before=$3 command='' i
  local common='--server --password-file --timeout --quiet --help --version'
  local levels='trace info warning error debug notice warn err crit alert emerg'
  local commands='log set remote dump watch status check ping call bridge help'
  COMPREPLY=()

  # The first word that is neither an option nor its value. Bash also splits words at "=" and ":".
  for ((i = 1; i < COMP_CWORD; i++)); do
    case ${COMP_WORDS[i]} in
      -[sltnci] | --server | --password-file | --timeout | --level | --tag | --count | --interval | --socket | --udp)
        [[ ${COMP_WORDS[i + 1]} == = ]] && ((i++))
        ((i++)) ;;
      :) ((i++)) ;;
      -*) ;;
      *) command=${COMP_WORDS[i]}; break ;;
    esac
  done

  [[ $before == = ]] && before=${COMP_WORDS[COMP_CWORD - 2]}
  case $before in
    -l | --level) mapfile -t COMPREPLY < <(compgen -W "$levels" -- "$word"); return ;;
    --password-file | --socket) mapfile -t COMPREPLY < <(compgen -f -- "$word"); return ;;
    -s | --server) mapfile -t COMPREPLY < <(compgen -A hostname -- "$word"); return ;;
    --timeout | -t | --tag | -n | -c | --count | -i | --interval | --udp) return ;;
  esac

  local words
  case $command in
    '') words="$commands $common" ;;
    log) words="--level --tag $common" ;;
    set) words="$common"; [[ $before == set && $word != -* ]] && words='remotelog_type remotelog_addr' ;;
    remote) words="$common"; [[ $before == remote && $word != -* ]] && words='on off' ;;
    dump) words="--follow --count --level --tag --json --all $common" ;;
    watch) words="--count --level --tag --json $common" ;;
    ping) words="--count --interval $common" ;;
    call) words="$common"; [[ $before == call && $word != -* ]] && words='LogMsg SetVar SyncVar SyncLog' ;;
    bridge) words="--socket --kmsg --udp $common" ;;
    help) words=$commands ;;
    *) words=$common ;;
  esac
  if [[ $command == check && $word != -* ]]; then
    mapfile -t COMPREPLY < <(compgen -f -- "$word")
    return
  fi
  # The text of "log" is free; complete only options.
  [[ $command == log && $word != -* ]] && return
  mapfile -t COMPREPLY < <(compgen -W "$words" -- "$word")
}
complete -o filenames -F _syslogctl syslogctl
