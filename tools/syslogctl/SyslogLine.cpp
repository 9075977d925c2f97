#include "tools/syslogctl/SyslogLine.h"

#include <ctype.h>
#include <stdio.h>
#include <string.h>

#include "tools/syslogctl/Severity.h"

namespace Ctl {
namespace {

constexpr unsigned kMaxPriority = 191;  // facility 23, severity 7
constexpr unsigned kUserNotice = 13;    // RFC 3164, 4.3.3: for records without a priority
constexpr unsigned kUserFacility = 1 << 3;
constexpr size_t kMaxPid = 16;
// Limits of RFC 5424, 6. Its limit for APP-NAME is kMaxModule.
constexpr size_t kMaxHost = 255;
constexpr size_t kMaxProcId = 128;
constexpr size_t kMaxMessageId = 32;

constexpr char kService[] = "Syslog";  // the module of the service's own lines
constexpr char kKernel[] = "kernel";

bool IsDigit(char c) {
  return c >= '0' && c <= '9';
}

bool IsGraph(char c) {
  return c > ' ' && c < 0x7F;
}

// The text still to be parsed, p to end.
struct Scan {
  const char* p;
  const char* end;

  size_t Left() const { return static_cast<size_t>(end - p); }

  bool Skip(char c) {
    if (p == end || *p != c) return false;
    ++p;
    return true;
  }

  // Takes up to 19 digits. False: no digit here.
  bool Number(unsigned long long* value) {
    const char* const begin = p;
    *value = 0;
    for (; p != end && IsDigit(*p) && p - begin < 19; ++p) {
      *value = *value * 10 + static_cast<unsigned long long>(*p - '0');
    }
    return p != begin;
  }

  // Takes a word of up to max characters and the blank after it.
  bool Word(size_t max, RecordPart* word) {
    Scan ahead = *this;
    while (ahead.p != end && IsGraph(*ahead.p)) ++ahead.p;
    *word = {p, static_cast<size_t>(ahead.p - p)};
    if (word->length == 0 || word->length > max || !ahead.Skip(' ')) return false;
    *this = ahead;
    return true;
  }
};

bool IsTagCharacter(char c) {
  const auto byte = static_cast<unsigned char>(c);
  return byte > ' ' && byte != 0x7F && c != ':' && c != '[' && c != '<';
}

// Whether a reader could take name for the reserved one. Ignores case and bytes beyond ASCII, which a screen
// may not show, and what follows a character that ends the word, as in "Syslog.Error".
bool ReadsAs(const char* name, const char* reserved) {
  for (; *name != '\0'; ++name) {
    const auto byte = static_cast<unsigned char>(*name);
    if (byte >= 0x80) continue;
    if (*reserved == '\0') return isalnum(byte) == 0 && byte != '-' && byte != '_';
    if (tolower(byte) != tolower(static_cast<unsigned char>(*reserved))) return false;
    ++reserved;
  }
  return *reserved == '\0';
}

// name has at most kMaxModule bytes.
void SetModule(SyslogLine& line, const RecordPart& name) {
  char clean[SyslogLine::kMaxModule + 1] = {};
  // An APP-NAME of RFC 5424 may contain ':' and '[', with which it could forge "local[" or the head of a
  // line.
  for (size_t i = 0; i < name.length; ++i) clean[i] = IsTagCharacter(name.begin[i]) ? name.begin[i] : '_';
  const bool isMarked = ReadsAs(clean, kService) || ReadsAs(clean, kKernel);
  snprintf(line.module, sizeof line.module, isMarked ? "local[%s]" : "%s", clean);
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

// Skips text that matches form: 9 is a digit, A a letter, _ a digit or a blank, + a sign; other characters
// match themselves.
bool SkipForm(Scan& scan, const char* form) {
  const size_t length = strlen(form);
  if (scan.Left() < length) return false;
  for (size_t i = 0; i < length; ++i) {
    const char c = scan.p[i];
    const bool fits = form[i] == '9'   ? IsDigit(c)
                      : form[i] == 'A' ? isalpha(static_cast<unsigned char>(c)) != 0
                      : form[i] == '_' ? c == ' ' || IsDigit(c)
                      : form[i] == '+' ? c == '+' || c == '-'
                                       : c == form[i];
    if (!fits) return false;
  }
  scan.p += length;
  return true;
}

// A time of RFC 3339 and the blank after it. Some programs write a comma before the fraction, omit the colon
// in the zone, or omit the zone.
bool SkipIsoTime(Scan& scan) {
  Scan ahead = scan;
  unsigned long long fraction = 0;
  if (!SkipForm(ahead, "9999-99-99T99:99:99")) return false;
  if ((ahead.Skip('.') || ahead.Skip(',')) && !ahead.Number(&fraction)) return false;
  if (!ahead.Skip('Z') && !SkipForm(ahead, "+99:99")) SkipForm(ahead, "+9999");
  if (!ahead.Skip(' ')) return false;
  scan = ahead;
  return true;
}

// "[pid]" or nothing.
void TakePid(Scan& scan, SyslogLine& line) {
  Scan ahead = scan;
  if (!ahead.Skip('[')) return;
  const char* const begin = ahead.p;
  while (ahead.p != ahead.end && IsGraph(*ahead.p) && *ahead.p != ']') ++ahead.p;
  const auto length = static_cast<size_t>(ahead.p - begin);
  if (length > kMaxPid || !ahead.Skip(']')) return;
  line.pid = {begin, length};
  scan = ahead;
}

// "tag: " or "tag[pid]: ", or nothing: a colon within a word, as in an address, does not end a tag.
bool TakeTag(Scan& scan, SyslogLine& line) {
  Scan ahead = scan;
  while (ahead.p != ahead.end && IsTagCharacter(*ahead.p)) ++ahead.p;
  const auto length = static_cast<size_t>(ahead.p - scan.p);
  if (length > SyslogLine::kMaxModule) return false;
  TakePid(ahead, line);
  if (!ahead.Skip(':') || (ahead.p != ahead.end && !ahead.Skip(' '))) {
    line.pid = {};
    return false;
  }
  if (length != 0) SetModule(line, {scan.p, length});
  scan = ahead;
  return true;
}

// A host precedes the tag in datagrams from a network. If the time is of RFC 3339, it often does in local
// ones too.
void TakeHostAndTag(Scan& scan, SyslogLine& line) {
  if (TakeTag(scan, line)) return;
  Scan ahead = scan;
  RecordPart host;
  if (ahead.Word(kMaxHost, &host) && TakeTag(ahead, line)) scan = ahead;
}

bool IsNil(const RecordPart& part) {
  return part.length == 1 && *part.begin == '-';
}

// One "[name key="value"...]" of RFC 5424, 6.3. False: no such element here, or it has control characters.
bool SkipElement(Scan& scan) {
  Scan ahead = scan;
  if (!ahead.Skip('[')) return false;
  bool isQuoted = false;
  for (; ahead.p != ahead.end && iscntrl(static_cast<unsigned char>(*ahead.p)) == 0; ++ahead.p) {
    if (*ahead.p == ']' && !isQuoted) {
      scan.p = ahead.p + 1;
      return true;
    }
    if (*ahead.p == '"') isQuoted = !isQuoted;
    const bool isEscape = *ahead.p == '\\' && ahead.Left() > 1 && (ahead.p[1] == '"' || ahead.p[1] == '\\');
    if (isEscape && isQuoted) ++ahead.p;
  }
  return false;
}

// False: neither data nor "-".
bool TakeData(Scan& scan, SyslogLine& line) {
  static const char kTimeQuality[] = "[timeQuality ";  // logger(1) writes it first
  if (scan.Skip('-')) return true;
  const char* const begin = scan.p;
  const char* kept = begin;
  while (SkipElement(scan)) {
    constexpr size_t kLength = sizeof kTimeQuality - 1;
    if (kept == begin && static_cast<size_t>(scan.p - begin) > kLength &&
        memcmp(begin, kTimeQuality, kLength) == 0)
      kept = scan.p;
  }
  line.data = {kept, static_cast<size_t>(scan.p - kept)};
  return scan.p != begin;
}

// Takes everything of RFC 5424 between priority and text. False: another format.
bool TakeRfc5424(Scan& scan, SyslogLine& line) {
  Scan ahead = scan;
  RecordPart host, app, pid, id;
  SyslogLine taken = line;
  const bool isWhole = ahead.Skip('1') && ahead.Skip(' ') && (SkipForm(ahead, "- ") || SkipIsoTime(ahead)) &&
                       ahead.Word(kMaxHost, &host) && ahead.Word(SyslogLine::kMaxModule, &app) &&
                       ahead.Word(kMaxProcId, &pid) && ahead.Word(kMaxMessageId, &id) &&
                       TakeData(ahead, taken) && (ahead.p == ahead.end || ahead.Skip(' '));
  if (!isWhole) return false;
  if (!IsNil(app)) SetModule(taken, app);
  if (!IsNil(pid)) taken.pid = pid;
  if (!IsNil(id)) taken.id = id;
  SkipForm(ahead, "\xEF\xBB\xBF");  // byte order mark: the text is UTF-8
  line = taken;
  scan = ahead;
  return true;
}

SyslogLine MakeLine(unsigned priority) {
  SyslogLine line{};
  line.type = TypeOfSeverity(priority & kMaxSeverity);
  const char* const facility = FacilityName(priority);
  SetModule(line, {facility, strlen(facility)});
  return line;
}

void TakeText(const Scan& scan, SyslogLine& line) {
  line.text = {scan.p, scan.Left()};
}

}  // namespace

SyslogLine ParseSyslog(const char* record, size_t length, bool hasHost) {
  while (length > 0 && (record[length - 1] == '\n' || record[length - 1] == '\0')) --length;
  Scan scan{record, record + length};
  unsigned priority = TakePriority(scan);
  const bool hasPriority = scan.p != record;
  if (priority <= kMaxSeverity) priority |= kUserFacility;  // a program must not pass for the kernel
  SyslogLine line = MakeLine(priority);
  if (SkipIsoTime(scan)) {
    TakeHostAndTag(scan, line);
  } else if (!hasPriority || !TakeRfc5424(scan, line)) {
    const bool hasTime = SkipForm(scan, "AAA _9 99:99:99 ");
    if (hasTime && hasHost) {
      TakeHostAndTag(scan, line);
    } else {
      TakeTag(scan, line);
    }
  }
  TakeText(scan, line);
  return line;
}

bool ParseKmsg(const char* record, size_t length, SyslogLine* line, unsigned long long* sequence) {
  // The lines after the first are a dictionary for machines.
  const auto* const lineFeed = static_cast<const char*>(memchr(record, '\n', length));
  Scan scan{record, lineFeed != nullptr ? lineFeed : record + length};
  unsigned long long priority = 0;
  if (!scan.Number(&priority) || !scan.Skip(',') || !scan.Number(sequence)) return false;
  if (priority > kMaxPriority) priority = kUserNotice;
  while (scan.p != scan.end && *scan.p != ';') ++scan.p;
  if (!scan.Skip(';')) return false;
  *line = MakeLine(static_cast<unsigned>(priority));
  if (priority <= kMaxSeverity) {
    memcpy(line->module, kKernel, sizeof kKernel);
  } else {
    // Programs that write to the kernel's log use tags. The kernel's own text has none, only colons.
    TakeTag(scan, *line);
  }
  TakeText(scan, *line);
  return true;
}

}  // namespace Ctl
