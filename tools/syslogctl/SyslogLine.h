// Tool layer: parses records of /dev/log, the network and /dev/kmsg. No state.
#pragma once

#include <cstddef>

#include "common/IDailyLog2.h"
#include "tools/syslogctl/Options.h"

namespace Ctl {

// A part of a record. Length 0: missing.
struct RecordPart {
  const char* begin;
  size_t length;
};

// A parsed record. Only the text may contain control characters, line feeds and NULs.
struct SyslogLine {
  static constexpr size_t kMaxModule = Options::kMaxModule;
  static constexpr size_t kMarkLength = 7;  // "local[" and "]"

  ELogMessageType type;
  // The tag, or else the facility. Never empty, no control characters. If a program's name could be taken for
  // the service's or the kernel's, it becomes "local[name]". No tag can look like that, as a bracket ends a
  // tag.
  char module[kMaxModule + kMarkLength + 1];
  RecordPart pid;   // in brackets after the tag, or PROCID of RFC 5424
  RecordPart id;    // MSGID of RFC 5424
  RecordPart data;  // STRUCTURED-DATA of RFC 5424, without a leading timeQuality
  RecordPart text;
};

// Parses one datagram of syslog(3). It knows three formats:
//   RFC 3164, as C libraries and logger(1) write it: "<PRI>Mmm dd hh:mm:ss tag[pid]: text";
//   the same with a time of RFC 3339 and an optional host: "<PRI>2024-01-02T10:00:00.5Z host tag: text";
//   RFC 5424: "<PRI>1 TIME HOST APP PROCID MSGID DATA text".
// In the first two, each part but the text may be missing. A record in no format is all text. Drops times,
// hosts, and line feeds and NULs at the end. hasHost: in RFC 3164 a host may precede the tag, as it does over
// a network.
SyslogLine ParseSyslog(const char* record, size_t length, bool hasHost = false);

// Parses one record of /dev/kmsg, "PRI,SEQUENCE,...;text" and a line feed. False: it is malformed.
bool ParseKmsg(const char* record, size_t length, SyslogLine* line, unsigned long long* sequence);

}  // namespace Ctl
