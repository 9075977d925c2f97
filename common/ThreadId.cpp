#include "common/ThreadId.h"

#include <pthread.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace Velk {
namespace {

thread_local long t_id = 0;  // 0: not asked yet

// The only thread of a forked child carries its parent's cache.
void ForgetId() {
  t_id = 0;
}

long AskKernel() {
  static const int registered = pthread_atfork(nullptr, nullptr, ForgetId);
  const long id = syscall(SYS_gettid);
  if (registered == 0) t_id = id;  // without the handler a cached id would outlive a fork
  return id;
}

}  // namespace

long ThreadId() {
  return t_id != 0 ? t_id : AskKernel();
}

}  // namespace Velk
