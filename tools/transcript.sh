#!/bin/bash
# Plays a newcomer's first five minutes and prints what the screen shows; tools/recording.sh records it.
# A real run, in its own namespaces. PAUSE: seconds to wait after each command's output.
set -eu
cd "$(dirname "$0")/.."

if [ "${1:-}" != inside ]; then
  tools/install.sh g++ cmake ninja-build python3 iproute2 bsdutils >&2
  cmake --preset release >/dev/null
  cmake --build build --target syslog syslogctl -- --quiet >/dev/null
  tools/collectors.sh build/collectors >&2
  [ "${1:-}" != build ] || exit 0
  exec unshare --mount --net --pid --fork --kill-child --user --map-root-user "$0" inside
fi

# The tree may be under /tmp, which the tmpfs hides.
mount --bind "$PWD" /mnt
cd /mnt
mount -t tmpfs tmpfs /tmp
mount -t tmpfs tmpfs /var/log
mount -t proc proc /proc
ip link set lo up

shown=0
quiet='^$'  # lines that console leaves out
# Prints the service's output since the last call, each line after a bar.
console() {
  sleep 0.3
  tail -n "+$((shown + 1))" /tmp/console | grep -v "$quiet" | sed 's/^/                                | /' || true
  shown=$(wc -l </tmp/console)
  sleep "${PAUSE:-0}"
}
remark() {
  echo
  printf '# %s\n' "$@"
}
run() {
  printf '$ %s\n' "$1"
  bash -c "$1" 2>&1 || echo "(exit status $?)"
  console
}
# Like run, but in the background; finish prints its output.
start() {
  printf '$ %s &\n' "$1"
  bash -c "exec $1" >/tmp/background 2>&1 &
  background=$!
  sleep 0.5
}
finish() {
  wait "$background" || true
  sed 's/^/(from the background) /' /tmp/background
}

echo "The first five minutes, as tools/transcript.sh ran them on $(date +%F)."
echo "Text after the bar comes from the service, in another terminal."

remark "The service. It needs no configuration; in a device's image it gets one."
printf '$ build/syslog\n'
set -m  # otherwise a background job ignores Ctrl-C
build/syslog >/tmp/console 2>&1 &
service=$!
set +m
console

remark "A first line. The command ends when the line is in the log."
run 'build/syslogctl log -l warning -t net "link down"'
quiet="srv wrote"
remark "The service logged the handshake too; such lines are left out from here on."
run 'seq 3 | sed "s/^/step /" | build/syslogctl log -t update; echo "exit status $?"'

remark "From Python. The example is one file, to copy from."
run 'python3 examples/peer.py "hello"'

remark "How long does a call take there and back?"
run 'build/syslogctl ping -n 3 -i 0.2'

remark "What do the other programs say?"
start 'build/syslogctl watch -n 2'
run 'build/syslogctl log -l warning -t fan "4200 rpm"'
run 'python3 examples/peer.py "hello again"'
finish

remark "For programs that know only syslog(3), a bridge takes what they write to /dev/log, here another socket."
start 'build/syslogctl bridge --socket /tmp/log'
run 'logger -u /tmp/log -t cron -p cron.warning "job took 12 s"'
kill "$background"
finish

remark "The recent log, from memory, and how the service is."
run 'build/syslogctl dump -n 5'
run 'build/syslogctl status'

remark "A collector: rsyslog with examples/collectors/rsyslog.conf, at 127.0.0.2 as all this is one machine."
sed 's/port="514"/address="127.0.0.2" port="514"/' examples/collectors/rsyslog.conf >/tmp/rsyslog.conf
build/collectors/rsyslogd -n -i /tmp/pid -f /tmp/rsyslog.conf &
collector=$!
sleep 1
run 'build/syslogctl remote on 127.0.0.2'
run 'build/syslogctl log -l warning -t net "eth0 is back"'
run 'grep eth0 /var/log/devices.json'

remark "The serving process dies. The next one serves at once, and the line waits for it." \
  "(Forwarding is off again: remote on lasts only as long as the process.)"
run "kill -9 \$(pgrep -P $service); build/syslogctl log -t after 'still here'; echo \"exit status \$?\""

remark "Ctrl-C."
kill -INT "$service"
wait "$service" || true
console
kill "$collector"
wait "$collector" || true
