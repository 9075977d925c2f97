#include "tools/syslogctl/SyslogLine.h"

#include <ctype.h>
#include <stdio.h>
#include <string.h>

namespace Ctl {
namespace {

constexpr unsigned kMaxPriority = 191;  // facility 23, severity 7
constexpr unsigned kUserNotice = 13;    // RFC 3164, 4.3.3: for what has no priority
constexpr size_t kMaxPid = 16;

bool IsDigit(char c) {
  return c >= '0' && c <= '9';
}

// Text that is being read, from p to end.
struct Scan {
  const char* p;
  const char* end;

  size_t Left() const { return static_cast<size_t>(end - p); }

  bool Skip(char c) {
    if (p == end || *p != c) return false;
    ++p;
    return true;
  }

  // False: no number of up to 19 digits here.
  bool Number(unsigned long long* value) {
    const char* const begin = p;
    *value = 0;
    for (; p != end && IsDigit(*p) && p - begin < 19; ++p) {
      *value = *value * 10 + static_cast<unsigned long long>(*p - '0');
    }
    return p != begin;
  }
};

ELogMessageType TypeOf(unsigned priority) {
  static const ELogMessageType kTypes[] = {Error, Error, Error, Error, Warning, Info, Info, Trace};
  return kTypes[priority & 7];
}

const char* FacilityName(unsigned priority) {
  static const char* const kNames[] = {"kernel", "user",   "mail",   "daemon", "auth",     "syslog",
                                       "lpr",    "news",   "uucp",   "cron",   "authpriv", "ftp",
                                       "ntp",    "audit",  "alert",  "clock",  "local0",   "local1",
                                       "local2", "local3", "local4", "local5", "local6",   "local7"};
  return kNames[priority >> 3];
}

// "<PRI>" or nothing.
unsigned TakePriority(Scan& scan) {
  Scan ahead = scan;
  unsigned long long value = 0;
  if (!ahead.Skip('<') || !ahead.Number(&value) || !ahead.Skip('>') || value > kMaxPriority) {
    return kUserNotice;
  }
  scan = ahead;
  return static_cast<unsigned>(value);
}

// "Mmm dd hh:mm:ss " or nothing. The service has a clock of its own.
void SkipTimeStamp(Scan& scan) {
  static const char kForm[] = "Aaa _9 99:99:99 ";
  constexpr size_t kLength = sizeof kForm - 1;
  if (scan.Left() < kLength) return;
  for (size_t i = 0; i < kLength; ++i) {
    const auto c = static_cast<unsigned char>(scan.p[i]);
    switch (kForm[i]) {
      case 'A':
      case 'a':
        if (!isalpha(c)) return;
        break;
      case '_':
        if (c != ' ' && !isdigit(c)) return;
        break;
      case '9':
        if (!isdigit(c)) return;
        break;
      default:
        if (scan.p[i] != kForm[i]) return;
    }
  }
  scan.p += kLength;
}

bool IsTagCharacter(char c) {
  const auto byte = static_cast<unsigned char>(c);
  return byte > ' ' && byte != 0x7F && c != ':' && c != '[' && c != '<';
}

// "[pid]" or nothing.
void TakePid(Scan& scan, SyslogLine& line) {
  Scan ahead = scan;
  if (!ahead.Skip('[')) return;
  const char* const begin = ahead.p;
  while (ahead.p != ahead.end && isgraph(static_cast<unsigned char>(*ahead.p)) && *ahead.p != ']') ++ahead.p;
  const auto length = static_cast<size_t>(ahead.p - begin);
  if (length > kMaxPid || !ahead.Skip(']')) return;
  line.pid = begin;
  line.pidLength = length;
  scan = ahead;
}

// "tag: " or "tag[pid]: ", or nothing: a colon within a word, as in an address, does not end a tag.
void TakeTag(Scan& scan, SyslogLine& line) {
  Scan ahead = scan;
  while (ahead.p != ahead.end && IsTagCharacter(*ahead.p)) ++ahead.p;
  const auto length = static_cast<size_t>(ahead.p - scan.p);
  if (length > SyslogLine::kMaxModule) return;
  TakePid(ahead, line);
  if (!ahead.Skip(':') || (ahead.p != ahead.end && !ahead.Skip(' '))) {
    line.pidLength = 0;
    return;
  }
  if (length != 0) {
    memcpy(line.module, scan.p, length);
    line.module[length] = '\0';
  }
  scan = ahead;
}

SyslogLine MakeLine(unsigned priority) {
  SyslogLine line{};
  line.type = TypeOf(priority);
  snprintf(line.module, sizeof line.module, "%s", FacilityName(priority));
  return line;
}

void TakeText(const Scan& scan, SyslogLine& line) {
  line.text = scan.p;
  line.textLength = scan.Left();
}

}  // namespace

SyslogLine ParseSyslog(const char* record, size_t length) {
  while (length > 0 && (record[length - 1] == '\n' || record[length - 1] == '\0')) --length;
  Scan scan{record, record + length};
  SyslogLine line = MakeLine(TakePriority(scan));
  SkipTimeStamp(scan);
  TakeTag(scan, line);
  TakeText(scan, line);
  return line;
}

bool ParseKmsg(const char* record, size_t length, SyslogLine* line, unsigned long long* sequence) {
  // What follows the first line are dictionary lines for machines.
  const auto* const lineFeed = static_cast<const char*>(memchr(record, '\n', length));
  Scan scan{record, lineFeed != nullptr ? lineFeed : record + length};
  unsigned long long priority = 0;
  if (!scan.Number(&priority) || !scan.Skip(',') || !scan.Number(sequence)) return false;
  if (priority > kMaxPriority) priority = kUserNotice;
  while (scan.p != scan.end && *scan.p != ';') ++scan.p;
  if (!scan.Skip(';')) return false;
  *line = MakeLine(static_cast<unsigned>(priority));
  // Only what programs wrote to the kernel's log has tags; the kernel's own text keeps its colons.
  if (priority >> 3 != 0) TakeTag(scan, *line);
  TakeText(scan, *line);
  return true;
}

}  // namespace Ctl
