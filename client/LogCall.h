// Client layer: formats a log line as one or more calls.
#pragma once

#include "client/SendWindow.h"
#include "common/GDQUdpBase.h"
#include "common/IDailyLog2.h"

namespace Velk {

// Writes calls of at most kMost bytes each. A line that does not fit into one call is split between
// UTF-8 characters. Each piece ends with a line feed. One thread at a time.
class LogCall {
 public:
  static constexpr unsigned kMost = GDQUdpBase::kMaxText - SendWindow::kMaxHead;  // 1394

  // Writes "LogMsg" calls. Null counts as empty. Copies module; text must stay valid until the last Next().
  LogCall(ELogMessageType type, const char* module, const char* text);

  // Splits an existing call. args is as ArgsBuilder2 writes it, with the text last, and must stay valid until
  // the last Next().
  LogCall(const char* name, const char* args);

  // False: what precedes the text takes more than half a call, or args does not end with quoted text.
  bool IsValid() const { return m_isValid; }
  // The next call, or null after the last one. Valid until the next Next().
  const char* Next();

 private:
  char* PutQuoted(char* out, const char* end, const char* ending);

  char m_call[kMost + 1];
  char* m_headEnd = m_call;  // the quoted text goes here, after the fixed part
  const char* m_rest;
  const char* m_restEnd;
  bool m_isEscaped;  // m_rest has its escape tildes
  bool m_isValid;
  bool m_isDone = false;
};

}  // namespace Velk
