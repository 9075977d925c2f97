// Tool layer: lines as other programs write them to /dev/log and as the kernel hands them out. No state.
#pragma once

#include <cstddef>

#include "common/IDailyLog2.h"
#include "tools/syslogctl/Options.h"

namespace Ctl {

// A part of a record; length 0: it is missing.
struct RecordPart {
  const char* begin;
  size_t length;
};

// What one record says. Only the text may hold control characters, line feeds and NULs too.
struct SyslogLine {
  static constexpr size_t kMaxModule = Options::kMaxModule;
  static constexpr size_t kMarkLength = 7;  // of "local[" and "]"

  ELogMessageType type;
  // The program's tag, else its facility; never empty, without control characters. A name that could be taken
  // for the service's own or, unless the kernel itself wrote the record, for the kernel's is marked as
  // "local[name]". No tag looks like that: a bracket ends one.
  char module[kMaxModule + kMarkLength + 1];
  RecordPart pid;   // what was in brackets after the tag, or PROCID
  RecordPart id;    // MSGID of RFC 5424
  RecordPart data;  // STRUCTURED-DATA of RFC 5424, but for what it says of the time stamp
  RecordPart text;
};

// Reads one datagram of syslog(3). Three forms are known:
//   RFC 3164 as C libraries and logger(1) write it: "<PRI>Mmm dd hh:mm:ss tag[pid]: text";
//   the same with a time of RFC 3339, perhaps followed by a host: "<PRI>2024-01-02T10:00:00.5Z host tag:
//   text"; RFC 5424: "<PRI>1 TIME HOST APP PROCID MSGID DATA text".
// Of the first two each part but the text may be missing; what isn't understood is text. Times and hosts are
// dropped, and so are line feeds and NULs at the end. hasHost: in RFC 3164 a host is before the tag, as it is
// where lines come over a network.
SyslogLine ParseSyslog(const char* record, size_t length, bool hasHost = false);

// Reads one record of /dev/kmsg, "PRI,SEQUENCE,...;text" and a line feed, and notes its number. False: it
// isn't one.
bool ParseKmsg(const char* record, size_t length, SyslogLine* line, unsigned long long* sequence);

}  // namespace Ctl
