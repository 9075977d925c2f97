// Client layer: the C interface.
#include "client/velk.h"

#include <errno.h>
#include <stdio.h>
#include <stdlib.h>

#include <new>

#include "client/ClientThread.h"
#include "client/GDQUdpClient.h"
#include "common/LogPrinter.h"
#include "common/ServiceNames.h"

using Velk::GDQUdpClient;

struct velk {
  GDQUdpClient client;
  Velk::ClientThread thread;  // destroyed before the client, which it uses
};

velk* velk_open(const char* server, const char* password, unsigned flags) {
  constexpr unsigned kFlags = VELK_THREAD | VELK_NOWAIT | VELK_ONCE;
  if ((flags & ~kFlags) != 0) {
    errno = EINVAL;
    return nullptr;
  }
  // Standard output belongs to the program; we report errors through errno only.
  LogPrinter::Instance()->m_consoleEnabled = false;
  void* const memory = malloc(sizeof(velk));
  if (memory == nullptr) return nullptr;
  velk* const log = new (memory) velk;
  GDQUdpClient::Options options;
  options.reliable = (flags & VELK_ONCE) == 0;
  if ((flags & VELK_NOWAIT) != 0) options.waitMs = 0;
  if (log->client.Open(server != nullptr ? server : Velk::kServiceHere, password, options) &&
      ((flags & VELK_THREAD) == 0 || log->thread.Start(&log->client)))
    return log;
  const int why = errno;
  velk_close(log);
  errno = why;
  return nullptr;
}

int velk_log(velk* log, int type, const char* module, const char* format, ...) {
  va_list args;
  va_start(args, format);
  const int result = velk_vlog(log, type, module, format, args);
  va_end(args);
  return result;
}

int velk_vlog(velk* log, int type, const char* module, const char* format, va_list args) {
  if (type < VELK_TRACE || type > VELK_ERROR) {
    errno = EINVAL;
    return -1;
  }
  char text[1024];
  va_list again;
  va_copy(again, args);
  const int length = vsnprintf(text, sizeof text, format, args);
  char* longText = nullptr;
  if (length >= static_cast<int>(sizeof text)) {
    const size_t size = static_cast<size_t>(length) + 1;
    longText = static_cast<char*>(malloc(size));
    if (longText != nullptr) vsnprintf(longText, size, format, again);
  }
  va_end(again);
  if (length < 0) {
    errno = EINVAL;
    return -1;
  }
  if (length >= static_cast<int>(sizeof text) && longText == nullptr) return -1;
  const bool isHeld =
      log->client.Log(static_cast<ELogMessageType>(type), module, longText != nullptr ? longText : text);
  free(longText);
  return isHeld ? 0 : -1;
}

unsigned velk_flush(velk* log, unsigned timeout_ms) {
  // A forked child must get EPERM; the switch below would make it ENOTCONN.
  errno = 0;
  if (log->client.Descriptor() < 0 && errno == EPERM) return 1;
  const unsigned left = log->client.Flush(timeout_ms);
  if (left == 0) return 0;
  switch (log->client.GetStatus().state) {
    case GDQUdpClient::State::Joined:
      errno = ETIMEDOUT;
      break;
    case GDQUdpClient::State::Unanswered:
      errno = EACCES;
      break;
    case GDQUdpClient::State::NotJoined:
      errno = ENOTCONN;
      break;
  }
  return left;
}

int velk_fd(velk* log) {
  return log->client.Descriptor();
}

void velk_process(velk* log) {
  log->client.Process();
}

void velk_close(velk* log) {
  if (log == nullptr) return;
  log->~velk();
  free(log);
}
