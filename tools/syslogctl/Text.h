// Tool layer: escapes text for calls, terminals and JSON. No state, any thread.
#pragma once

#include <cstddef>

#include "common/SimpleString.h"

namespace Ctl {

// Takes the first line off a text: sets *line and *length to it, without its line feed, and *text and
// *left to the rest. False: the text is empty.
bool TakeLine(const char** text, size_t* left, const char** line, size_t* length);

// Appends text with each NUL, which would end the call, as the two characters \0.
void AppendEscapingNul(Velk::SimpleString& out, const char* text, size_t length);

// Like AppendEscapingNul(), but also writes each byte of other control characters, U+0080 to U+009F included,
// as \xNN. Keeps tabs.
void AppendEscapingControls(Velk::SimpleString& out, const char* text, size_t length);

// Appends text, but each byte that is not UTF-8 or is part of a control character as \xNN: a logged line must
// not control the reader's terminal. Keeps tabs.
void AppendPrintable(Velk::SimpleString& out, const char* text);

// Appends text as a JSON string, RFC 8259. Bytes that are not UTF-8 become U+FFFD.
void AppendJson(Velk::SimpleString& out, const char* text);

}  // namespace Ctl
