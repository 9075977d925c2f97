/* Uses libvelk, as C99 and as C++. No service runs: the line is held, and errno says why. */
#ifndef _POSIX_C_SOURCE
#define _POSIX_C_SOURCE 200809L
#endif
#include <errno.h>
#include <stdio.h>
#include <sys/wait.h>
#include <unistd.h>
#include <velk.h>

#ifdef __cplusplus
#include <string>
/* Uses the program's operator new, not the one in libvelk. */
static std::string text() {
  return std::string(100, 'x');
}
#define TEXT text().c_str()
#else
#define TEXT "x"
#endif

/* In a forked child velk_log() and velk_flush() must fail. */
static int is_refused_in_child(velk* log) {
  int status = -1;
  const pid_t child = fork();
  if (child == 0) {
    const int refused = velk_log(log, VELK_INFO, "test", "x") == -1 && velk_flush(log, 100) != 0;
    _exit(refused && errno == EPERM ? 0 : 1);
  }
  return child > 0 && waitpid(child, &status, 0) == child && status == 0;
}

int main(void) {
  velk* log = velk_open("127.0.0.1:9", "password", VELK_NOWAIT | VELK_THREAD);
  if (log == NULL) {
    perror("velk_open");
    return 1;
  }
  if (velk_log(log, VELK_INFO, "test", "%s", TEXT) != 0 || velk_flush(log, 100) != 1 || errno != ENOTCONN) {
    perror("velk_log or velk_flush");
    return 1;
  }
  if (!is_refused_in_child(log)) {
    fputs("a forked child can use the handle\n", stderr);
    return 1;
  }
  if (velk_flush(log, 0) != 1 || errno != ENOTCONN) return 1; /* the parent still holds its line */
  if (velk_log(log, VELK_ERROR + 1, "test", "x") != -1 || errno != EINVAL) return 1;
  velk_close(log);
  if (velk_open(":", "password", 0) != NULL || errno != EINVAL) return 1;
  errno = 0;
  if (velk_open("127.0.0.1:9", "password", 8) != NULL || errno != EINVAL) return 1; /* no such flag */
  return 0;
}
