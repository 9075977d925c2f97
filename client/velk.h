/* Writes log lines into the log service from C or C++. Link with -lvelk; manual page: velk(3).
 *
 *   velk *log = velk_open("127.0.0.1", "password", VELK_THREAD);
 *   if (log == NULL) perror("velk_open");
 *   velk_log(log, VELK_WARNING, "net", "link %s down", name);
 *   if (velk_flush(log, 5000) > 0) perror("not all lines are confirmed");
 *   velk_close(log);
 *
 * A line is held and retransmitted until the service confirms that it has logged it. Lines survive lost
 * datagrams and restarts of the service. A restart or a blocked service can make a line appear twice. Up to
 * 2048 lines (512 KiB) are held.
 *
 * Any thread may use a handle, but no call may overlap velk_close(). After fork(2) the child must open its
 * own handle: with its parent's, velk_log() and velk_flush() fail with EPERM, and velk_close() only frees it.
 * A program that closes all descriptors, as daemons do, should open its handle after that; see velk(3).
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
  VELK_THREAD = 1, /* receives and retransmits on the library's own thread */
  VELK_NOWAIT = 2, /* velk_log() fails with EAGAIN instead of blocking when no more lines can be held */
  VELK_ONCE = 4    /* sends each line once and never retransmits: lost lines stay lost */
};

/* Starts to join the service at "host" or "host:port" (NULL: this machine). The service may come up later.
 * Returns NULL with errno on failure: EINVAL the port is not a number from 1 to 65535, or a flag is unknown,
 * EHOSTUNREACH the name does not resolve, ENOMEM, EMFILE and the like. */
VELK_API velk* velk_open(const char* server, const char* password, unsigned flags);

/* Logs one line and adds "\n" if it does not end with one. module NULL or "" means the service's own name. A
 * line that does not fit a datagram is split. Returns 0, or -1 with errno: EAGAIN see VELK_NOWAIT, EMSGSIZE
 * the module is too long, EINVAL invalid type or format, ENOMEM, EPERM in a forked child. */
VELK_API int velk_log(velk* log, int type, const char* module, const char* format, ...) VELK_PRINTF(4, 5);
VELK_API int velk_vlog(velk* log, int type, const char* module, const char* format, va_list args)
    VELK_PRINTF(4, 0);

/* Waits until every line is confirmed (with VELK_ONCE: sent), but at most timeout_ms milliseconds. Returns
 * the number of lines left, with errno: ETIMEDOUT the service needs more time, ENOTCONN it does not answer,
 * EACCES it confirms nothing: the password is wrong, or the service is blocked or too old. The library keeps
 * retransmitting the lines that it holds. If a service answers but does not confirm the first line within
 * about 4 s, each line is sent only once, until the service answers a test call. The number returned includes
 * the lines sent only once since the last velk_flush(). In a forked child returns 1 with EPERM. */
VELK_API unsigned velk_flush(velk* log, unsigned timeout_ms);

/* For event loops, instead of VELK_THREAD: call velk_process() whenever velk_fd() is readable. It never
 * blocks. In a forked child velk_fd() returns -1 and velk_process() does nothing. */
VELK_API int velk_fd(velk* log);
VELK_API void velk_process(velk* log);

/* Leaves the service, drops unconfirmed lines and frees the handle. NULL is allowed. In a forked child it
 * only frees the child's copy; the parent's handle is not affected. */
VELK_API void velk_close(velk* log);

#ifdef __cplusplus
}
#endif

#endif
