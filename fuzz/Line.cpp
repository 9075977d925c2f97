// Feeds other programs' records to the tool: to parse, to split into calls, and to show on a terminal.
#include <ctype.h>
#include <strings.h>

#include "tests/unit/LogCallModel.h"
#include "tools/syslogctl/StoredLine.h"
#include "tools/syslogctl/SyslogLine.h"
#include "tools/syslogctl/Text.h"

namespace {

bool HasControl(const std::string& text) {
  return std::any_of(text.begin(), text.end(), [](unsigned char c) { return iscntrl(c) != 0 && c != '\t'; });
}

bool HasUpperControl(const std::string& text) {  // U+0080 to U+009F
  size_t at = text.find('\xc2');
  while (at != std::string::npos && (text[at + 1] & 0xe0) != 0x80) at = text.find('\xc2', at + 1);
  return at != std::string::npos;
}

// Every part lies in the record, in order. Only the text may have controls, such as line feeds.
void CheckParts(const Ctl::SyslogLine& line, const std::string& record) {
  ASSERT_NE('\0', line.module[0]);
  ASSERT_LT(strlen(line.module), sizeof line.module);
  ASSERT_FALSE(HasControl(line.module));
  const char* end = record.data();
  for (const Ctl::RecordPart* part : {&line.pid, &line.id, &line.data, &line.text}) {
    if (part->length == 0 && part != &line.text) continue;
    ASSERT_LE(end, part->begin);
    end = part->begin + part->length;
    ASSERT_LE(end, record.data() + record.size());
    ASSERT_FALSE(part != &line.text && HasControl(std::string(part->begin, part->length)));
  }
}

// No module may look like the service's or the kernel's own at the head of a line.
void CheckIsNotReserved(const char* module) {
  for (const char* reserved : {"syslog", "kernel"}) {
    const size_t length = strlen(reserved);
    if (strncasecmp(module, reserved, length) != 0) continue;
    ASSERT_NE('\0', module[length]) << module;
    ASSERT_NE('.', module[length]) << module;
  }
}

void CheckScreen(const char* text) {
  Velk::SimpleString printable, json;
  Ctl::AppendPrintable(printable, text);
  Ctl::AppendJson(json, text);
  for (const Velk::SimpleString* shown : {&printable, &json}) {
    ASSERT_TRUE(IsUtf8(shown->Str()));
    ASSERT_FALSE(HasControl(shown->Str()) || HasUpperControl(shown->Str()));
  }
  std::string decoded;
  const char* at = json.Str() + 1;
  for (; *at != '"'; ++at) {
    ASSERT_NE('\0', *at);
    const bool isEscape = *at == '\\', isCode = isEscape && at[1] == 'u';
    at += isEscape;
    if (isCode && strncmp(at + 1, "0080", 4) >= 0) decoded += '\xc2';
    decoded += isCode ? static_cast<char>(strtol(std::string(at + 1, 4).c_str(), nullptr, 16)) : *at;
    if (isCode) at += 4;
  }
  ASSERT_EQ('\0', at[1]);
  ASSERT_TRUE(!IsUtf8(text) || decoded == text) << decoded;
}

// Treats the input as the service's file: its lines must cover all of it, and reading it again must find no
// new line.
void CheckStored(const std::string& file) {
  const char* const end = file.data() + file.size();
  const char* at = file.data();
  Ctl::StoredLine line{};
  for (const char* begin = at; Ctl::TakeStored(&at, end, &line); begin = at) {
    ASSERT_EQ(begin, line.begin);
    ASSERT_EQ(at, line.end);
    ASSERT_LE(begin, line.module.begin);
    ASSERT_LE(line.module.begin + line.module.length, line.text.begin);
    ASSERT_LE(line.text.begin + line.text.length, at);
    bool isSure = false;
    ASSERT_EQ(end, Ctl::FirstNew(begin, end, begin, end, &isSure));
    ASSERT_TRUE(isSure);
    const char* const first = Ctl::FirstNew(file.data(), begin, begin, end, &isSure);
    ASSERT_TRUE(begin <= first && first <= end);
  }
  ASSERT_EQ(end, at);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  const std::string record(data, data + size);
  CheckStored(record);
  Ctl::SyslogLine line{};
  for (const bool hasHost : {true, false}) {
    line = Ctl::ParseSyslog(record.data(), size, hasHost);
    CheckParts(line, record);
    CheckIsNotReserved(line.module);
  }
  Velk::SimpleString text;
  Ctl::AppendEscapingNul(text, line.text.begin, line.text.length);
  CheckScreen(text.Str());
  text.Empty();
  Ctl::AppendEscapingControls(text, line.text.begin, line.text.length);
  EXPECT_FALSE(HasControl(text.Str()) || HasUpperControl(text.Str()));
  CheckCalls(line.type, line.module, text.Str());
  unsigned long long sequence = 0;
  if (Ctl::ParseKmsg(record.data(), size, &line, &sequence)) CheckParts(line, record);
  return 0;
}
