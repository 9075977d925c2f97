#!/bin/sh
# Run this when the network is up. It makes the service forward to the collector, and sends the earlier lines once.
#
#   network-up.sh COLLECTOR
#
# Call it from /etc/network/if-up.d (ifupdown), the "bound" case of udhcpc's script, /etc/hotplug.d/iface (OpenWrt) or a
# dispatcher of NetworkManager or systemd-networkd. It may run at every change of the network.
set -eu
collector=$1
marker=${MARKER:-/run/syslog-boot-lines-sent}  # in memory, so that a reboot removes it

# Makes the service forward to the collector. Only the service's log says whether the name resolved.
forwards() {
  syslogctl remote on "$collector" || return 1
  lines=$(syslogctl dump) || return 1
  printf '%s\n' "$lines" | grep -e 'Using syslog server at UDP' -e 'Cannot connect to syslog server' | tail -n 1 |
    grep -q Using
}

# Name resolution may start to work later than the network.
tries=10
until forwards; do
  tries=$((tries - 1))
  [ "$tries" -gt 0 ] || exit 1
  sleep 2
done

[ ! -e "$marker" ] || exit 0

# Prints the lines from before `remote on`. If the service's configuration names the collector by its numeric address,
# those since the network came up arrive twice.
unsent() {
  printf '%s\n' "$lines" | awk '
    { line[NR] = $0 }
    /Using syslog server at UDP / { last = NR }
    END { for (i = 1; i <= last; ++i) print line[i] }'
}

if logger --help 2>&1 | grep -q -- --server; then
  unsent | awk '
    { priority = 131 }
    /^[^ ]* ([^:]*\.)?Info: / { priority = 134 }
    /^[^ ]* ([^:]*\.)?Warning: / { priority = 132 }
    { print "<" priority ">" $0 }' |
    logger --server "$collector" --udp --port 514 --rfc3164 --tag boot --prio-prefix
else
  unsent | syslogctl -q log -t boot  # BusyBox's logger cannot send to a server, so log the lines again
fi
: >"$marker"
