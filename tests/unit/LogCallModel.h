// Splits a text into calls and parses them again.
#pragma once

#include <locale.h>

#include "client/LogCall.h"
#include "common/ArgsParser.h"
#include "tests/unit/Test.h"

inline bool IsUtf8(const std::string& text) {
  static const bool isReady = setlocale(LC_CTYPE, "C.UTF-8") != nullptr;
  EXPECT_TRUE(isReady);
  std::wstring wide(text.size(), L'\0');
  if (mbstowcs(&wide[0], text.c_str(), wide.size()) == static_cast<size_t>(-1)) return false;
  // The C library also accepts characters beyond Unicode.
  return std::all_of(wide.begin(), wide.end(), [](wchar_t c) { return c <= 0x10FFFF; });
}

// Checks that the pieces join to the text, that each is a valid call, and that UTF-8 is cut between
// characters. Returns the number of pieces.
inline unsigned CheckPieces(Velk::LogCall&& call, ELogMessageType type, const char* module,
                            std::string text) {
  EXPECT_TRUE(call.IsValid());
  Velk::ArgsParser parser(4);
  std::string joined;
  unsigned pieces = 0;
  for (; const char* const next = call.Next(); ++pieces) {
    EXPECT_LE(strlen(next), Velk::LogCall::kMost);
    EXPECT_TRUE(parser.ParseArgs(next));
    const Velk::IArgsList& args = *parser.GetArgs();
    EXPECT_EQ(4u, args.GetCount()) << next;
    if (args.GetCount() != 4) break;
    EXPECT_STREQ("LogMsg", args[0]->AsStr());
    EXPECT_EQ(type, args[1]->AsInt());
    EXPECT_STREQ(module, args[2]->AsStr());
    std::string piece = args[3]->AsStr();
    EXPECT_EQ('\n', piece.back());
    piece.pop_back();
    EXPECT_TRUE(!IsUtf8(text) || IsUtf8(piece)) << piece;
    joined += piece;
  }
  if (!text.empty() && text.back() == '\n') text.pop_back();
  EXPECT_EQ(text, joined);
  return pieces;
}

inline unsigned CheckCalls(ELogMessageType type, const char* module, const std::string& text) {
  return CheckPieces(Velk::LogCall(type, module, text.c_str()), type, module, text);
}
