/* Writes log lines into the log service from C or C++. Link with -lvelk; manual page: velk(3).
 *
 *   velk *log = velk_open("127.0.0.1", "password", VELK_THREAD);
 *   if (log == NULL) perror("velk_open");
 *   velk_log(log, VELK_WARNING, "net", "link %s down", name);
 *   if (velk_flush(log, 5000) > 0) perror("not all lines are confirmed");
 *   velk_close(log);
 *
 * A line is sent again until the service is known to have logged it, through losses and restarts of the
 * service; it can appear twice. Up to 2048 lines (512 KiB) are held for that.
 *
 * Any thread may use a handle, but for opening and closing it. A child process after fork(2) may go on using
 * it: it joins the service on its own, and lines of before the fork stay with the parent.
 */
#ifndef VELK_H
#define VELK_H

#include <stdarg.h>

#if defined(__GNUC__)
#define VELK_PRINTF(text, values) __attribute__((__format__(__printf__, text, values)))
#define VELK_API __attribute__((__visibility__("default")))
#else
#define VELK_PRINTF(text, values)
#define VELK_API
#endif

#ifdef __cplusplus
extern "C" {
#endif

typedef struct velk velk; /* opaque */

/* Types of lines. The service drops trace lines unless it runs with "debug". */
enum { VELK_TRACE = 0, VELK_INFO = 1, VELK_WARNING = 2, VELK_ERROR = 3 };

/* Flags of velk_open(). */
enum {
  VELK_THREAD = 1, /* does the waiting and resending on a thread of the library's own */
  VELK_NOWAIT = 2, /* velk_log() fails with EAGAIN instead of waiting when no more lines can be held */
  VELK_ONCE = 4    /* sends each line once, without receipts: faster, and lost lines stay lost */
};

/* Starts to join the service at "host" or "host:port" (NULL: this machine), which may come up later. Returns
 * NULL with errno on failure: EINVAL the port is no number from 1 to 65535, EHOSTUNREACH the name does not
 * resolve, ENOMEM, EMFILE and the like. */
VELK_API velk* velk_open(const char* server, const char* password, unsigned flags);

/* Logs one line; "\n" is added where the text has none. module NULL or "" stands for the service's own name.
 * Lines that are too long for a datagram become several. Returns 0, or -1 with errno: EAGAIN (see
 * VELK_NOWAIT), EMSGSIZE the module is too long, EINVAL the type or the format is not valid, ENOMEM. */
VELK_API int velk_log(velk* log, int type, const char* module, const char* format, ...) VELK_PRINTF(4, 5);
VELK_API int velk_vlog(velk* log, int type, const char* module, const char* format, va_list args)
    VELK_PRINTF(4, 0);

/* Waits until every line is confirmed (with VELK_ONCE: sent), at most timeout_ms milliseconds. Returns how
 * many are not; they are still tried. errno then says why: ETIMEDOUT the service is there, ENOTCONN nobody
 * answers, EACCES the service refuses us, most likely the password is wrong. */
VELK_API unsigned velk_flush(velk* log, unsigned timeout_ms);

/* For event loops, instead of VELK_THREAD: call velk_process() whenever the descriptor is readable. It never
 * waits. After fork() the child has another descriptor. */
VELK_API int velk_fd(velk* log);
VELK_API void velk_process(velk* log);

/* Leaves the service and frees the handle; NULL is allowed. Lines that are not confirmed are given up. */
VELK_API void velk_close(velk* log);

#ifdef __cplusplus
}
#endif

#endif
