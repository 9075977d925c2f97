// Foundation layer: the few C++ run-time functions that the compiler calls, so that no libstdc++ is needed.
// Linked into the executables and into libvelk, which hides the names. Not part of common/: a program that
// embeds common/ has its own run-time.
#include <errno.h>
#include <poll.h>
#include <pthread.h>
#include <stdlib.h>
#include <string.h>
#include <sys/uio.h>
#include <unistd.h>

#include <cstddef>
#include <new>

namespace {

[[noreturn]] void EndProcess(const char* why) {
  char* const name = program_invocation_short_name;
  const iovec pieces[] = {{name, strlen(name)}, {const_cast<char*>(why), strlen(why)}};
  // If standard error is full, the message is lost: blocking here would delay the next child.
  pollfd errors{STDERR_FILENO, POLLOUT, 0};
  if (poll(&errors, 1, 0) > 0 && writev(STDERR_FILENO, pieces, 2) < 0) _exit(1);
  _exit(1);
}

pthread_mutex_t s_guardMutex = PTHREAD_MUTEX_INITIALIZER;
pthread_cond_t s_guardDone = PTHREAD_COND_INITIALIZER;

// Guard object of a function-local static (Itanium C++ ABI, 3.3.2). Byte 0 is non-zero once the object is
// built; the compiler's inline code reads it. Byte 1 is ours: non-zero while a thread builds the object.
struct Guard {
  unsigned char built;
  unsigned char building;
};

}  // namespace

// Out of memory ends the process; the supervisor restarts the child.
void* operator new(size_t size) {
  void* block = malloc(size != 0 ? size : 1);
  if (block == nullptr) EndProcess(": out of memory\n");
  return block;
}

void* operator new[](size_t size) {
  return operator new(size);
}
void* operator new(size_t size, const std::nothrow_t&) noexcept {
  return malloc(size);
}
void operator delete(void* block) noexcept {
  free(block);
}
void operator delete[](void* block) noexcept {
  free(block);
}
void operator delete(void* block, size_t) noexcept {
  free(block);
}
void operator delete[](void* block, size_t) noexcept {
  free(block);
}

extern "C" {

[[noreturn]] void __cxa_pure_virtual() {
  EndProcess(": pure virtual call\n");
}

int __cxa_guard_acquire(Guard* guard) {
  if (__atomic_load_n(&guard->built, __ATOMIC_ACQUIRE) != 0) return 0;
  pthread_mutex_lock(&s_guardMutex);
  while (guard->building != 0) pthread_cond_wait(&s_guardDone, &s_guardMutex);
  const int mustBuild = guard->built == 0;
  if (mustBuild != 0) guard->building = 1;
  pthread_mutex_unlock(&s_guardMutex);
  return mustBuild;
}

void __cxa_guard_release(Guard* guard) {
  pthread_mutex_lock(&s_guardMutex);
  __atomic_store_n(&guard->built, static_cast<unsigned char>(1), __ATOMIC_RELEASE);
  guard->building = 0;
  pthread_cond_broadcast(&s_guardDone);
  pthread_mutex_unlock(&s_guardMutex);
}

}  // extern "C"
