// What the tool does to the records of other programs: taken apart, written as calls, shown on a screen.
#include <ctype.h>
#include <gtest/gtest.h>
#include <locale.h>
#include <stdlib.h>

#include "common/ArgsParser.h"
#include "common/LogCall.h"
#include "tools/syslogctl/SyslogLine.h"
#include "tools/syslogctl/Text.h"

namespace {

bool IsUtf8(const std::string& text) {
  return mbstowcs(nullptr, text.c_str(), 0) != static_cast<size_t>(-1);
}

bool HasControl(const std::string& text) {
  for (const char c : text) {
    if (iscntrl(static_cast<unsigned char>(c)) != 0 && c != '\t') return true;
  }
  return false;
}

void CheckParts(const Ctl::SyslogLine& line, const std::string& record) {
  ASSERT_LE(record.data(), line.text);
  ASSERT_LE(line.text + line.textLength, record.data() + record.size());
  ASSERT_NE('\0', line.module[0]);
  ASSERT_LE(strlen(line.module), Ctl::SyslogLine::kMaxModule);
  ASSERT_FALSE(HasControl(line.module));
  if (line.pidLength == 0) return;
  ASSERT_LT(record.data(), line.pid);
  ASSERT_LE(line.pid + line.pidLength, line.text);
}

// The pieces are the text, each a call that the service understands.
void CheckCalls(ELogMessageType type, const char* module, std::string text) {
  Velk::LogCall call(type, module, text.c_str());
  ASSERT_TRUE(call.IsValid());
  Velk::ArgsParser parser(3);
  std::string joined;
  while (const char* const next = call.Next()) {
    ASSERT_LE(strlen(next), Velk::LogCall::kMost);
    ASSERT_EQ(0, strncmp("LogMsg ", next, 7));
    ASSERT_TRUE(parser.ParseArgs(next + 7));
    const Velk::IArgsList& args = *parser.GetArgs();
    ASSERT_EQ(3u, args.GetCount());
    ASSERT_EQ(type, args[0]->AsInt());
    ASSERT_STREQ(module, args[1]->AsStr());
    std::string piece = args[2]->AsStr();
    ASSERT_EQ('\n', piece.back());
    piece.pop_back();
    ASSERT_TRUE(!IsUtf8(text) || IsUtf8(piece));
    joined += piece;
  }
  if (!text.empty() && text.back() == '\n') text.pop_back();
  ASSERT_EQ(text, joined);
}

void CheckScreen(const char* text) {
  Velk::SimpleString printable, json;
  Ctl::AppendPrintable(printable, text);
  Ctl::AppendJson(json, text);
  for (const Velk::SimpleString* shown : {&printable, &json}) {
    ASSERT_TRUE(IsUtf8(shown->Str()));
    ASSERT_FALSE(HasControl(shown->Str()));
  }
  std::string decoded;
  const char* at = json.Str() + 1;
  for (; *at != '"'; ++at) {
    ASSERT_NE('\0', *at);
    if (*at != '\\') {
      decoded += *at;
    } else if (*++at != 'u') {
      decoded += *at;
    } else {
      decoded += static_cast<char>(strtol(std::string(at + 1, 4).c_str(), nullptr, 16));
      at += 4;
    }
  }
  ASSERT_EQ('\0', at[1]);
  if (IsUtf8(text)) {
    ASSERT_EQ(text, decoded);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const bool isReady = setlocale(LC_CTYPE, "C.UTF-8") != nullptr;
  EXPECT_TRUE(isReady);
  const std::string record(data, data + size);
  Ctl::SyslogLine line = Ctl::ParseSyslog(record.data(), size);
  CheckParts(line, record);
  Velk::SimpleString text;
  Ctl::AppendWithoutNul(text, line.text, line.textLength);
  CheckCalls(line.type, line.module, text.Str());
  CheckScreen(text.Str());
  unsigned long long sequence = 0;
  if (Ctl::ParseKmsg(record.data(), size, &line, &sequence)) CheckParts(line, record);
  return 0;
}
