// Which lines are new when the log is read again.
#include "tools/syslogctl/StoredLine.h"

#include "tests/unit/Test.h"

namespace {

// One line per letter, which sets the minute: a is 0.
std::string LinesOf(const char* names) {
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
    bool isSure;
  } const rows[] = {
      {LinesOf("abc"), LinesOf("abc"), "", true},
      {LinesOf("abc"), LinesOf("abcd"), LinesOf("d"), true},
      {LinesOf("abc"), LinesOf("cde"), LinesOf("de"), true},
      {LinesOf("aaa"), LinesOf("aaaa"), LinesOf("a"), true},
      {LinesOf("abc"), LinesOf("fgh"), LinesOf("fgh"), false},
      {LinesOf("abde"), LinesOf("abfg"), LinesOf("fg"),
       false},  // after the child's restart: the supervisor's a and b are in both
      {LinesOf("rst"), LinesOf("abuv"), LinesOf("uv"), false},  // the same, but a and b are no longer in old
      {"[23:59:00.000] m.Info: x\n", "[00:00:00.000] m.Info: y\n", "[00:00:00.000] m.Info: y\n", false},
      {LinesOf("a") + "second\n", LinesOf("a") + "second\n" + "[10:01:00.000] no end",
       "[10:01:00.000] no end", true},
  };
  for (const auto& row : rows) {
    bool isSure = !row.isSure;
    const char* const now = row.now.c_str();
    const char* const first =
        Ctl::FirstNew(row.old.c_str(), row.old.c_str() + row.old.size(), now, now + row.now.size(), &isSure);
    EXPECT_EQ(row.added, first) << row.old << row.now;
    EXPECT_EQ(row.isSure, isSure) << row.old << row.now;
  }
}

}  // namespace
