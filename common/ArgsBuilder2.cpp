#include "common/ArgsBuilder2.h"

#include <stdio.h>
#include <string.h>

#include "common/IGenericDispatchObj.h"
#include "common/TextOps.h"

namespace Velk {

ArgsBuilder2::ArgsBuilder2(const char* name, IGenericDispatchObjBase* target)
    : m_name(name), m_args(256, 256), m_target(target) {}

ArgsBuilder2& ArgsBuilder2::operator<<(double value) {
  // Blank, sign, 309 digits of the largest double, point, six decimals, NUL.
  char text[1 + 1 + 309 + 1 + 6 + 1];
  snprintf(text, sizeof text, " %lf", value);
  m_args.Append(text);
  return *this;
}

ArgsBuilder2& ArgsBuilder2::operator<<(int value) {
  return *this << static_cast<long long>(value);
}

namespace {

void AppendDigits(RefString& text, unsigned long long value) {
  char digits[TextOps::kMaxDigits];
  text.Append(digits, TextOps::PutNum(digits, value));
}

}  // namespace

ArgsBuilder2& ArgsBuilder2::operator<<(long long value) {
  const auto bits = static_cast<unsigned long long>(value);
  if (value >= 0) return *this << bits;
  m_args.Append(" -");
  AppendDigits(m_args, 0 - bits);
  return *this;
}

ArgsBuilder2& ArgsBuilder2::operator<<(unsigned long long value) {
  m_args.Append(' ');
  AppendDigits(m_args, value);
  return *this;
}

ArgsBuilder2& ArgsBuilder2::operator<<(const char* text) {
  text = TextOps::OrEmpty(text);
  // No blank if the first argument is a text. Keep it so: peers may compare calls byte by byte.
  m_args.Append(m_args.IsEmpty() ? "`" : " `");
  while (*text != '\0') {
    const auto plain = static_cast<unsigned>(strcspn(text, "~`"));
    if (plain != 0) m_args.Append(text, plain);
    text += plain;
    if (*text != '\0') m_args.Append('~').Append(*text++);
  }
  m_args.Append('`');
  return *this;
}

void ArgsBuilder2::CallObj() {
  m_target->Call(m_name.Str(), m_args.Str());
}

}  // namespace Velk
