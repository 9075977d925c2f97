#!/bin/sh
# Runs in the container that test-deb.sh boots with the package installed.
set -eu

# Repeats the command until it succeeds.
until_true() {
  tries=0
  until "$@" >/dev/null 2>&1; do
    tries=$((tries + 1))
    [ $tries -lt 200 ] || { echo "never true: $*"; exit 1; }
    sleep 0.1
  done
}

must_fail() { if "$@"; then echo "must fail: $*"; exit 1; fi; }
main_pid() { systemctl show --property MainPID --value velk.service; }
child() { cat "/proc/$1/task/$1/children"; }
another_child() { [ -n "$(child "$1")" ] && [ "$(child "$1")" != "$2" ]; }
another_supervisor() { [ "$(main_pid)" != 0 ] && [ "$(main_pid)" != "$1" ]; }
logs() { syslogctl log -t test "$1" && until_true sh -c "journalctl -u velk | grep -q 'test.Info: $1'"; }

echo "the unit is valid and sandboxed"
systemd-analyze verify --man=no velk.service
systemd-analyze security --no-pager --threshold=20 velk.service | tail -n 1

echo "serves after boot, not as root"
until_true systemctl is-active velk.service
logs 'first line'
pid=$(main_pid)
[ "$(stat -c %U "/proc/$pid")" = velk ]

echo "forwards from port 514"
python3 - <<'END'
import socket, subprocess
collector = socket.socket(socket.AF_INET, socket.SOCK_DGRAM)
collector.setsockopt(socket.SOL_SOCKET, socket.SO_REUSEADDR, 1)  # otherwise the service cannot share the port
collector.bind(("127.0.0.2", 514))
collector.settimeout(10)
subprocess.run(["syslogctl", "remote", "on", "127.0.0.2"], check=True)
subprocess.run(["syslogctl", "log", "forwarded"], check=True)
while True:
    line, sender = collector.recvfrom(2048)
    if b"forwarded" in line:
        break
assert sender[1] == 514, sender
END

echo "writes the file that every program may read"
syslogctl dump | grep -q 'test.Info: first line'
[ "$(stat -c '%U %a' /tmp/synclog)" = 'velk 644' ]

echo "is restarted: child, then supervisor"
first=$(child "$pid")
kill -KILL "$first"
until_true another_child "$pid" "$first"
[ "$(main_pid)" = "$pid" ]
kill -KILL "$pid"
until_true another_supervisor "$pid"
logs 'second line'

echo "is upgraded"
pid=$(main_pid)
dpkg -i /upgrade.deb >/dev/null
another_supervisor "$pid"
logs 'third line'

echo "stops, and leaves no process"
systemctl stop velk.service
must_fail pgrep -x syslog
systemctl start velk.service
logs 'fourth line'

echo "is removed, then purged"
dpkg -L velk | while read -r path; do [ -d "$path" ] || echo "$path"; done >/files
dpkg -r velk >/dev/null
must_fail pgrep -x syslog
dpkg -P velk >/dev/null 2>&1
while read -r path; do [ ! -e "$path" ] || { echo "left: $path"; exit 1; }; done </files
left=$(find /etc /var/lib/systemd /usr/share/doc /tmp \( -name '*velk*' -o -name synclog \) \
  ! -name 'velk-test.service' ! -name 'systemd-private-*')
[ -z "$left" ] || { echo "left: $left"; exit 1; }
must_fail getent passwd velk
echo "all well"
