// Puts a pipe, a terminal or a socket in the place of standard output while it lives.
#pragma once

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <termios.h>

#include "tests/unit/Test.h"

class StdoutPipe {
 public:
  enum Kind { kPipe, kTerminal, kSocket };

  explicit StdoutPipe(Kind kind = kPipe) {
    int ends[2];
    if (!Open(kind, ends)) abort();
    fflush(stdout);  // what the test runner has printed
    m_reader = ends[0];
    m_saved = dup(STDOUT_FILENO);
    dup2(ends[1], STDOUT_FILENO);
    close(ends[1]);
  }

  ~StdoutPipe() {
    dup2(m_saved, STDOUT_FILENO);
    close(m_saved);
    close(m_reader);
  }

  // What has arrived so far.
  std::string Read() {
    std::string all;
    char buffer[65536];
    pollfd in{m_reader, POLLIN, 0};
    while (poll(&in, 1, 0) > 0) {
      const ssize_t got = read(m_reader, buffer, sizeof buffer);
      if (got <= 0) break;
      all.append(buffer, static_cast<size_t>(got));
    }
    return all;
  }

  // Lets nothing more in until Resume, as if the reader did not read.
  void Stop() {
    if (isatty(STDOUT_FILENO) != 0) {
      tcflow(STDOUT_FILENO, TCOOFF);  // one that is full may get room again without a reader
      return;
    }
    const int flags = fcntl(STDOUT_FILENO, F_GETFL);
    fcntl(STDOUT_FILENO, F_SETFL, flags | O_NONBLOCK);
    while (write(STDOUT_FILENO, "#", 1) == 1) continue;
    fcntl(STDOUT_FILENO, F_SETFL, flags);
  }

  void Resume() {
    if (isatty(STDOUT_FILENO) != 0)
      tcflow(STDOUT_FILENO, TCOON);
    else
      Read();
  }

 private:
  static bool Open(Kind kind, int (&ends)[2]) {
    if (kind == kPipe) return pipe2(ends, O_CLOEXEC) == 0;
    if (kind == kSocket) return socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) == 0;
    ends[0] = posix_openpt(O_RDWR | O_NOCTTY | O_CLOEXEC);
    if (grantpt(ends[0]) != 0 || unlockpt(ends[0]) != 0) return false;
    ends[1] = open(ptsname(ends[0]), O_RDWR | O_NOCTTY | O_CLOEXEC);
    termios raw;
    if (tcgetattr(ends[1], &raw) != 0) return false;
    cfmakeraw(&raw);
    return tcsetattr(ends[1], TCSANOW, &raw) == 0;
  }

  int m_reader;
  int m_saved;
};
