// Tool layer: what happens to bytes on their way into a call and onto a screen. No state, any thread.
#pragma once

#include <cstddef>

#include "common/SimpleString.h"

namespace Ctl {

// The first piece of a text: length bytes from its start, then consumed - length bytes to step over.
struct Cut {
  size_t length;
  size_t consumed;
};

// Cuts the first line off text, or as much of it as takes up to room bytes when quoted as an argument,
// between two UTF-8 characters (text that is not UTF-8 is cut anywhere). room is 8 or more. isAll: no more
// text will follow, so that an end without a line feed ends a line too. False: there is no whole piece yet.
bool CutLine(const char* text, size_t length, bool isAll, size_t room, Cut* cut);

// Appends text with each NUL, which would end the call, as the two characters \0.
void AppendWithoutNul(Velk::SimpleString& out, const char* text, size_t length);

// Appends text as a terminal may show it: control characters and bytes that are not UTF-8 as \xNN, so that
// nobody who logs a line controls the terminal. Keeps tabs.
void AppendPrintable(Velk::SimpleString& out, const char* text);

// Appends text as a JSON string, RFC 8259; bytes that are not UTF-8 become U+FFFD.
void AppendJson(Velk::SimpleString& out, const char* text);

}  // namespace Ctl
