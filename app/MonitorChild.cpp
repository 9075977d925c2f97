#include "app/MonitorChild.h"

#include <errno.h>
#include <signal.h>
#include <stdlib.h>
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

pid_t WaitFor(pid_t child, int* status) {
  pid_t ended;
  do {
    ended = waitpid(child, status, 0);
  } while (ended < 0 && errno == EINTR);
  return ended;
}

}  // namespace

bool MonitorChild() {
  LogPrinter* const log = LogPrinter::Instance();
  const pid_t self = getpid();
  // Start scripts may leave it ignored; the children would vanish then, and waitpid(2) fail.
  signal(SIGCHLD, SIG_DFL);
  for (;;) {
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
  }
}
