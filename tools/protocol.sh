#!/bin/sh
# Copies examples/wire.sh into docs/protocol.md and generates man/velk-protocol.7 from that. Edit only the first two.
# "tools/protocol.sh check" changes nothing and fails if a run would change a file. Needs mandoc and lowdown 1.0
# (Debian 12); other versions may write other macros.
set -eu
cd "$(dirname "$0")/.."

text=docs/protocol.md page=man/velk-protocol.7
made=$(mktemp -d)
trap 'rm -rf "$made"' EXIT

# Replaces the listing after the comment that names the example.
awk -v example=examples/wire.sh '
  $0 == "<!-- " example " -->" { fences = 2 }
  fences == 1 && !/^```/ { next }
  { print }
  /^```/ && fences && --fences == 1 { while ((getline line <example) > 0) print line }
' "$text" >"$made/text"

# Adds the NAME section. Adapts lowdown's output to terminals: headings in capitals, tables as wide as the page, and
# literals in bold with plain quotes and dashes, so that they can be pasted into a shell.
date=$(sed -n 's/^<!-- Date: \(.*\) -->$/\1/p' "$text")
sed '1s/.*/# Name\n\nvelk-protocol - calls to the log service over UDP\n\n# Description/; s/^##/#/' "$made/text" |
  lowdown -s -t man --nroff-nolinks --out-no-smarty --parse-no-super \
    -m title=velk-protocol -m section=7 -m "date=$date" |
  awk '
    function literal(text) {
      gsub(/\047/, "\\(aq", text)
      gsub(/`/, "\\(ga", text)
      gsub(/-/, "\\-", text)
      return text
    }
    NR == 1 { print "\047\\\" t\n.\\\" Made from docs/protocol.md by tools/protocol.sh."; next }
    /^\.SH$/ { getline; print ".SH " toupper($0); afterHeading = NR; next }
    /^\.[LP]P$/ && NR == afterHeading + 1 { next }
    /^\.EX$/, /^\.EE$/ { print literal($0); next }
    /^\.TE$/ { $0 = ".TE\n.sp" }
    /^tab\(.\) expand/ { sub(/ expand/, "") }
    /^l .*l\.$/ { sub(/l\.$/, "lx.") }
    {
      line = ""
      while (match($0, /\\fC([^\\]|\\[^f])*\\fR/)) {
        word = literal(substr($0, RSTART + 3, RLENGTH - 6))
        gsub(/ /, " \\%", word)  # never hyphenate
        line = line substr($0, 1, RSTART - 1) "\\fB\\%" word "\\fR"
        $0 = substr($0, RSTART + RLENGTH)
      }
      print line $0
    }' >"$made/page.7"
mandoc -T lint -W warning "$made/page.7"

if [ "${1:-}" = check ]; then
  if ! diff -u "$text" "$made/text" || ! diff -u "$page" "$made/page.7"; then
    echo "protocol.sh: $text or $page is out of date: run tools/protocol.sh"
    exit 1
  fi
else
  cp "$made/text" "$text"
  cp "$made/page.7" "$page"
fi
