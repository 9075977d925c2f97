// Tool layer: lines as the service stores them: "[HH:MM:SS.mmm] module.Type: text". No state.
#pragma once

#include <cstddef>

#include "tools/syslogctl/SyslogLine.h"

namespace Ctl {

// One line of the log. A text may have line feeds in it, and the line then several lines of the file.
struct StoredLine {
  const char* begin;
  const char* end;  // after its last line feed, if it has one
  bool hasTime;     // it begins with a time; all that the service wrote do
  int level;        // Options::kNoLevel: it has no head, and all but the time is text
  RecordPart module;
  RecordPart text;  // without the line feed at its end

  RecordPart Time() const { return {begin + 1, hasTime ? kTimeLength : 0}; }
  // The service writes it for every program that joins or asks for the file.
  bool IsHandshake() const;

  static constexpr size_t kTimeLength = 12;
};

// Takes the first line off the text from *at to end. False: there is none.
bool TakeStored(const char** at, const char* end, StoredLine* line);

// Where in what the service stores now that begins which it had not stored at the earlier look. *isSure: it
// follows what was stored then; else lines may have come in between and have gone.
const char* FirstNew(const char* old, const char* oldEnd, const char* now, const char* nowEnd, bool* isSure);

}  // namespace Ctl
