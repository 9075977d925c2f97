// Tool layer: lines as other programs write them to /dev/log and as the kernel hands them out. No state.
#pragma once

#include <cstddef>

#include "common/IDailyLog2.h"
#include "tools/syslogctl/Options.h"

namespace Ctl {

// What one record says. The text points into the record; it may hold any bytes, line feeds and NULs too.
struct SyslogLine {
  static constexpr size_t kMaxModule = Options::kMaxModule;

  ELogMessageType type;
  // The program's tag, else its facility; never empty, without control characters.
  char module[kMaxModule + 1];
  const char* pid;  // what was in brackets after the tag; pidLength 0: nothing
  size_t pidLength;
  const char* text;
  size_t textLength;
};

// Reads one datagram of syslog(3), RFC 3164 as C libraries and logger(1) write it: "<PRI>Mmm dd hh:mm:ss
// tag[pid]: text". Each part but the text may be missing; what isn't understood is text. Line feeds and NULs
// at the end are dropped.
SyslogLine ParseSyslog(const char* record, size_t length);

// Reads one record of /dev/kmsg, "PRI,SEQUENCE,...;text" and a line feed, and notes its number. False: it
// isn't one.
bool ParseKmsg(const char* record, size_t length, SyslogLine* line, unsigned long long* sequence);

}  // namespace Ctl
