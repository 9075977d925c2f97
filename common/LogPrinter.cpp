#include "common/LogPrinter.h"

#include <limits.h>
#include <stdarg.h>
#include <stdio.h>
#include <string.h>

#include "common/Console.h"
#include "common/GDQUdpBase.h"
#include "common/ScopedLock.h"
#include "common/TextOps.h"
#include "common/ThreadId.h"
#include "common/TimeStamp.h"

using Velk::TextOps;

namespace {

// Log() cuts a long line one byte earlier than LogDebugEnd(). Programs that read the lines rely on that.
constexpr size_t kBufferSize = LogPrinter::kMaxMessage + 2;

// True while this thread sends to the remote peer. Lines that m_remoteQueue logs meanwhile (at Trace, one per
// datagram) must not be sent: that would recurse without end, and the mutex is already held.
thread_local bool t_sendsRemote = false;

// Only errors are in capitals, so that people and grep(1) find them.
const char* LevelWord(ELogMessageType type) {
  switch (static_cast<int>(type)) {
    case Trace:
      return "Trace";
    case Info:
      return "Info";
    case Warning:
      return "Warning";
    case Error:
      return "ERROR";
    default:
      return nullptr;
  }
}

// Only backslashes separate: the names come from build machines that use them in paths.
const char* AfterLastBackslash(const char* file) {
  const char* last = strrchr(file, '\\');
  return last != nullptr ? last + 1 : file;
}

// Writes "[#%4ld] ". Returns the end.
char* PutThreadId(char* out, long id) {
  *out++ = '[';
  *out++ = '#';
  for (long least = 1000; id < least && least > 1; least /= 10) *out++ = ' ';
  out += TextOps::PutNum(out, static_cast<unsigned long>(id));
  *out++ = ']';
  *out++ = ' ';
  return out;
}

}  // namespace

LogPrinter* LogPrinter::Instance() {
  static LogPrinter instance(nullptr);
  return &instance;
}

LogPrinter::LogPrinter(IDailyLog2* sink) : m_sink(sink) {}

bool LogPrinter::IsFiltered(ELogMessageType type) const {
  return type == Trace && !m_traceEnabled.load(std::memory_order_relaxed);
}

void LogPrinter::Log(ELogMessageType type, const char* module, const char* format, ...) {
  if (IsFiltered(type)) return;
  char message[kBufferSize];
  va_list args;
  va_start(args, format);
  if (vsnprintf(message, kBufferSize - 1, TextOps::OrEmpty(format), args) < 0) message[0] = '\0';
  va_end(args);
  HandOut(type, module, message);
}

void LogPrinter::LogText(ELogMessageType type, const char* module, const char* text) {
  if (IsFiltered(type)) return;
  text = TextOps::OrEmpty(text);
  if (strnlen(text, kMaxMessage + 1) <= kMaxMessage) return HandOut(type, module, text);
  char message[kMaxMessage + 1];
  memcpy(message, text, kMaxMessage);
  message[kMaxMessage] = '\0';
  HandOut(type, module, message);
}

void LogPrinter::HandOut(ELogMessageType type, const char* module, const char* message) {
  if (TextOps::IsEmpty(module)) module = m_appName.Str();
  SendRemote(type, module, message);
  if (m_sink != nullptr) m_sink->Log(type, module, message);
  const char* level = LevelWord(type);
  if (level != nullptr) PrintToConsole(level, module, message);
}

void LogPrinter::SendRemote(ELogMessageType type, const char* module, const char* message) {
  if (t_sendsRemote) return;
  const Velk::ScopedLock lock(m_mutex);
  if (m_remoteQueue == nullptr) return;
  t_sendsRemote = true;
  Velk::ArgsBuilder2 call = *m_remoteQueue << "logmsg";
  call << static_cast<int>(type) << module << message;
  call.CallObj();
  t_sendsRemote = false;
}

void LogPrinter::SetLogToGDQUdp(Velk::GDQUdpBase* queue) {
  // Always logged by Instance(), since people watch its console. The queue is set afterwards, so the notice
  // is not sent to the peer.
  LogPrinter::Instance()->Log(Info, nullptr, "UDP remote logging enabled\n");
  const Velk::ScopedLock lock(m_mutex);
  m_remoteQueue = queue;
}

void LogPrinter::PrintToConsole(const char* level, const char* module, const char* text) {
  if (!m_consoleEnabled.load(std::memory_order_relaxed)) return;
  char prefix[Velk::TimeStamp::kLength + sizeof "[#] " + TextOps::kMaxDigits];
  const char* const prefixEnd = PutThreadId(Velk::TimeStamp::Put(prefix), Velk::ThreadId());
  iovec pieces[6];
  int count = 0;
  pieces[count++] = TextOps::Piece(prefix, static_cast<size_t>(prefixEnd - prefix));
  if (!TextOps::IsEmpty(module)) {
    pieces[count++] = TextOps::Piece(module);
    pieces[count++] = TextOps::Piece(".");
  }
  pieces[count++] = TextOps::Piece(level);
  pieces[count++] = TextOps::Piece(": ");
  pieces[count++] = TextOps::Piece(text);
  Velk::Console::WriteLine(pieces, count);
}

void LogPrinter::LogDebugBegin(const char* file, unsigned int line) {
  m_mutex.Lock();
  m_debugFile = AfterLastBackslash(TextOps::OrEmpty(file));
  m_debugLine = line;
}

void LogPrinter::LogDebugEnd(const char* format, ...) {
  char message[kBufferSize];
  // Programs that read these lines expect a field for a thread number. UINT_MAX fills it.
  int length = snprintf(message, sizeof message, "%s(%u): %u: ", m_debugFile, m_debugLine, UINT_MAX);
  if (length >= static_cast<int>(sizeof message)) length = static_cast<int>(sizeof message) - 1;
  va_list args;
  va_start(args, format);
  vsnprintf(message + length, sizeof message - static_cast<size_t>(length), TextOps::OrEmpty(format), args);
  va_end(args);
  m_mutex.Unlock();

  if (m_sink == nullptr) {
    fprintf(stderr, "Info: %s", message);
  } else {
    m_sink->Log(Info, nullptr, message);
  }
}
