// Preloaded into the service: makes all calls of a function fail, or only the k-th, counted over all
// processes.
#define _GNU_SOURCE
#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <pthread.h>
#include <stdarg.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

// Mapped from the file that FAIL_FILE names, which the test writes and reads.
static struct {
  unsigned at;  // which call fails, from 1; 0: every call
  int number;   // errno if at is 0
  unsigned count;
  char function[32];
} * shared;

__attribute__((constructor)) static void start(void) {
  const int file = open(getenv("FAIL_FILE"), O_RDWR);
  void* const map = mmap(NULL, sizeof *shared, PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
  close(file);
  if (map == MAP_FAILED) abort();
  shared = map;
}

static int fails(const char* function, int number) {
  if (shared == NULL || strcmp(shared->function, function) != 0) return 0;
  const unsigned count = __atomic_add_fetch(&shared->count, 1, __ATOMIC_RELAXED);
  if (shared->at != 0 && count != shared->at) return 0;
  errno = shared->at != 0 ? number : shared->number;
  return 1;
}

#define LET_FAIL(result, name, parameters, arguments, failure, number) \
  result name parameters {                                             \
    if (fails(#name, number)) return failure;                          \
    result(*real) parameters = dlsym(RTLD_NEXT, #name);                \
    return real arguments;                                             \
  }

LET_FAIL(int, recvmmsg, (int s, struct mmsghdr* h, unsigned n, int f, struct timespec* t), (s, h, n, f, t),
         -1, ENOMEM)
LET_FAIL(ssize_t, sendto, (int s, const void* b, size_t n, int f, const struct sockaddr* a, socklen_t l),
         (s, b, n, f, a, l), -1, ENOBUFS)
LET_FAIL(ssize_t, write, (int f, const void* b, size_t n), (f, b, n), -1, EIO)
LET_FAIL(ssize_t, pwrite64, (int f, const void* b, size_t n, off_t o), (f, b, n, o), -1, ENOSPC)
LET_FAIL(int, mkostemp64, (char* p, int f), (p, f), -1, EMFILE)
LET_FAIL(int, rename, (const char* o, const char* n), (o, n), -1, EIO)
LET_FAIL(FILE*, fdopen, (int f, const char* m), (f, m), NULL, ENOMEM)
LET_FAIL(FILE*, open_memstream, (char** b, size_t* n), (b, n), NULL, ENOMEM)
LET_FAIL(int, socket, (int d, int t, int p), (d, t, p), -1, EMFILE)
LET_FAIL(int, bind, (int s, const struct sockaddr* a, socklen_t l), (s, a, l), -1, EADDRINUSE)
LET_FAIL(pid_t, fork, (void), (), -1, EAGAIN)
LET_FAIL(pid_t, waitpid, (pid_t p, int* s, int o), (p, s, o), -1, ECHILD)
LET_FAIL(int, pthread_create, (pthread_t * t, const pthread_attr_t* a, void* (*f)(void*), void* p),
         (t, a, f, p), EAGAIN, 0)

int open64(const char* path, int flags, ...) {
  if (fails("open64", EMFILE)) return -1;
  va_list more;
  va_start(more, flags);
  const mode_t mode = va_arg(more, mode_t);  // garbage if there is none, but then unused
  va_end(more);
  return open(path, flags, mode);
}

// For malloc, calloc and realloc, which all count as malloc. No dlsym(3) here: it may allocate memory.
#define LET_FAIL_MEMORY(name, parameters, arguments)                 \
  void* __libc_##name parameters;                                    \
  void* name parameters {                                            \
    return fails("malloc", ENOMEM) ? NULL : __libc_##name arguments; \
  }

LET_FAIL_MEMORY(malloc, (size_t size), (size))
LET_FAIL_MEMORY(calloc, (size_t count, size_t size), (count, size))
LET_FAIL_MEMORY(realloc, (void* block, size_t size), (block, size))
