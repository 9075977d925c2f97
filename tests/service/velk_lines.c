/* velk_lines SERVER COUNT FLAGS: logs "line 0" to "line COUNT - 1" with libvelk and waits until they are
 * confirmed. Prints the lines per second. */
#include <stdio.h>
#include <stdlib.h>
#include <time.h>

#include "velk.h"

static double now(void) {
  struct timespec time;
  clock_gettime(CLOCK_MONOTONIC, &time);
  return (double)time.tv_sec + (double)time.tv_nsec / 1e9;
}

int main(int argc, char** argv) {
  if (argc < 4) return 2;
  const int count = atoi(argv[2]);
  velk* log = velk_open(argv[1], "mosk", (unsigned)atoi(argv[3]));
  if (log == NULL) {
    perror("velk_open");
    return 1;
  }
  const double begin = now();
  for (int i = 0; i < count; ++i) {
    if (velk_log(log, VELK_INFO, "lib", "line %d", i) == 0) continue;
    perror("velk_log");
    return 1;
  }
  const double written = now();
  if (velk_flush(log, 60000) > 0) {
    perror("velk_flush");
    return 1;
  }
  printf("%.0f lines/s written, %.0f lines/s confirmed\n", count / (written - begin),
         count / (now() - begin));
  velk_close(log);
  return 0;
}
