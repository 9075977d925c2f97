#include "common/ThreadId.h"

#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace Velk {
namespace {

thread_local long t_id = 0;  // 0: not known yet

// A forked child inherits the cached id of its parent's thread.
void ForgetId() {
  t_id = 0;
}

long AskKernel() {
  static const int error = pthread_atfork(nullptr, nullptr, ForgetId);
  const long id = syscall(SYS_gettid);
  if (error == 0) t_id = id;  // without the handler a child would keep its parent's id
  return id;
}

}  // namespace

long ThreadId() {
  return t_id != 0 ? t_id : AskKernel();
}

}  // namespace Velk
