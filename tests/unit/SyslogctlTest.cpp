// Parts of syslogctl that need no service.

#include "tests/unit/Test.h"
#include "tools/syslogctl/LineReader.h"
#include "tools/syslogctl/RecordRing.h"
#include "tools/syslogctl/SyslogLine.h"
#include "tools/syslogctl/Text.h"

namespace {

constexpr size_t kMost = 16;

// Writes the text to a pipe in parts of random size. Returns the pieces that are read.
Lines Pieces(const std::string& text, std::mt19937& random) {
  int fds[2];
  EXPECT_EQ(pipe(fds), 0);
  Lines pieces;
  Ctl::LineReader reader(fds[0], kMost);
  size_t written = 0;
  while (!reader.AtEnd()) {
    const size_t part = std::min<size_t>(text.size() - written, 1 + random() % 40);
    EXPECT_EQ(write(fds[1], text.data() + written, part), static_cast<ssize_t>(part));
    written += part;
    if (part == 0) close(fds[1]);
    EXPECT_TRUE(reader.Read());
    size_t length;
    for (const char* piece; reader.Next(&piece, &length);) pieces.emplace_back(piece, length);
  }
  close(fds[0]);
  return pieces;
}

TEST(SyslogctlLines, AreSplitWithoutLossAndBetweenCharacters) {
  const std::string units[] = {"a", "\n", "`", "~", std::string(1, '\0'), "ä", "€", "😀", "\x80", "\xFF"};
  std::mt19937 random(7);
  for (int round = 0; round < 300; ++round) {
    std::string text;
    const bool isUtf8 = round % 2 == 0;
    for (size_t i = random() % 200; i > 0; --i) text += units[random() % (isUtf8 ? 8 : 10)];
    std::string joined;
    for (const std::string& piece : Pieces(text, random)) {
      ASSERT_LE(piece.size(), kMost);
      ASSERT_EQ(piece.find('\n'), std::string::npos);
      ASSERT_FALSE(isUtf8 && (piece[0] & 0xC0) == 0x80) << "starts within a character";
      joined += piece;
      // A line feed ended the piece, or it was full, or the text ended.
      const bool isLine = text[joined.size()] == '\n';
      ASSERT_TRUE(isLine || joined.size() == text.size() || piece.size() + 4 > kMost);
      if (isLine) joined += '\n';
    }
    ASSERT_EQ(joined, text);
  }
}

TEST(SyslogctlText, IsSafeOnScreensAndInJson) {
  const std::tuple<const char*, const char*, const char*> rows[] = {
      // text, on a screen, in JSON
      {"link ä€😀 \"C:\\\"", "link ä€😀 \"C:\\\"", "\"link ä€😀 \\\"C:\\\\\\\"\""},
      {"\x1b[2J\t\r\x7f", "\\x1b[2J\t\\x0d\\x7f", "\"\\u001b[2J\\u0009\\u000d\\u007f\""},
      {"\xc2\x9b", "\\xc2\\x9b", "\"\\u009b\""},       // a terminal's CSI
      {"\xff\xc3", "\\xff\\xc3", "\"\uFFFD\uFFFD\""},  // invalid byte, incomplete character
      {"\xc0\xaf\xe0\x80\xaf", "\\xc0\\xaf\\xe0\\x80\\xaf",
       "\"\uFFFD\uFFFD\uFFFD\uFFFD\uFFFD\""},                         // overlong
      {"\xed\xa0\x80", "\\xed\\xa0\\x80", "\"\uFFFD\uFFFD\uFFFD\""},  // surrogate
      {"\xf4\x90\x80\x80", "\\xf4\\x90\\x80\\x80", "\"\uFFFD\uFFFD\uFFFD\uFFFD\""},
  };
  for (const auto& [text, onScreen, inJson] : rows) {
    Velk::SimpleString printable, json;
    Ctl::AppendPrintable(printable, text);
    Ctl::AppendJson(json, text);
    EXPECT_STREQ(printable.Str(), onScreen);
    EXPECT_STREQ(json.Str(), inJson);
  }
  Velk::SimpleString out;
  Ctl::AppendEscapingNul(out, "\0a\0\0b", 5);
  EXPECT_STREQ(out.Str(), "\\0a\\0\\0b");
  out.Empty();
  Ctl::AppendEscapingControls(out, "\0a\t\r\x1b[m\x7f ßä\xff\xc2\x9b\x9b\n\xc2\x9b", 19);
  EXPECT_STREQ(out.Str(), "\\0a\t\\x0d\\x1b[m\\x7f ßä\xff\\xc2\\x9b\\x9b\\x0a\xc2");
}

std::string Text(const Ctl::RecordPart& part) {
  return std::string(part.begin, part.length);
}

TEST(SyslogctlLines, OfOtherProgramsAreUnderstood) {
  // Record; type|module|process id|message id|data|text.
  const std::pair<const char*, const char*> rows[] = {
      {"<30>Jan  2 10:00:00 dhcpcd[77]: eth0: lease", "1|dhcpcd|77|||eth0: lease"},  // glibc
      {"<27>Jan 12 10:00:00 ntpd: no peer\n", "3|ntpd||||no peer"},                  // musl
      {"<12>Jan 12 10:00:00 root: low", "2|root||||low"},                            // BusyBox logger
      {"<15>Jan 12 10:00:00 a.out[1]: ", "0|a.out|1|||"},
      {"<14>Jan 12 10:00:00 : text", "1|user||||text"},  // openlog(3) with an empty name
      {"<86>sshd: yes", "1|sshd||||yes"},                // no time stamp
      {"<191>no tag, it seems", "0|local7||||no tag, it seems"},
      {"<192>sshd: yes", "1|user||||<192>sshd: yes"},  // no such priority
      {"", "1|user||||"},
      {"<11>http://x/ failed", "3|user||||http://x/ failed"},
      {"<11>a[1 2]: b", "3|user||||a[1 2]: b"},
      {"<11>a[12345678901234567]: b", "3|user||||a[12345678901234567]: b"},
      {"<13>Jan 12 10:00:0x a: b", "1|user||||Jan 12 10:00:0x a: b"},
      {"<13>dmesg: [  1.5] up\nand on", "1|dmesg||||[  1.5] up\nand on"},
      // A time of RFC 3339 or nearly, with and without a host.
      {"<14>2024-01-02T10:00:00.123+01:00 box net[7]: up", "1|net|7|||up"},
      {"<14>2024-01-02T10:00:00.123456Z net[7]: a: b", "1|net|7|||a: b"},
      {"<14>2024-01-02T10:00:00,5-0330 fe80::1 net: up", "1|net||||up"},
      {"<14>2024-01-02T10:00:00 net: up", "1|net||||up"},
      {"<14>2024-01-02T10:00:00Z no tag here", "1|user||||no tag here"},
      {"<14>2024-01-02T10:00Z net: up", "1|user||||2024-01-02T10:00Z net: up"},
      {"<14>2024-01-02T10:00:00Znet: up", "1|user||||2024-01-02T10:00:00Znet: up"},
      {"<14>Jan 12 10:00:00 my app: b", "1|user||||my app: b"},  // this form has no host
      // RFC 5424.
      {"<13>1 2024-01-02T10:00:00.123456+01:00 box root 77 ID [a@1 k=\"v\"] \xEF\xBB\xBFup: ä",
       "1|root|77|ID|[a@1 k=\"v\"]|up: ä"},
      {"<14>1 - - - - - - up", "1|user||||up"},
      {"<14>1 - - - - - -", "1|user||||"},
      {"<14>1 2024-01-02T10:00:00Z - app - - -  ", "1|app|||| "},
      // logger(1) of util-linux
      {"<13>1 2024-01-02T10:00:00.1Z box me - - [timeQuality tzKnown=\"1\" isSynced=\"0\"] up", "1|me||||up"},
      {"<13>1 - - me - - [timeQuality a=\"1\"][x@1][y@1 k=\"v\"] up", "1|me|||[x@1][y@1 k=\"v\"]|up"},
      {"<13>1 - - me - - [x k=\"a\\\"]\\\\\"] up", "1|me|||[x k=\"a\\\"]\\\\\"]|up"},
      {"<13>1 - - a:b[1] - - - up", "1|a_b_1]||||up"},
      // Not RFC 5424, so treated as text.
      {"<13>1 - - me - - [x k=\"v\" up", "1|user||||1 - - me - - [x k=\"v\" up"},
      {"<13>1 - - me - - [x k=\"a\nb\"] up", "1|user||||1 - - me - - [x k=\"a\nb\"] up"},
      {"<13>1 - - me - - [x]up", "1|user||||1 - - me - - [x]up"},
      {"<13>1 - one of four lights", "1|user||||1 - one of four lights"},
      {"<13>2 - - me - - - up", "1|user||||2 - - me - - - up"},
      {"1 - - me - - - up", "1|user||||1 - - me - - - up"},
  };
  for (const auto& [record, expected] : rows) {
    const Ctl::SyslogLine line = Ctl::ParseSyslog(record, strlen(record));
    std::string parts = std::to_string(line.type) + "|" + line.module;
    for (const Ctl::RecordPart* part : {&line.pid, &line.id, &line.data, &line.text})
      parts += "|" + Text(*part);
    EXPECT_EQ(expected, parts) << record;
  }
}

TEST(SyslogctlLines, OfOtherProgramsAreNotTakenForTheServicesOrTheKernels) {
  const std::string filler(Ctl::SyslogLine::kMaxModule - 7, 'x');
  const std::pair<std::string, std::string> rows[] = {
      {"<3>panic", "user"},
      {"<3>", "user"},
      {"<46>no tag", "local[syslog]"},  // the facility's name
      {"<14>Syslog: Child exited", "local[Syslog]"},
      {"<14>Jan 12 10:00:00 sysLOG[1]: x", "local[sysLOG]"},
      {"<14>2024-01-02T10:00:00Z box Syslog: x", "local[Syslog]"},
      {"<14>1 - - Syslog - - - x", "local[Syslog]"},
      {"<14>Syslog.Error: x", "local[Syslog.Error]"},
      {"<14>\xE2\x80\x8BSys\xC2\xADlog\xC2\xA0: x",
       "local[\xE2\x80\x8BSys\xC2\xADlog\xC2\xA0]"},  // invisible characters
      {"<14>Syslog." + filler + ": x", "local[Syslog." + filler + "]"},
      {"<0>Kernel: x", "local[Kernel]"},
      {"<14>syslog-ng: x", "syslog-ng"},
      {"<14>syslogd: x", "syslogd"},
      {"<14>kernel_test: x", "kernel_test"},
      {"<14>sys: x", "sys"},
  };
  for (const auto& [record, module] : rows)
    EXPECT_EQ(module, Ctl::ParseSyslog(record.data(), record.size()).module) << record;
}

TEST(SyslogctlLines, OfTheKernelAreUnderstood) {
  const auto parse = [](const std::string& record) -> std::string {
    Ctl::SyslogLine line;
    unsigned long long sequence = 0;
    if (!Ctl::ParseKmsg(record.data(), record.size(), &line, &sequence)) return "none";
    return std::to_string(line.type) + " " + line.module + " " + std::to_string(sequence) + " " +
           Text(line.text);
  };
  EXPECT_EQ(parse("6,339,5140900,-;usb 1-1: new device\n SUBSYSTEM=usb\n"),
            "1 kernel 339 usb 1-1: new device");
  EXPECT_EQ(parse("4,340,1,c,caller=T1;low"), "2 kernel 340 low");
  EXPECT_EQ(parse("27,18446744073709551,1,-;init[1]: no\n"), "3 init 18446744073709551 no");
  EXPECT_EQ(parse("14,1,1,-;Syslog: written to /dev/kmsg\n"), "1 local[Syslog] 1 written to /dev/kmsg");
  for (const char* bad : {"", "6", "6,", "6,1", "6,1,2,-", "x,1,2,-;a", ";a"}) EXPECT_EQ(parse(bad), "none");
}

// A report must be where the lost records would have been, and say how many they are.
TEST(SyslogctlRecordRing, ReportsEveryLossInItsPlace) {
  std::mt19937 random(11);
  const auto ring = std::make_unique<Ctl::RecordRing>();
  unsigned long long added = 0, next = 0, reports = 0;
  const auto take = [&] {
    Ctl::RecordRing::Record record;
    if (!ring->Front(&record)) return false;
    const std::string text(record.text, record.length);
    ring->Pop();
    unsigned long long lost = 0;
    const bool isReport = sscanf(text.c_str(), "<44>syslogctl: %llu messages were lost here", &lost) == 1;
    EXPECT_TRUE(isReport || strtoull(text.c_str(), nullptr, 10) == next) << text;
    next += isReport ? lost : 1;
    reports += isReport;
    return true;
  };
  for (int round = 0; round < 40; ++round) {
    for (auto i = random() % 300; i > 0; --i) {
      std::string record = std::to_string(added++);
      record.resize(1 + record.size() + random() % 3000, ' ');
      ring->Add({record.data(), record.size(), false});
    }
    for (auto i = random() % 150; i > 0 && take(); --i) continue;
  }
  while (take()) continue;
  EXPECT_EQ(next, added);
  EXPECT_GT(reports, 3u);
  EXPECT_LT(reports, 60u);
}

}  // namespace
