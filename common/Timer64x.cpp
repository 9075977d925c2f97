#include "common/Timer64x.h"

#include <sys/time.h>
#include <time.h>

namespace Velk {

unsigned long long Timer64x::GetMsecCount64() {
  timeval now{};
  gettimeofday(&now, nullptr);
  return static_cast<unsigned long long>(now.tv_sec) * 1000 +
         static_cast<unsigned long long>(now.tv_usec) / 1000;
}

unsigned long long NowUs() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<unsigned long long>(now.tv_sec) * 1000000 +
         static_cast<unsigned long long>(now.tv_nsec) / 1000;
}

}  // namespace Velk
