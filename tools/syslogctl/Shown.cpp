#include "tools/syslogctl/Shown.h"

#include <errno.h>
#include <stdio.h>
#include <string.h>

#include "tools/syslogctl/Text.h"

namespace Ctl {

const Level& LevelOf(long long type) {
  static const Level kLevels[] = {
      {"Trace", "trace", "\033[2m"},      {"Info", "info", ""},
      {"Warning", "warning", "\033[33m"}, {"ERROR", "error", "\033[1;31m"},
      {"Nothing", "nothing", "\033[2m"},  // any other type; the service does not log the line
  };
  return kLevels[type >= Trace && type <= Error ? type : Error + 1];
}

bool IsShown(const Options& options, long long type, const char* module, size_t moduleLength) {
  if (type != Options::kNoLevel && type < options.level) return false;
  return options.module == nullptr ||
         (strlen(options.module) == moduleLength && memcmp(options.module, module, moduleLength) == 0);
}

void AppendField(Velk::SimpleString& out, const char* name, const char* value) {
  out.Append(',');
  AppendJson(out, name);
  out.Append(':');
  AppendJson(out, value);
}

bool FlushOutput() {
  if (fflush(stdout) == 0 && ferror(stdout) == 0) return true;
  Say("cannot write to standard output: %s", strerror(errno));
  return false;
}

}  // namespace Ctl
