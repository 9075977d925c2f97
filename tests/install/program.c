/* Uses the installed libvelk, as C99 and as C++. No service runs: the line is held, and errno says why. */
#include <errno.h>
#include <stdio.h>
#include <velk.h>

#ifdef __cplusplus
#include <string>
static std::string text() {
  return std::string(100, 'x');
} /* has its own operator new beside the library's */
#define TEXT text().c_str()
#else
#define TEXT "x"
#endif

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
  if (velk_log(log, VELK_ERROR + 1, "test", "x") != -1 || errno != EINVAL) return 1;
  velk_close(log);
  if (velk_open(":", "password", 0) != NULL || errno != EINVAL) return 1;
  return 0;
}
