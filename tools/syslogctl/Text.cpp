#include "tools/syslogctl/Text.h"

#include <stdio.h>
#include <string.h>

#include "common/TextOps.h"

namespace Ctl {

using Velk::TextOps;

bool TakeLine(const char** text, size_t* left, const char** line, size_t* length) {
  if (*left == 0) return false;
  const auto* const lineFeed = static_cast<const char*>(memchr(*text, '\n', *left));
  *line = *text;
  *length = lineFeed != nullptr ? static_cast<size_t>(lineFeed - *text) : *left;
  const size_t taken = *length + (lineFeed != nullptr ? 1 : 0);
  *text += taken;
  *left -= taken;
  return true;
}

void AppendEscapingNul(Velk::SimpleString& out, const char* text, size_t length) {
  while (length > 0) {
    const size_t plain = strnlen(text, length);
    if (plain > 0) out.Append(text, static_cast<unsigned>(plain));
    if (plain == length) return;
    out.Append("\\0");
    text += plain + 1;
    length -= plain + 1;
  }
}

namespace {

// Length in bytes of the UTF-8 character at text. 0: a NUL, or not UTF-8. Looks at no more than left bytes.
unsigned Utf8Length(const char* text, size_t left = 4) {
  const auto byte = [text](int i) { return static_cast<unsigned char>(text[i]); };
  const unsigned first = byte(0);
  if (first < 0x80) return first != 0 ? 1 : 0;
  if (first < 0xC2 || first > 0xF4) return 0;
  const unsigned length = first < 0xE0 ? 2 : first < 0xF0 ? 3 : 4;
  if (length > left) return 0;
  // The second byte shows overlong forms, surrogates and characters beyond U+10FFFF.
  const unsigned low = first == 0xE0 ? 0xA0 : first == 0xF0 ? 0x90 : 0x80;
  const unsigned high = first == 0xED ? 0x9F : first == 0xF4 ? 0x8F : 0xBF;
  if (byte(1) < low || byte(1) > high) return 0;
  for (unsigned i = 2; i < length; ++i) {
    if (!TextOps::IsContinuation(text[i])) return 0;
  }
  return length;
}

// Includes U+0080 to U+009F, which some terminals obey.
bool IsControl(const char* text, unsigned length) {
  const unsigned char first = static_cast<unsigned char>(text[0]);
  if (length == 1) return first < 0x20 || first == 0x7F;
  return length == 2 && first == 0xC2 && static_cast<unsigned char>(text[1]) < 0xA0;
}

void AppendEscaped(Velk::SimpleString& out, const char* format, char c) {
  char escaped[8];
  snprintf(escaped, sizeof escaped, format, static_cast<unsigned>(static_cast<unsigned char>(c)));
  out.Append(escaped);
}

}  // namespace

void AppendEscapingControls(Velk::SimpleString& out, const char* text, size_t length) {
  const char* const end = text + length;
  while (text != end) {
    const unsigned bytes = Utf8Length(text, static_cast<size_t>(end - text));
    // A byte that is not UTF-8 may be ISO 8859, where 0x80 to 0x9F are control characters too.
    const bool isControl = bytes != 0 ? IsControl(text, bytes) : static_cast<unsigned char>(*text) < 0xA0;
    const char* const next = text + (bytes != 0 ? bytes : 1);
    if (*text == '\t' || !isControl) {
      out.Append(text, static_cast<unsigned>(next - text));
      text = next;
    }
    for (; text != next; ++text) AppendEscaped(out, *text == '\0' ? "\\%u" : "\\x%02x", *text);
  }
}

void AppendPrintable(Velk::SimpleString& out, const char* text) {
  while (*text != '\0') {
    const unsigned length = Utf8Length(text);
    if (length != 0 && (*text == '\t' || !IsControl(text, length))) {
      out.Append(text, length);
      text += length;
    } else {
      AppendEscaped(out, "\\x%02x", *text++);
    }
  }
}

void AppendJson(Velk::SimpleString& out, const char* text) {
  out.Append('"');
  while (*text != '\0') {
    const unsigned length = Utf8Length(text);
    if (length == 0) {
      out.Append("\xEF\xBF\xBD");
    } else if (*text == '"' || *text == '\\') {
      out.Append('\\').Append(*text);
    } else if (IsControl(text, length)) {
      AppendEscaped(out, "\\u%04x", text[length - 1]);
    } else {
      out.Append(text, length);
    }
    text += length != 0 ? length : 1;
  }
  out.Append('"');
}

}  // namespace Ctl
