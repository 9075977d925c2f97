#include "client/LogCall.h"

#include <stdio.h>
#include <string.h>

#include "common/TextOps.h"

namespace Velk {

namespace {

// Writes as much of *text as fits before end, quoted, with ending before the closing quote. Moves *text
// behind that and returns the end of what was written.
char* PutQuoted(char* out, const char* end, const char** text, const char* textEnd, const char* ending) {
  end -= strlen(ending) + 1;
  const char* in = *text;
  *out++ = '`';
  while (in != textEnd) {
    const bool isSpecial = *in == '~' || *in == '`';
    if (end - out < (isSpecial ? 2 : 1)) break;
    if (isSpecial) *out++ = '~';
    *out++ = *in++;
  }
  if (in != textEnd) {
    const auto length = static_cast<size_t>(in - *text);
    const size_t broken = length - TextOps::CharacterStart(*text, length);
    in -= broken;
    out -= broken;
  }
  *text = in;
  while (*ending != '\0') *out++ = *ending++;
  *out++ = '`';
  return out;
}

}  // namespace

LogCall::LogCall(ELogMessageType type, const char* module, const char* text)
    : m_text(text != nullptr ? text : ""), m_textEnd(m_text + strlen(m_text)) {
  if (m_textEnd != m_text && m_textEnd[-1] == '\n') --m_textEnd;
  if (module == nullptr) module = "";
  const char* const moduleEnd = module + strlen(module);
  m_head = m_call + snprintf(m_call, sizeof m_call, "LogMsg %d ", static_cast<int>(type));
  m_head = PutQuoted(m_head, m_call + kMost / 2, &module, moduleEnd, "");
  *m_head++ = ' ';
  m_isValid = module == moduleEnd;
}

const char* LogCall::Next() {
  if (m_isDone || !m_isValid) return nullptr;
  *PutQuoted(m_head, m_call + kMost, &m_text, m_textEnd, "\n") = '\0';
  m_isDone = m_text == m_textEnd;
  return m_call;
}

}  // namespace Velk
