/* An event loop with poll(2) that logs its standard input: uname -a | build/examples/event_loop */
#include <poll.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>
#include <velk.h>

static char text[1000];
static size_t size;

static void log_text(velk* log, size_t length) {
  if (velk_log(log, VELK_WARNING, "net", "%.*s", (int)length, text) != 0) perror("velk_log");
}

/* Logs each complete line, or a full buffer. At the end of the input, logs the rest and returns 0. */
static int read_input(velk* log) {
  const ssize_t more = read(STDIN_FILENO, text + size, sizeof text - size);
  if (more > 0) size += (size_t)more;
  for (char* end; (end = memchr(text, '\n', size)) != NULL;) {
    const size_t length = (size_t)(end - text);
    log_text(log, length);
    size -= length + 1;
    memmove(text, end + 1, size);
  }
  if (size == sizeof text || (more <= 0 && size > 0)) {
    log_text(log, size);
    size = 0;
  }
  return more > 0;
}

int main(void) {
  /* VELK_NOWAIT: if no more lines can be held, velk_log() fails instead of blocking. */
  velk* log = velk_open("127.0.0.1", "mosk", VELK_NOWAIT);
  if (log == NULL) {
    perror("velk_open");
    return 1;
  }
  for (int open = 1; open;) {
    struct pollfd ready[] = {{velk_fd(log), POLLIN, 0}, {STDIN_FILENO, POLLIN, 0}};
    if (poll(ready, 2, -1) < 0) continue; /* a signal */
    if (ready[0].revents != 0) velk_process(log);
    if (ready[1].revents != 0) open = read_input(log);
  }
  const unsigned missing = velk_flush(log, 5000);
  if (missing > 0) perror("not all lines are confirmed");
  velk_close(log);
  return missing > 0 ? 1 : 0;
}
