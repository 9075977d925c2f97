# Completes syslogctl's commands, options and files in fish.

set -l commands log set remote dump watch status check ping call bridge help
set -l levels trace info warning error debug notice warn err crit alert emerg

function __syslogctl_in --description 'Whether the command line has one of these words; with -l, as its last one'
    argparse l -- $argv
    set -l words (commandline -opc)
    set -q _flag_l; and set words $words[-1]
    for command in $argv
        contains -- $command $words; and return 0
    end
    return 1
end

complete -c syslogctl -f
complete -c syslogctl -s s -l server -x -a '(__fish_print_hostnames)' -d 'Where the service is'
complete -c syslogctl -l password-file -r -F -d 'Read the password from a file'
complete -c syslogctl -l timeout -x -d 'How long to wait, in seconds'
complete -c syslogctl -s q -l quiet -d 'Print only results and errors'
complete -c syslogctl -s h -l help -d 'Print help'
complete -c syslogctl -s V -l version -d 'Print the version'

complete -c syslogctl -n "not __syslogctl_in $commands" -a log -d 'Log a line, or the lines of standard input'
complete -c syslogctl -n "not __syslogctl_in $commands" -a set -d 'Set a configuration variable'
complete -c syslogctl -n "not __syslogctl_in $commands" -a remote -d 'Forward the log, or stop forwarding'
complete -c syslogctl -n "not __syslogctl_in $commands" -a dump -d 'Print the last lines'
complete -c syslogctl -n "not __syslogctl_in $commands" -a watch -d 'Print the calls of all programs'
complete -c syslogctl -n "not __syslogctl_in $commands" -a status -d 'Show whether the service serves'
complete -c syslogctl -n "not __syslogctl_in $commands" -a check -d 'Check a configuration file'
complete -c syslogctl -n "not __syslogctl_in $commands" -a ping -d 'Measure how fast calls are answered'
complete -c syslogctl -n "not __syslogctl_in $commands" -a call -d 'Make any call'
complete -c syslogctl -n "not __syslogctl_in $commands" -a bridge -d 'Log what programs write to /dev/log'
complete -c syslogctl -n "not __syslogctl_in $commands" -a help -d 'Print help'

complete -c syslogctl -n '__syslogctl_in log dump watch' -s l -l level -x -a "$levels" -d 'The level'
complete -c syslogctl -n '__syslogctl_in log dump watch' -s t -l tag -x -d 'The module'
complete -c syslogctl -n '__syslogctl_in dump watch ping' -s n -l count -x -d 'At most this many'
complete -c syslogctl -n '__syslogctl_in dump watch' -l json -d 'One JSON object per line'
complete -c syslogctl -n '__syslogctl_in dump' -s f -l follow -d 'Then print new lines'
complete -c syslogctl -n '__syslogctl_in dump' -l all -d 'Also lines about programs that join'
complete -c syslogctl -n '__syslogctl_in ping' -s c -x -d 'At most this many'
complete -c syslogctl -n '__syslogctl_in ping' -s i -l interval -x -d 'Seconds between calls'
complete -c syslogctl -n '__syslogctl_in bridge' -l socket -r -F -d 'Instead of /dev/log'
complete -c syslogctl -n '__syslogctl_in bridge' -l kmsg -d 'Also log the kernel\'s messages'
complete -c syslogctl -n '__syslogctl_in bridge' -l udp -x -d 'Also log datagrams from other machines'
complete -c syslogctl -n '__syslogctl_in -l set' -a 'remotelog_type remotelog_addr'
complete -c syslogctl -n '__syslogctl_in -l remote' -a 'on off'
complete -c syslogctl -n '__syslogctl_in -l call' -a 'LogMsg SetVar SyncVar SyncLog'
complete -c syslogctl -n '__syslogctl_in -l help' -a "$commands"
complete -c syslogctl -n '__syslogctl_in check' -F
