#include "tools/syslogctl/StoredLine.h"

#include <string.h>

#include "common/TextOps.h"

namespace Ctl {
namespace {

constexpr char kTimeForm[] = "[99:99:99.999] ";
constexpr size_t kTimePart = sizeof kTimeForm - 1;

bool BeginsWithTime(const char* text, const char* end) {
  if (static_cast<size_t>(end - text) < kTimePart) return false;
  for (size_t i = 0; i < kTimePart; ++i) {
    const bool isDigit = text[i] >= '0' && text[i] <= '9';
    if (kTimeForm[i] == '9' ? !isDigit : text[i] != kTimeForm[i]) return false;
  }
  return true;
}

const char* AfterLine(const char* text, const char* end) {
  const void* const lineFeed = memchr(text, '\n', static_cast<size_t>(end - text));
  return lineFeed != nullptr ? static_cast<const char*>(lineFeed) + 1 : end;
}

// The level named at text, and the length of its name.
int LevelAt(const char* text, const char* end, size_t* length) {
  static const char* const kWords[] = {"Trace: ", "Info: ", "Warning: ", "Error: "};
  for (int level = Trace; level <= Error; ++level) {
    *length = strlen(kWords[level]);
    if (static_cast<size_t>(end - text) >= *length && memcmp(text, kWords[level], *length) == 0) return level;
  }
  return Options::kNoLevel;
}

// The service cuts a longer "module.Type: ", and the type is lost.
constexpr ptrdiff_t kMaxHead = 126;

void SplitHead(const char* head, const char* end, StoredLine* line) {
  line->level = Options::kNoLevel;
  line->module = {head, 0};
  line->text = {head, static_cast<size_t>(end - head)};
  size_t length = 0;
  for (const char* at = head; at != end && *at != '\n' && at - head < kMaxHead; ++at) {
    if (at != head && at[-1] != '.') continue;
    line->level = LevelAt(at, end, &length);
    if (line->level == Options::kNoLevel) continue;
    line->module.length = at != head ? static_cast<size_t>(at - 1 - head) : 0;
    line->text = {at + length, static_cast<size_t>(end - at) - length};
    return;
  }
}

}  // namespace

bool TakeStored(const char** at, const char* end, StoredLine* line) {
  if (*at == end) return false;
  const char* next = AfterLine(*at, end);
  while (next != end && !BeginsWithTime(next, end)) next = AfterLine(next, end);
  line->begin = *at;
  line->end = next;
  line->hasTime = BeginsWithTime(*at, end);
  SplitHead(*at + (line->hasTime ? kTimePart : 0), next[-1] == '\n' ? next - 1 : next, line);
  *at = next;
  return true;
}

bool StoredLine::IsOverhead() const {
  static const char* const kTexts[] = {"srv wrote ", "srv nonce:", "cookie:", "SyncLog()"};
  if (module.length != 6 || memcmp(module.begin, "Syslog", 6) != 0) return false;
  for (const char* const known : kTexts) {
    const size_t length = strlen(known);
    if (text.length >= length && memcmp(text.begin, known, length) == 0) return true;
  }
  return false;
}

namespace {

// Milliseconds since midnight. The line has a time.
long TimeOf(const StoredLine& line) {
  static const int kDigits[] = {0, 1, 3, 4, 6, 7, 9, 10, 11};  // in "HH:MM:SS.mmm"
  static const long kValues[] = {36000000, 3600000, 600000, 60000, 10000, 1000, 100, 10, 1};
  const char* const time = line.Time().begin;
  long sum = 0;
  for (size_t i = 0; i < sizeof kDigits / sizeof *kDigits; ++i) sum += (time[kDigits[i]] - '0') * kValues[i];
  return sum;
}

// The lines have no date, so a time up to half a day ahead counts as later.
bool IsEarlier(const StoredLine& a, const StoredLine& b) {
  constexpr long kDay = 86400000;
  return a.hasTime && b.hasTime && (TimeOf(a) - TimeOf(b) + kDay) % kDay >= kDay / 2;
}

// After a restart, `now` begins with lines of the supervisor, among them old ones that `old` may lack. Their
// times show that they are old.
const char* FirstUnseen(const char* old, const char* oldEnd, const char* now, const char* nowEnd) {
  StoredLine last{}, line{}, previous{};
  for (const char* at = old; TakeStored(&at, oldEnd, &last);) {
  }
  const char* first = now;
  for (const char* at = now; TakeStored(&at, nowEnd, &line); previous = line) {
    const bool isSeen = memmem(old, static_cast<size_t>(oldEnd - old), line.begin,
                               static_cast<size_t>(line.end - line.begin)) != nullptr;
    if (isSeen || IsEarlier(line, last)) {
      first = line.end;
    } else if (IsEarlier(line, previous)) {
      first = line.begin;  // the lines before it only seem later: they are more than half a day old
    }
  }
  return first;
}

}  // namespace

const char* FirstNew(const char* old, const char* oldEnd, const char* now, const char* nowEnd, bool* isSure) {
  *isSure = true;
  StoredLine line{};
  for (const char* at = old; at != oldEnd; TakeStored(&at, oldEnd, &line)) {
    const auto length = static_cast<size_t>(oldEnd - at);
    if (length <= static_cast<size_t>(nowEnd - now) && memcmp(at, now, length) == 0) return now + length;
  }
  *isSure = false;
  return FirstUnseen(old, oldEnd, now, nowEnd);
}

}  // namespace Ctl
