#include "client/LogCall.h"

#include <stdio.h>
#include <string.h>

#include "common/TextOps.h"

namespace Velk {

LogCall::LogCall(ELogMessageType type, const char* module, const char* text)
    : m_text(module != nullptr ? module : ""), m_textEnd(m_text + strlen(m_text)), m_isEscaped(false) {
  m_headEnd += snprintf(m_call, sizeof m_call, "LogMsg %d ", static_cast<int>(type));
  m_headEnd = PutQuoted(m_headEnd, m_call + kMost / 2, "");
  m_isValid = m_text == m_textEnd;
  *m_headEnd++ = ' ';
  m_text = text != nullptr ? text : "";
  m_textEnd = m_text + strlen(m_text);
  if (m_textEnd != m_text && m_textEnd[-1] == '\n') --m_textEnd;
}

LogCall::LogCall(const char* name, const char* args) : m_text(args), m_textEnd(args), m_isEscaped(true) {
  bool isInside = false;
  const char* in = args;
  for (; *in != '\0'; ++in) {
    if (isInside && *in == '~' && in[1] != '\0') {
      ++in;
    } else if (*in == '`') {
      isInside = !isInside;
      (isInside ? m_text : m_textEnd) = in;
    }
  }
  const int head = snprintf(m_call, kMost / 2, "%s %.*s", name, static_cast<int>(m_text - args), args);
  m_isValid = !isInside && m_textEnd > m_text && m_textEnd + 1 == in && head < static_cast<int>(kMost / 2);
  if (!m_isValid) return;
  m_headEnd += head;
  ++m_text;
  if (m_textEnd != m_text && m_textEnd[-1] == '\n') --m_textEnd;
}

// Writes as much of m_text as fits before end, quoted, with ending before the closing quote. Moves m_text to
// the rest. Returns the end of the output.
char* LogCall::PutQuoted(char* out, const char* end, const char* ending) {
  end -= strlen(ending) + 1;
  const char* in = m_text;
  *out++ = '`';
  while (in != m_textEnd) {
    const bool isSpecial = *in == '~' || *in == '`';
    if (end - out < (isSpecial ? 2 : 1)) break;
    if (isSpecial) *out++ = '~';
    if (isSpecial && m_isEscaped && in + 1 != m_textEnd) ++in;
    *out++ = *in++;
  }
  if (in != m_textEnd) {
    const auto length = static_cast<size_t>(in - m_text);
    const size_t broken = length - TextOps::CharacterStart(m_text, length);
    in -= broken;
    out -= broken;
  }
  m_text = in;
  while (*ending != '\0') *out++ = *ending++;
  *out++ = '`';
  return out;
}

const char* LogCall::Next() {
  if (m_isDone || !m_isValid) return nullptr;
  *PutQuoted(m_headEnd, m_call + kMost, "\n") = '\0';
  m_isDone = m_text == m_textEnd;
  return m_call;
}

}  // namespace Velk
