/* Makes each allocation of libvelk fail in turn: the caller must get an error, and the program go on. */
#include <errno.h>
#include <stdio.h>
#include <stdlib.h>
#include <velk.h>

void* __libc_malloc(size_t size);

static int until_failure = -1; /* -1: none fails */

void* malloc(size_t size) {
  if (until_failure < 0 || until_failure-- > 0) return __libc_malloc(size);
  errno = ENOMEM;
  return NULL;
}

/* Returns 1 if the call failed with ENOMEM, 0 if no allocation failed, -1 otherwise. */
static int with_failure(int at) {
  until_failure = at;
  velk* log = velk_open("127.0.0.1:9", "password", VELK_NOWAIT);
  int result = log != NULL ? velk_log(log, VELK_INFO, "test", "%2000d", 1) : -1;
  if (result != 0) result = errno == ENOMEM && until_failure < 0 ? 1 : -1;
  if (result == 0 && until_failure < 0) result = -1; /* one failed, and no one said so */
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
