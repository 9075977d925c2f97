# Completes syslogctl's commands, options and files in bash.

_syslogctl() {
  local word=$2 before=$3 command='' i
  local common='--server --password-file --timeout --quiet --help --version'
  COMPREPLY=()

  # The first word that is neither an option nor an option's value.
  for ((i = 1; i < COMP_CWORD; i++)); do
    case ${COMP_WORDS[i]} in
      -s | --server | --password-file | --timeout)
        [[ ${COMP_WORDS[i + 1]} == = ]] && ((i++))
        ((i++)) ;;
      :) ((i++)) ;;
      -*) ;;
      *) command=${COMP_WORDS[i]}; break ;;
    esac
  done

  [[ $before == = ]] && before=${COMP_WORDS[COMP_CWORD - 2]}
  case $before in
    -l | --level) mapfile -t COMPREPLY < <(compgen -W 'info warning error trace' -- "$word"); return ;;
    --password-file | --socket) mapfile -t COMPREPLY < <(compgen -f -- "$word"); return ;;
    -s | --server) mapfile -t COMPREPLY < <(compgen -A hostname -- "$word"); return ;;
    --timeout | -t | --tag | -n | --count | -i | --interval) return ;;
  esac

  local words
  case $command in
    '') words="log set remote dump watch ping call bridge $common" ;;
    log) words="--level --tag $common" ;;
    remote) [[ $before == remote ]] && words='on off' ;;
    watch) words="--json --count $common" ;;
    ping) words="--count --interval $common" ;;
    call) [[ $before == call ]] && words='LogMsg SetVar SyncVar SyncLog' ;;
    bridge) words="--socket --kmsg $common" ;;
    *) words=$common ;;
  esac
  # Words of the log are anything; only what looks like an option is completed there.
  [[ $command == log && $word != -* ]] && return
  mapfile -t COMPREPLY < <(compgen -W "$words" -- "$word")
}
complete -o filenames -F _syslogctl syslogctl
