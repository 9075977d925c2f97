/* Makes each allocation of libvelk fail in turn: the call must return an error, and the program go on. */
#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <velk.h>

void* __libc_malloc(size_t size);

static int until_failure = -1; /* allocations before the one that fails; -1: none fails */

void* malloc(size_t size) {
  if (until_failure < 0 || until_failure-- > 0) return __libc_malloc(size);
  errno = ENOMEM;
  return NULL;
}

/* Logs while allocation `at` fails. Returns 1 on ENOMEM, 0 if there was no such allocation, -1 otherwise. */
static int with_failure(int at) {
  until_failure = at;
  velk* log = velk_open("127.0.0.1:9", "password", VELK_NOWAIT);
  int result = log != NULL ? velk_log(log, VELK_INFO, "test", "%2000d", 1) : -1;
  if (result != 0) result = errno == ENOMEM && until_failure < 0 ? 1 : -1;
  if (result == 0 && until_failure < 0) result = -1; /* a failure was not reported */
  until_failure = -1;
  velk_close(log);
  return result;
}

int main(void) {
  int count = 0;
  int result;
  while ((result = with_failure(count)) == 1) ++count;
  printf("  %d allocations failed\n", count);
  return result != 0 || count == 0;
}
