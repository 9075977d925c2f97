// Threads and clock layer: clocks.
#pragma once

namespace Velk {

class Timer64x {
 public:
  // Milliseconds since 1970-01-01 UTC, for the due times of messages. Jumps when the system time is set. Any
  // thread may call.
  static unsigned long long GetMsecCount64();
};

// Microseconds of the monotonic clock, for measuring durations. Any thread may call.
unsigned long long NowUs();

}  // namespace Velk
