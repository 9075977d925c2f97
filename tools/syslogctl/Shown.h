// Tool layer: which lines of the log are shown, and how. No state.
#pragma once

#include <cstddef>

#include "common/SimpleString.h"
#include "tools/syslogctl/Options.h"

namespace Ctl {

struct Level {
  const char* word;   // on the service's console
  const char* name;   // in the tool's options and JSON
  const char* color;  // terminal escape sequence, or empty
};

// type: an ELogMessageType. Any other number gives the level "nothing".
const Level& LevelOf(long long type);

// Whether -l lets the type through, and -t the module. The type Options::kNoLevel passes every -l.
bool IsShown(const Options& options, long long type, const char* module, size_t moduleLength);

// Appends ,"name":"value".
void AppendField(Velk::SimpleString& out, const char* name, const char* value);

// Flushes standard output. False: it failed and printed why.
bool FlushOutput();

}  // namespace Ctl
