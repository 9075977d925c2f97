// Tool layer: the service's processes, from /proc. No state.
#pragma once

#include <sys/types.h>
#include <time.h>

namespace Ctl {

struct Process {
  pid_t pid;
  pid_t parent;
  time_t start;
  bool hasLostChild;  // a child has ended
};

// See proc(5). False: no such process, or it is hidden.
bool ReadProcess(pid_t pid, Process* process);

// Finds the process that has the socket or, if the user may not see that, a process with the service's name
// whose parent has the same name. False: not found.
bool FindServing(unsigned long socketInode, Process* process);

// In KiB. pss is 0 unless we are root or the process's user. False: rss is not readable either.
bool ReadMemory(pid_t pid, unsigned long* pss, unsigned long* rss);

}  // namespace Ctl
