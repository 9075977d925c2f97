/* velk_lines SERVER COUNT FLAGS [fork|close]: writes "line 0" to "line COUNT - 1" through libvelk and waits
 * until they are confirmed. Prints how many lines per second that were. fork: in the middle a child process
 * closes the handle, or the program closes every descriptor that it does not know and opens a file of its own
 * in their place, which must stay empty. */
#include <fcntl.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include "velk.h"

static double now(void) {
  struct timespec time;
  clock_gettime(CLOCK_MONOTONIC, &time);
  return (double)time.tv_sec + (double)time.tv_nsec / 1e9;
}

static int close_in_child(velk* log) {
  int status = -1;
  const pid_t child = fork();
  if (child == 0) {
    velk_close(log);
    _exit(0);
  }
  return child > 0 && waitpid(child, &status, 0) == child && status == 0;
}

static int open_own_files(void) {
  for (int fd = 3; fd < 100; ++fd) close(fd);
  const int own = open("own", O_RDWR | O_CREAT | O_TRUNC, 0600);
  for (int fd = 3; fd < 10; ++fd) {
    if (dup2(own, fd) != fd) return 0; /* the library's thread may have had it meanwhile */
  }
  return own >= 0;
}

/* They are still open and still empty. */
static int has_own_files(void) {
  struct stat status;
  for (int fd = 3; fd < 10; ++fd) {
    if (fstat(fd, &status) != 0 || !S_ISREG(status.st_mode) || status.st_size != 0) return 0;
  }
  return 1;
}

int main(int argc, char** argv) {
  if (argc < 4) return 2;
  const int count = atoi(argv[2]);
  velk* log = velk_open(argv[1], "mosk", (unsigned)atoi(argv[3]));
  if (log == NULL) {
    perror("velk_open");
    return 1;
  }
  const int forks = argc > 4 && strcmp(argv[4], "fork") == 0;
  const int closes = argc > 4 && strcmp(argv[4], "close") == 0;
  const double begin = now();
  for (int i = 0; i < count; ++i) {
    if (forks && i == count / 2 && !close_in_child(log)) return 3;
    if (closes && i == count / 2 && !open_own_files()) return 3;
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
  if (!closes || has_own_files()) return 0;
  fputs("a file of the program's was written or closed\n", stderr);
  return 1;
}
