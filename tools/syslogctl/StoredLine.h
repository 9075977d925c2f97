// Tool layer: lines as the service stores them: "[HH:MM:SS.mmm] module.Type: text". No state.
#pragma once

#include <cstddef>

#include "tools/syslogctl/SyslogLine.h"

namespace Ctl {

// One line of the log. If its text has line feeds, it takes several lines of the file.
struct StoredLine {
  const char* begin;
  const char* end;  // after its last line feed, if it has one
  bool hasTime;     // it begins with a time, as all lines of the service do
  int level;        // Options::kNoLevel: no module and level, all but the time is text
  RecordPart module;
  RecordPart text;  // without the line feed at its end

  RecordPart Time() const { return {begin + 1, hasTime ? kTimeLength : 0}; }
  // Whether the service wrote it because a program joined or sent SyncLog.
  bool IsOverhead() const;

  static constexpr size_t kTimeLength = 12;
};

// Reads the line at *at and moves *at past it. False: *at is end.
bool TakeStored(const char** at, const char* end, StoredLine* line);

// old and now are two readings of the log. Returns the first new line in now. *isSure: now begins with the
// last lines of old; otherwise lines may be missing between the two.
const char* FirstNew(const char* old, const char* oldEnd, const char* now, const char* nowEnd, bool* isSure);

}  // namespace Ctl
