// Tool layer: what happens to bytes on their way into a call and onto a screen. No state, any thread.
#pragma once

#include <cstddef>

#include "common/SimpleString.h"

namespace Ctl {

// Takes the first line off a text: *line and *length are the line without its line feed, *text and *left what
// follows it. False: the text is empty.
bool TakeLine(const char** text, size_t* left, const char** line, size_t* length);

// Appends text with each NUL, which would end the call, as the two characters \0.
void AppendWithoutNul(Velk::SimpleString& out, const char* text, size_t length);

// The same, and also the other control characters but tabs, U+0080 to U+009F included, as \xNN.
void AppendWithoutControls(Velk::SimpleString& out, const char* text, size_t length);

// Appends text as a terminal may show it: control characters and bytes that are not UTF-8 as \xNN, so that
// who logs a line does not control the terminal. Keeps tabs.
void AppendPrintable(Velk::SimpleString& out, const char* text);

// Appends text as a JSON string, RFC 8259; bytes that are not UTF-8 become U+FFFD. Has no
// control characters.
void AppendJson(Velk::SimpleString& out, const char* text);

}  // namespace Ctl
