// Replaces standard output with a pipe or a socket while it exists.
#pragma once

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>

#include "tests/unit/Test.h"

class StdoutPipe {
 public:
  explicit StdoutPipe(bool isSocket = false) {
    int ends[2];
    const int made =
        isSocket ? socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) : pipe2(ends, O_CLOEXEC);
    if (made != 0) abort();
    fflush(stdout);  // the test runner's output
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

  // Returns what has arrived so far.
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

 private:
  int m_reader;
  int m_saved;
};
