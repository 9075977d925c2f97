// Threads and clock layer: the clock of timed messages.
#pragma once

namespace Velk {

class Timer64x {
 public:
  // Milliseconds since 1970-01-01 UTC. Wall-clock time: it jumps when the system time is set, and every
  // timed message moves with it. Any thread may call.
  static unsigned long long GetMsecCount64();
};

// Microseconds since some moment, which no setting of the time changes: for how long something takes.
unsigned long long NowUs();

}  // namespace Velk
