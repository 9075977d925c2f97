#include "common/LogPrinter.h"

#include "common/GDQUdpBase.h"
#include "tests/unit/CapturedLog.h"
#include "tests/unit/StdoutPipe.h"

namespace {

// Keeps each line as "type|module|text" in `seen`. While a sink exists, the singleton prints nothing.
struct Sink : CapturedLog {
  void Log(ELogMessageType type, const char* module, const char* text) override {
    seen.push_back(std::to_string(type) + "|" + (module != nullptr ? module : "(null)") + "|" + text);
  }
  Lines seen;
};

struct RemotePeer : Velk::GDQUdpBase {
  bool SendMsg(const char* text) override {
    if (talksTo != nullptr) talksTo->Log(Info, "queue", "sends\n");
    sent.emplace_back(text);
    return true;
  }
  std::vector<std::string> sent;
  LogPrinter* talksTo = nullptr;
};

const ELogMessageType kUnknownType = static_cast<ELogMessageType>(7);

TEST(LogPrinter, CutsLongTextForEveryOutletAndAcceptsNulls) {
  Sink sink;
  RemotePeer peer;
  LogPrinter printer(&sink);
  StdoutPipe out;
  LogPrinter::Instance()->SetLogToGDQUdp(&peer);
  EXPECT_TRUE(peer.sent.empty()) << "the notice that remote logging is enabled must not go to the peer";
  LogPrinter::Instance()->SetLogToGDQUdp(nullptr);
  peer.sent.clear();
  printer.SetLogToGDQUdp(&peer);
  out.Read();
  const std::string text(3000, 'x');
  printer.Log(Info, "m", "%s", text.c_str());
  const std::string cut = text.substr(0, LogPrinter::kMaxMessage);
  EXPECT_EQ(sink.seen.back(), "1|m|" + cut);
  EXPECT_EQ(peer.sent.at(0), "logmsg  1 `m` `" + cut + "`");
  const std::string shown = out.Read();
  EXPECT_EQ(shown.substr(shown.find(": ") + 2), cut);

  printer.Log(kUnknownType, "a`b", "%s", "~x`");
  EXPECT_EQ(peer.sent.at(1), "logmsg  7 `a~`b` `~~x~``");
  printer.m_consoleEnabled = false;
  printer.Log(Info, "m", "y");
  EXPECT_EQ(out.Read(), "");
  printer.m_consoleEnabled = true;
  printer.PrintToConsole("Info", nullptr, nullptr);
  printer.LogDebugBegin(nullptr, 1);
  printer.LogDebugEnd("%s", "y");
  EXPECT_EQ(sink.seen.back(), "1|(null)|(1): 4294967295: y");

  // Lines that the queue logs while it sends are not sent.
  peer.talksTo = &printer;
  peer.sent.clear();
  sink.seen.clear();
  for (int i = 0; i < 2; ++i) printer.Log(Info, "m", "x");
  EXPECT_EQ(peer.sent, (Lines(2, "logmsg  1 `m` `x`")));
  EXPECT_EQ(sink.seen, (Lines{"1|queue|sends\n", "1|m|x", "1|queue|sends\n", "1|m|x"}));
}

TEST(LogPrinter, DebugPairGoesToTheSinkElseToStandardError) {
  Sink sink;
  LogPrinter withSink(&sink);
  StdoutPipe out;
  withSink.LogDebugBegin("C:\\src\\dir/main.cpp", 12);
  withSink.LogDebugEnd("%d\n", 5);
  EXPECT_EQ(sink.seen, (Lines{"1|(null)|dir/main.cpp(12): 4294967295: 5\n"}));
  EXPECT_EQ(out.Read(), "");

  LogPrinter bare(nullptr);
  testing::internal::CaptureStderr();
  bare.LogDebugBegin("main.cpp", 3);
  bare.LogDebugEnd("%s", std::string(3000, 'y').c_str());
  const std::string shown = testing::internal::GetCapturedStderr();
  EXPECT_EQ(shown.substr(0, 29), "Info: main.cpp(3): 4294967295");
  EXPECT_EQ(shown.size(), 6u + 2047u);
}

}  // namespace
