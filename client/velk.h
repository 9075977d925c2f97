/* Writes log lines into the log service from C or C++. Link with -lvelk; manual page: velk(3).
 *
 *   velk *log = velk_open("127.0.0.1", "password", VELK_THREAD);
 *   if (log == NULL) perror("velk_open");
 *   velk_log(log, VELK_WARNING, "net", "link %s down", name);
 *   if (velk_flush(log, 5000) > 0) perror("not all lines are confirmed");
 *   velk_close(log);
 *
 * A line is held, and sent again, until the service says that it has logged it, through losses and restarts
 * of the service; only a restart can make it appear twice. Up to 2048 lines (512 KiB) are held.
 *
 * Any thread may use a handle, but for opening and closing it. A child process after fork(2) opens a handle
 * of its own: with its parent's, velk_log() and velk_flush() fail with EPERM, and velk_close() only frees it.
 * A program that closes descriptors it does not know, as daemons do, opens its handle after that; see
 * velk(3).
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
  VELK_ONCE = 4    /* sends each line once and waits for no answer: lost lines stay lost */
};

/* Starts to join the service at "host" or "host:port" (NULL: this machine), which may come up later. Returns
 * NULL with errno on failure: EINVAL the port is no number from 1 to 65535, or there are other flags than
 * these, EHOSTUNREACH the name does not resolve, ENOMEM, EMFILE and the like. */
VELK_API velk* velk_open(const char* server, const char* password, unsigned flags);

/* Logs one line; "\n" is added where the text has none. module NULL or "" means the service's own name.
 * Lines that are too long for a datagram become several. Returns 0, or -1 with errno: EAGAIN (see
 * VELK_NOWAIT), EMSGSIZE the module is too long, EINVAL the type or the format is not valid, ENOMEM, EPERM in
 * a child of the process that opened it. */
VELK_API int velk_log(velk* log, int type, const char* module, const char* format, ...) VELK_PRINTF(4, 5);
VELK_API int velk_vlog(velk* log, int type, const char* module, const char* format, va_list args)
    VELK_PRINTF(4, 0);

/* Waits until every line is confirmed (with VELK_ONCE: sent), at most timeout_ms milliseconds. Returns how
 * many are not. errno then says why: ETIMEDOUT the service is there, ENOTCONN it does not answer, EACCES it
 * answers but confirms nothing: the password is wrong, or it is blocked, or too old. Lines are still tried,
 * but for those sent once to a service that has never confirmed any. EPERM (and 1): see velk_log(). */
VELK_API unsigned velk_flush(velk* log, unsigned timeout_ms);

/* For event loops, instead of VELK_THREAD: call velk_process() whenever the descriptor is readable. It never
 * waits. In a child after fork() there is no descriptor (-1) and nothing to do. */
VELK_API int velk_fd(velk* log);
VELK_API void velk_process(velk* log);

/* Leaves the service and frees the handle; NULL is allowed. Lines that are not confirmed are given up. In a
 * child after fork() it only frees: the parent stays joined, and its lines are still tried. */
VELK_API void velk_close(velk* log);

#ifdef __cplusplus
}
#endif

#endif
