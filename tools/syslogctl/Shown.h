// Tool layer: which lines of the log are shown, and how. No state.
#pragma once

#include <cstddef>

#include "common/SimpleString.h"
#include "tools/syslogctl/Options.h"

namespace Ctl {

struct Level {
  const char* word;   // as the service's console has it
  const char* name;   // as the tool's options and JSON have it
  const char* color;  // SGR sequence
};

// Of an ELogMessageType; the last one is of all other numbers.
const Level& LevelOf(long long type);

// Whether the options -l and -t let it through. One without a level passes every -l.
bool IsShown(const Options& options, long long type, const char* module, size_t moduleLength);

// Appends ,"name":"value".
void AppendField(Velk::SimpleString& out, const char* name, const char* value);

// Writes out what was printed. False: said why not.
bool FlushOutput();

}  // namespace Ctl
