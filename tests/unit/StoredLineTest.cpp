// Which lines are new when the log is looked at again.
#include "tools/syslogctl/StoredLine.h"

#include <string>

namespace {

using Ctl::Gap;

// A line for each character, at the minute that its place in the alphabet gives.
std::string Lines(const char* names) {
  std::string text;
  for (const char* name = names; *name != '\0'; ++name) {
    char line[64];
    snprintf(line, sizeof line, "[10:%02d:00.000] m.Info: %c\n", *name - 'a', *name);
    text += line;
  }
  return text;
}

TEST(SyslogctlStoredLine, NewLinesAreThoseAfterTheLastSeen) {
  struct {
    std::string old, now, added;
    Gap gap;
  } const rows[] = {
      {Lines("abc"), Lines("abc"), "", Gap::kNone},
      {Lines("abc"), Lines("abcd"), Lines("d"), Gap::kNone},
      {Lines("abc"), Lines("cde"), Lines("de"), Gap::kNone},
      {Lines("aaa"), Lines("aaaa"), Lines("a"), Gap::kNone},
      {Lines("abc"), Lines("fgh"), Lines("fgh"), Gap::kOverrun},
      {Lines("abde"), Lines("abfg"), Lines("fg"), Gap::kRestart},  // the supervisor's a and b are in both
      {Lines("rst"), Lines("abuv"), Lines("uv"), Gap::kRestart},   // they had left the log
      {"[23:59:00.000] m.Info: x\n", "[00:00:00.000] m.Info: y\n", "[00:00:00.000] m.Info: y\n",
       Gap::kOverrun},
      {Lines("a") + "second\n", Lines("a") + "second\n" + "[10:01:00.000] no end", "[10:01:00.000] no end",
       Gap::kNone},
  };
  for (const auto& row : rows) {
    Gap gap;
    const char* const now = row.now.c_str();
    const char* const first =
        Ctl::FirstNew(row.old.c_str(), row.old.c_str() + row.old.size(), now, now + row.now.size(), &gap);
    EXPECT_EQ(row.added, first) << row.old << row.now;
    EXPECT_EQ(static_cast<int>(row.gap), static_cast<int>(gap)) << row.old << row.now;
  }
}

}  // namespace
