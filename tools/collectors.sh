#!/bin/sh
# Unpacks rsyslog and syslog-ng, whose Debian packages conflict, into a folder: tools/collectors.sh FOLDER
# Installs and starts nothing. Run them with the scripts FOLDER/rsyslogd and FOLDER/syslog-ng.
set -eu
mkdir -p "$1"
cd "$1"
[ ! -x syslog-ng ] || exit 0  # made last

packages="rsyslog libestr0 libfastjson4 liblognorm5 syslog-ng-core libivykis0 libnet1 libwrap0 libpcre3"
packages="$packages libglib2.0-0 libjson-c5"
packages="$packages syslog-ng-mod-http"
rm -f ./*.deb  # of a run that was cut off
# shellcheck disable=SC2086  # a list of words
apt-get download -qq -o APT::Sandbox::User=root $packages >/dev/null ||
  { apt-get update -qq && apt-get download -qq -o APT::Sandbox::User=root $packages >/dev/null; }
for package in *.deb; do
  dpkg -x "$package" .
  rm "$package"
done
rm -rf usr/share/doc usr/share/man usr/share/locale

libraries=$(cd usr/lib && echo *-linux-gnu)
wrap() {
  # shellcheck disable=SC2016  # the new script expands it
  printf '#!/bin/sh\nhere=$(dirname "$0")\n%s="$here/usr/lib/%s:$here/lib/%s:$here/usr/lib/syslog-ng" exec "$here/%s" "$@" %s\n' \
    LD_LIBRARY_PATH "$libraries" "$libraries" "$2" "${3:-}" >"$1.new"
  chmod +x "$1.new"
  mv "$1.new" "$1"
}
wrap rsyslogd usr/sbin/rsyslogd "-M \"\$here/usr/lib/$libraries/rsyslog\""
wrap syslog-ng usr/sbin/syslog-ng "--module-path \"\$(echo \"\$here\"/usr/lib/syslog-ng/3.*)\""
