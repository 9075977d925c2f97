// Client layer: a line of the log as the calls that carry it.
#pragma once

#include "client/SendWindow.h"
#include "common/GDQUdpBase.h"
#include "common/IDailyLog2.h"

namespace Velk {

// Writes "LogMsg" calls of at most kMost bytes each. A line that does not fit into one is cut between UTF-8
// characters. A line feed is added to each piece but one that has it. One thread at a time.
class LogCall {
 public:
  static constexpr unsigned kMost = GDQUdpBase::kMaxText - SendWindow::kMaxHead;  // 1394

  // module and text may be null, which counts as empty; text must stay until the last Next().
  LogCall(ELogMessageType type, const char* module, const char* text);

  // Cuts a call that is ready, with arguments as ArgsBuilder2 writes them: its last one is the text. args
  // must stay until the last Next().
  LogCall(const char* name, const char* args);

  // False: the module is too long to leave room for a text, or there is no such text.
  bool IsValid() const { return m_isValid; }
  // The next call's text, or null after the last one. It lives until the next Next().
  const char* Next();

 private:
  char* PutQuoted(char* out, const char* end, const char* ending);

  char m_call[kMost + 1];
  char* m_head = m_call;  // where the quoted text begins in m_call
  const char* m_text;
  const char* m_textEnd;
  bool m_isQuoted;  // the text has its tildes already
  bool m_isValid;
  bool m_isDone = false;
};

}  // namespace Velk
