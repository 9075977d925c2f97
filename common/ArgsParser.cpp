#include "common/ArgsParser.h"

#include <ctype.h>
#include <stdlib.h>
#include <string.h>

#include <cstddef>
#include <cstdint>

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
  uint64_t value = 0;
  for (; *text >= '0' && *text <= '9'; ++text) value = value * 10 + static_cast<unsigned>(*text - '0');
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

// One value more than arguments, so that Args[count] is always one.
ArgsParser::ArgsParser(unsigned int maxArgs)
    : m_buffer(new char[m_capacity]), m_values(new Value[maxArgs + 1UL]), m_maxArgs(maxArgs) {}

ArgsParser::~ArgsParser() {
  delete[] m_values;
  delete[] m_buffer;
}

// The copies of all arguments with their NULs are never longer than the text with its own: an argument is
// followed by white space or the end, or gives its quotes for the NUL.
void ArgsParser::MakeRoomFor(const char* text) {
  const size_t needed = strlen(text) + 1;
  if (needed <= m_capacity) return;
  // m_capacity stays: it says what every buffer has at least. So each long text gets a buffer of its own
  // size, and one very long text does not hold its memory longer than until the next long one.
  delete[] m_buffer;
  m_buffer = new char[(needed + m_granule - 1) / m_granule * m_granule];
  // Slots that this parse will not fill must not point into the old buffer.
  for (unsigned i = 0; i <= m_maxArgs; ++i) m_values[i].m_text = nullptr;
}

namespace {

bool IsQuote(char c) {
  return c == '\'' || c == '`' || c == '"';
}

// Both copy one argument and a NUL, and move text and out behind what they read and wrote. The positions are
// kept in locals meanwhile: through the references each byte would cost two more loads and stores.

// How much of a quoted text can be copied as it is: all, where no tilde stands in it, as in nearly every one.
size_t PlainLength(const char* text, char quote) {
  const char* const end = strchr(text, quote);
  if (end == nullptr) return 0;
  const size_t length = static_cast<size_t>(end - text);
  const void* const tilde = memchr(text, '~', length);
  return tilde != nullptr ? static_cast<size_t>(static_cast<const char*>(tilde) - text) : length;
}

// False: the text ended within the quotes.
bool CopyQuoted(const char*& text, char*& out) {
  const char quote = *text;
  const char* in = text + 1;
  char* to = out;
  const size_t plain = PlainLength(in, quote);
  memcpy(to, in, plain);
  in += plain;
  to += plain;
  while (*in != quote && *in != '\0') {
    if (*in == '~') ++in;
    if (*in == '\0') break;
    *to++ = *in++;
  }
  *to++ = '\0';
  const bool closed = *in++ == quote;
  text = in;
  out = to;
  return closed;
}

void CopyUnquoted(const char*& text, char*& out) {
  const char* in = text;
  char* to = out;
  while (*in != '\0' && !IsSpace(*in)) *to++ = *in++;
  *to++ = '\0';
  text = in;
  out = to;
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
