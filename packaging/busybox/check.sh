#!/bin/sh
# Runs in the root file system of packaging/test.sh, with BusyBox alone: check.sh init|sysv.
set -eu
mount -t proc proc /proc
ifconfig lo up

until_true() {
  tries=0
  until "$@" >/dev/null 2>&1; do
    tries=$((tries + 1))
    [ $tries -lt 200 ] || { echo "never true: $*"; exit 1; }
    sleep 0.1
  done
}
serves() { syslogctl --timeout 1 log "$1"; }
process_count() { pidof syslog | wc -w; }
gone() { for pid in $1; do [ ! -d "/proc/$pid" ] || return 1; done; }
supervisor() { for pid in $(pidof syslog); do grep -q "^PPid:.1$" "/proc/$pid/status" && echo "$pid"; done; }
both() { [ "$(process_count)" -eq 2 ]; }

if [ "$1" = sysv ]; then
  script=/etc/init.d/velk
  sh $script start
  until_true serves 'first line'
  sh $script start
  sh $script status
  both || { echo "started twice"; exit 1; }
  echo "restarts, and stops both processes"
  old=$(pidof syslog)
  sh $script restart
  gone "$old" || { echo "the old processes still run"; exit 1; }
  until_true serves 'second line'
  sh $script stop
  [ "$(process_count)" -eq 0 ] || { echo "a process still runs"; exit 1; }
  if sh $script status; then exit 1; fi
  echo "all well"
  exit
fi

trap poweroff EXIT
until_true serves 'first line'
echo "a killed supervisor ends its child and is restarted"
old=$(pidof syslog)
kill "$(supervisor)"
until_true gone "$old"
until_true both
until_true serves 'second line'
echo "logger's line arrives"
until_true test -S /dev/log
logger -t prog 'by logger'
arrived() { syslogctl dump | grep -q 'prog.Info: by logger'; }
until_true arrived
echo "all well"
