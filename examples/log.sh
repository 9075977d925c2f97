#!/bin/sh
# Logs one line, then the output of a command: examples/log.sh "link down"
PATH=$PATH:$(dirname "$0")/../build
syslogctl log -l warning -t net "${1:-link down}" || exit
uname -sr | syslogctl log -t boot
