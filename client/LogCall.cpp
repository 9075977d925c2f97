#include "client/LogCall.h"

#include <stdio.h>
#include <string.h>

#include "common/TextOps.h"

namespace Velk {

LogCall::LogCall(ELogMessageType type, const char* module, const char* text)
    : m_rest(module != nullptr ? module : ""), m_restEnd(m_rest + strlen(m_rest)), m_isEscaped(false) {
  m_headEnd += snprintf(m_call, sizeof m_call, "LogMsg %d ", static_cast<int>(type));
  m_headEnd = PutQuoted(m_headEnd, m_call + kMost / 2, "");
  m_isValid = m_rest == m_restEnd;
  *m_headEnd++ = ' ';
  m_rest = text != nullptr ? text : "";
  m_restEnd = m_rest + strlen(m_rest);
  if (m_restEnd != m_rest && m_restEnd[-1] == '\n') --m_restEnd;
}

LogCall::LogCall(const char* name, const char* args) : m_rest(args), m_restEnd(args), m_isEscaped(true) {
  bool isInside = false;
  const char* in = args;
  for (; *in != '\0'; ++in) {
    if (isInside && *in == '~' && in[1] != '\0') {
      ++in;
    } else if (*in == '`') {
      isInside = !isInside;
      (isInside ? m_rest : m_restEnd) = in;
    }
  }
  const int head = snprintf(m_call, kMost / 2, "%s %.*s", name, static_cast<int>(m_rest - args), args);
  m_isValid = !isInside && m_restEnd > m_rest && m_restEnd + 1 == in && head < static_cast<int>(kMost / 2);
  if (!m_isValid) return;
  m_headEnd += head;
  ++m_rest;
  if (m_restEnd != m_rest && m_restEnd[-1] == '\n') --m_restEnd;
}

// Writes as much of m_rest as fits before end, then the text `ending`, all in quotes, and advances m_rest.
// Returns the end of the output.
char* LogCall::PutQuoted(char* out, const char* end, const char* ending) {
  end -= strlen(ending) + 1;
  const char* in = m_rest;
  *out++ = '`';
  while (in != m_restEnd) {
    const bool isSpecial = *in == '~' || *in == '`';
    if (end - out < (isSpecial ? 2 : 1)) break;
    if (isSpecial) *out++ = '~';
    if (isSpecial && m_isEscaped && in + 1 != m_restEnd) ++in;
    *out++ = *in++;
  }
  if (in != m_restEnd) {
    const auto length = static_cast<size_t>(in - m_rest);
    const size_t broken = length - TextOps::CharacterStart(m_rest, length);
    in -= broken;
    out -= broken;
  }
  m_rest = in;
  while (*ending != '\0') *out++ = *ending++;
  *out++ = '`';
  return out;
}

const char* LogCall::Next() {
  if (m_isDone || !m_isValid) return nullptr;
  *PutQuoted(m_headEnd, m_call + kMost, "\n") = '\0';
  m_isDone = m_rest == m_restEnd;
  return m_call;
}

}  // namespace Velk
