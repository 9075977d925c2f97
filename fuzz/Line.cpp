// What the tool does to the records of other programs: taken apart, written as calls, shown on a screen.
#include <ctype.h>

#include "tests/unit/LogCallModel.h"
#include "tools/syslogctl/SyslogLine.h"
#include "tools/syslogctl/Text.h"

namespace {

bool HasControl(const std::string& text) {
  return std::any_of(text.begin(), text.end(), [](unsigned char c) { return iscntrl(c) != 0 && c != '\t'; });
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
    const bool isEscape = *at == '\\', isCode = isEscape && at[1] == 'u';
    at += isEscape;
    decoded += isCode ? static_cast<char>(strtol(std::string(at + 1, 4).c_str(), nullptr, 16)) : *at;
    if (isCode) at += 4;
  }
  ASSERT_EQ('\0', at[1]);
  ASSERT_TRUE(!IsUtf8(text) || decoded == text) << decoded;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
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
