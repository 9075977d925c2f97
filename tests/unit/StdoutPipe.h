// Puts a pipe in the place of standard output while it lives.
#pragma once

#include <fcntl.h>
#include <poll.h>

#include "tests/unit/Test.h"

class StdoutPipe {
 public:
  StdoutPipe() {
    int ends[2];
    if (pipe2(ends, O_CLOEXEC) != 0) abort();
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

  // What has arrived so far, but not more than most.
  std::string Read(size_t most = SIZE_MAX) {
    std::string all;
    char buffer[65536];
    pollfd in{m_reader, POLLIN, 0};
    while (all.size() < most && poll(&in, 1, 0) > 0) {
      const ssize_t got = read(m_reader, buffer, std::min(sizeof buffer, most - all.size()));
      if (got <= 0) break;
      all.append(buffer, static_cast<size_t>(got));
    }
    return all;
  }

  // Writes until the pipe takes no more, as if its reader stood still. Returns the number of bytes.
  static size_t Fill() {
    const int flags = fcntl(STDOUT_FILENO, F_GETFL);
    fcntl(STDOUT_FILENO, F_SETFL, flags | O_NONBLOCK);
    size_t filled = 0;
    while (write(STDOUT_FILENO, "#", 1) == 1) ++filled;
    fcntl(STDOUT_FILENO, F_SETFL, flags);
    return filled;
  }

 private:
  int m_reader;
  int m_saved;
};
