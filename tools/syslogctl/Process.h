// Tool layer: what /proc says of the service's processes. No state.
#pragma once

#include <sys/types.h>
#include <time.h>

namespace Ctl {

struct Process {
  pid_t pid;
  pid_t parent;
  time_t start;
  bool hasHadChildren;  // that have ended
};

// See proc(5). False: there is none of that number, or it is hidden.
bool ReadProcess(pid_t pid, Process* process);

// The process that has a socket; for who may not see that, one of the service's name whose parent has it too.
// False: neither.
bool FindServing(unsigned long socketInode, Process* process);

// In KiB. pss is 0 where only root and the process's own user may see it. False: not even rss.
bool ReadMemory(pid_t pid, unsigned long* pss, unsigned long* rss);

}  // namespace Ctl
