// Logging layer: the process-wide front through which every message goes.
#pragma once

#include <atomic>

#include "common/IDailyLog2.h"
#include "common/Mutex.h"
#include "common/SimpleString.h"

namespace Velk {
class GDQUdpBase;
}

// Formats a message once and hands it to up to three outlets, in this order: a remote peer, a sink, standard
// output. Any thread may log. Sink, application name and flags are set at start-up, before other threads log.
// Nothing is allocated but the remote call's texts, and no outlet's failure is reported.
class LogPrinter {
 public:
  // Longest message kept, in characters; the rest is cut off.
  static constexpr unsigned kMaxMessage = 2046;

  // The one instance, built on first use.
  static LogPrinter* Instance();

  // A printer of its own, with no remote queue; sink may be null and is not owned.
  explicit LogPrinter(IDailyLog2* sink);
  ~LogPrinter() = default;
  LogPrinter(const LogPrinter&) = delete;
  LogPrinter& operator=(const LogPrinter&) = delete;

  // Logs one message; format carries its own "\n". A null or empty module means the application name.
  // Trace messages are dropped while the trace flag is off. Types outside ELogMessageType still reach the
  // remote peer and the sink, but not the console.
  void Log(ELogMessageType type, const char* module, const char* format, ...)
      __attribute__((format(printf, 4, 5))) EXCLUDES(m_mutex);

  // The same for text that is ready. Log(type, module, "%s", text) takes 16 % more instructions a line.
  void LogText(ELogMessageType type, const char* module, const char* text) EXCLUDES(m_mutex);

  // Writes one console line "[HH:MM:SS.mmm][# tid] module.level: text" (without "module." when that is null
  // or empty), unless the console is off. The thread id is the kernel's, padded to four places.
  void PrintToConsole(const char* level, const char* module, const char* text);

  // A pair that always goes together and never nests: Begin keeps the printer locked until End, so on the
  // same thread no Log may come between. End hands "file(line): 4294967295: message" to the sink as Info, or
  // to standard error where there is no sink. Neither console nor remote peer see it.
  void LogDebugBegin(const char* file, unsigned int line) ACQUIRE(m_mutex);
  void LogDebugEnd(const char* format, ...) __attribute__((format(printf, 2, 3))) RELEASE(m_mutex);

  // Sends every later message to queue too, as the call "logmsg" (type, module, message). The queue is not
  // owned and must stay alive; there is no way back. The notice "UDP remote logging enabled" goes out before.
  // What the queue itself logs while it sends stays here.
  void SetLogToGDQUdp(Velk::GDQUdpBase* queue);

  IDailyLog2* m_sink;  // not owned; null: console only. Must outlive every Log

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
