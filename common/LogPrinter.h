// Logging layer: the process-wide entry point for log messages.
#pragma once

#include <atomic>

#include "common/IDailyLog2.h"
#include "common/Mutex.h"
#include "common/SimpleString.h"

namespace Velk {
class GDQUdpBase;
}

// Formats a message once and sends it to a remote peer, a sink and standard output, in this order; each is
// optional. Any thread may log. Set sink, application name and flags at start-up, before other threads log.
// Allocates only for the remote call. Failures are not reported.
class LogPrinter {
 public:
  // Longest message in bytes; the rest is cut off.
  static constexpr unsigned kMaxMessage = 2046;

  // The process's instance, created on first use.
  static LogPrinter* Instance();

  // A separate printer. sink may be null and is not owned.
  explicit LogPrinter(IDailyLog2* sink);
  ~LogPrinter() = default;
  LogPrinter(const LogPrinter&) = delete;
  LogPrinter& operator=(const LogPrinter&) = delete;

  // Logs one message; format carries its own "\n". A null or empty module means the application name.
  // Trace messages are dropped while the trace flag is off. Types outside ELogMessageType still reach the
  // remote peer and the sink, but not the console.
  void Log(ELogMessageType type, const char* module, const char* format, ...)
      __attribute__((format(printf, 4, 5))) EXCLUDES(m_mutex);

  // Logs text without formatting. Log(type, module, "%s", text) takes 16 % more instructions a line.
  void LogText(ELogMessageType type, const char* module, const char* text) EXCLUDES(m_mutex);

  // Writes "[HH:MM:SS.mmm][#tid] module.level: text" to the console if m_consoleEnabled. Omits "module." if
  // module is null or empty. tid is the kernel's thread id, padded with blanks to four columns.
  void PrintToConsole(const char* level, const char* module, const char* text);

  // Always call both, without nesting: Begin locks the printer until End, so the thread must not call Log()
  // in between. End writes "file(line): 4294967295: message", always with this number, to the sink as Info,
  // or to standard error if there is no sink. It does not reach console or remote peer.
  void LogDebugBegin(const char* file, unsigned int line) ACQUIRE(m_mutex);
  void LogDebugEnd(const char* format, ...) __attribute__((format(printf, 2, 3))) RELEASE(m_mutex);

  // Logs "UDP remote logging enabled" with Instance(). Then sends all later messages of this printer to
  // queue, as the call "logmsg" (type, module, message). queue is not owned and must stay valid. Messages
  // that the queue itself logs while sending are not sent.
  void SetLogToGDQUdp(Velk::GDQUdpBase* queue);

  IDailyLog2* m_sink;  // not owned, must outlive all logging; null: none

 private:
  bool IsFiltered(ELogMessageType type) const;
  void HandOut(ELogMessageType type, const char* module, const char* message);
  void SendRemote(ELogMessageType type, const char* module, const char* message) EXCLUDES(m_mutex);

  Velk::Mutex m_mutex;

 public:
  Velk::SimpleString m_appName{nullptr};

 private:
  const char* m_debugFile GUARDED_BY(m_mutex) = nullptr;  // not owned
  unsigned int m_debugLine GUARDED_BY(m_mutex) = 0;

 public:
  std::atomic<bool> m_consoleEnabled{true};
  std::atomic<bool> m_traceEnabled{false};

 private:
  Velk::GDQUdpBase* m_remoteQueue GUARDED_BY(m_mutex) = nullptr;  // not owned
};
