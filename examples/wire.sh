#!/bin/bash
# Logs a line and shows the service's answer: wire.sh "link down"
set -o pipefail
exec 3<>/dev/udp/127.0.0.1/11001
receive() { timeout 1 dd bs=2k count=1 status=none <&3; }
send() { dd bs=2k iflag=fullblock status=none >&3; }  # one datagram
connect() { printf CONN | send; }
connect
cookie=$({ receive && printf mosk; } | md5sum | sed 's/ .*//; s/../\\x&/g') || exit
text=${1//"~"/"~~"} text=${text//'"'/'~"'} client=$RANDOM$RANDOM$RANDOM
for _ in {1..8}; do
  printf '%bWithAck %s 1 LogMsg 2 net "%s\n"' "$cookie" "$client" "$text" | send
  receive | tail -c +17 | grep -a "^Ack $client" && connect && exit  # a second CONN logs out
done
exit 1
