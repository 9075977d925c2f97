#include "app/MonitorChild.h"

#include <errno.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include "common/LogPrinter.h"

namespace {

// Ties the child's life to the supervisor's: an orphan would hold the port against the next supervisor.
void FollowSupervisor(pid_t supervisor) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  // It may have gone before the request was made. 0: it is outside of this process's namespace.
  const pid_t parent = getppid();
  if (parent != supervisor && parent != 0) _exit(1);
}

// Shared with the children: the present one has served a peer. Null: can't be told.
volatile bool* s_hasServed = nullptr;

// A child that can't serve, as with the port taken, no memory for a thread or a call that a filter ends it
// for, would be started some thousand times a second. One that was killed is no such child, whenever that
// was.
bool HasEndedByItself(int status) {
  if (WIFEXITED(status)) return true;
  const int signals[] = {SIGABRT, SIGSEGV, SIGBUS, SIGILL, SIGFPE, SIGSYS};
  for (const int number : signals) {
    if (WTERMSIG(status) == number) return true;
  }
  return false;
}

// Pauses before the next child: 10 ms, doubled for each child in a row that did not serve, up to a second.
class Pace {
 public:
  void Wait(int status) {
    if (s_hasServed == nullptr || *s_hasServed || !HasEndedByItself(status)) {
      m_pauseMs = kFirstMs;
      return;
    }
    usleep(m_pauseMs * 1000);
    m_pauseMs = m_pauseMs * 2 < kMostMs ? m_pauseMs * 2 : kMostMs;
  }

 private:
  static constexpr unsigned kFirstMs = 10;
  static constexpr unsigned kMostMs = 1000;
  unsigned m_pauseMs = kFirstMs;
};

pid_t WaitFor(pid_t child, int* status) {
  pid_t ended;
  do {
    ended = waitpid(child, status, 0);
  } while (ended < 0 && errno == EINTR);
  return ended;
}

}  // namespace

void ReportServing() {
  if (s_hasServed != nullptr) *s_hasServed = true;
}

bool MonitorChild() {
  LogPrinter* const log = LogPrinter::Instance();
  const pid_t self = getpid();
  // Start scripts may leave it ignored; the children would vanish then, and waitpid(2) fail.
  signal(SIGCHLD, SIG_DFL);
  void* const page =
      mmap(nullptr, sizeof *s_hasServed, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
  if (page != MAP_FAILED) s_hasServed = static_cast<bool*>(page);
  Pace pace;
  for (;;) {
    if (s_hasServed != nullptr) *s_hasServed = false;
    log->Log(Info, nullptr, "Start child...\n");
    const pid_t child = fork();
    if (child < 0) {
      log->Log(Error, nullptr, "fork() failed!\n");
      return false;
    }
    if (child == 0) {
      FollowSupervisor(self);
      log->Log(Info, nullptr, "Child process...\n");
      return true;
    }
    log->Log(Info, nullptr, "Wait for child %d...\n", child);
    int status = 0;
    const pid_t ended = WaitFor(child, &status);
    if (ended != child) {
      log->Log(Error, nullptr, "Waitpid returned %d instead of %d! Exiting...\n", ended, child);
      exit(1);
    }
    // The raw status word: programs that watch the console on devices compare it.
    log->Log(Info, nullptr, "Child exited with code %d, restarting...\n", status);
    pace.Wait(status);
  }
}
