#!/bin/bash
# Logs a line and shows the service's answer: wire.sh "link down"
receive() { timeout "$1" dd bs=2k count=1 status=none <&3; }
send() { dd bs=2k iflag=fullblock status=none >&3; }  # one datagram
set -o pipefail
exec 3<>/dev/udp/127.0.0.1/11001
trap 'printf CONN | send' EXIT  # leaves the service
printf CONN | send
cookie=$({ receive 2 && printf mosk; } | md5sum) || exit
cookie=$(sed 's/ .*//; s/../\\x&/g' <<<"$cookie")
text=${1//"~"/"~~"} text=${text//'"'/'~"'} client=$RANDOM$RANDOM$RANDOM
for seconds in {1..8}; do
  printf '%bWithAck %s 1 LogMsg 2 net "%s\n"' \
    "$cookie" "$client" "$text" | send
  receive "$seconds" | tail -c +17 | grep -a "^Ack $client" && exit
done
exit 1
