#!/bin/sh
# Ensures that Debian packages are installed: tools/install.sh PACKAGE...
# Root with apt-get: installs the missing ones. Otherwise: names them and fails.
set -eu

missing=
for package in "$@"; do
  dpkg-query -W -f='${Status}' "$package" 2>/dev/null | grep -q 'ok installed' || missing="$missing $package"
done
[ -n "$missing" ] || exit 0

if ! command -v apt-get >/dev/null; then
  echo "Please install these Debian packages or your system's equivalents:$missing" >&2
  exit 1
fi
if [ "$(id -u)" -ne 0 ]; then
  echo "Missing packages. Install them with:  sudo apt-get install$missing" >&2
  exit 1
fi
echo "Installing Debian packages:$missing"
export DEBIAN_FRONTEND=noninteractive
# shellcheck disable=SC2086  # a list of words
apt-get install -y -qq --no-install-recommends $missing >/dev/null 2>&1 ||
  { apt-get update -qq && apt-get install -y -qq --no-install-recommends $missing >/dev/null; } ||
  { echo "Cannot install:$missing. Is there a network?" >&2; exit 1; }
