#include "client/GDQUdpClient.h"

#include <poll.h>
#include <sys/wait.h>

#include "common/LogPrinter.h"
#include "common/ThreadId.h"
#include "tests/unit/CapturedLog.h"
#include "tests/unit/StubService.h"

using Velk::GDQUdpClient;
using State = GDQUdpClient::State;

namespace {

constexpr unsigned kLongMs = 20000;

std::string Number(size_t number) {
  return "Call " + std::to_string(number);
}

Lines Numbers(unsigned first, unsigned end) {
  Lines lines;
  while (first < end) lines.push_back(Number(first++));
  return lines;
}

bool SendNumbers(GDQUdpClient& client, unsigned first, unsigned end) {
  while (first < end && client.SendMsg(Number(first).c_str())) ++first;
  return first == end;
}

// The lines without repeats: of the copies the first that stands behind the line before.
Lines InOrder(const Lines& lines) {
  Lines ordered;
  for (const std::string& line : lines) {
    if (line == Number(ordered.size())) ordered.push_back(line);
  }
  return ordered;
}

// Gives the client time, as an event loop does, until the condition holds.
template <typename Condition>
bool RunUntil(GDQUdpClient& client, Condition condition) {
  return WaitFor([&] {
    pollfd watched = {client.Descriptor(), POLLIN, 0};
    if (poll(&watched, 1, 5) == 1) client.Process();
    return condition();
  });
}

struct GDQUdpClientTest : testing::Test {
  bool Open(GDQUdpClient& opened) const { return opened.Open(service.Address().c_str(), "mosk", options); }
  bool Join(GDQUdpClient& joined) const {
    return Open(joined) && joined.WaitForAnswer(kLongMs) == State::Joined;
  }

  // Sends numbers, and waits until they are confirmed.
  bool Deliver(unsigned first, unsigned end) {
    return SendNumbers(client, first, end) && client.Flush(kLongMs) == 0;
  }

  StubService service;
  GDQUdpClient client;
  GDQUdpClient::Options options;
};

}  // namespace

TEST_F(GDQUdpClientTest, HoldsCallsUntilTheServiceIsThereAndLeavesNothingBehind) {
  service.Stop();
  EXPECT_EQ(-1, client.Descriptor());
  EXPECT_FALSE(client.SendMsg("x"));
  EXPECT_EQ(EBADF, errno);
  ASSERT_TRUE(Open(client) && SendNumbers(client, 0, 300));
  EXPECT_EQ(300u, client.Flush(150));
  EXPECT_EQ(State::NotJoined, client.GetState());

  ASSERT_TRUE(service.Start());
  EXPECT_EQ(0u, client.Flush(kLongMs));
  EXPECT_EQ(State::Joined, client.GetState());
  EXPECT_EQ(Numbers(0, 300), service.Lines());  // without a fault there are no repeats
  EXPECT_GT(client.HandshakeMicros(), 0u);
  EXPECT_EQ(2u, service.Admitted().size());
  client.Close();
  EXPECT_TRUE(WaitFor([&] { return service.Admitted().empty(); }));
}

TEST_F(GDQUdpClientTest, TellsRefusalFromSilenceAndRubbish) {
  options.waitMs = 0;
  ASSERT_TRUE(client.Open(service.Address().c_str(), "other", options));
  EXPECT_EQ(State::Refused, client.WaitForAnswer(kLongMs));
  EXPECT_TRUE(client.SendMsg("x"));
  EXPECT_EQ(1u, client.Flush(100));
  EXPECT_EQ(0u, client.Joins());
  const unsigned datagrams = service.m_datagrams;
  client.Flush(300);  // must not fill the service's log with its wrong cookies
  EXPECT_EQ(datagrams, service.m_datagrams);

  service.m_answersRubbish = true;
  ASSERT_TRUE(Open(client));
  EXPECT_NE(State::Joined, client.WaitForAnswer(kLongMs));

  EXPECT_FALSE(client.Open("", "mosk"));
  EXPECT_EQ(EHOSTUNREACH, errno);
  for (const char* server : {"127.0.0.1:", "127.0.0.1:0", "127.0.0.1:70000", "127.0.0.1:1x"}) {
    EXPECT_FALSE(client.Open(server, "mosk"));
    EXPECT_EQ(EINVAL, errno) << server;
  }
}

TEST_F(GDQUdpClientTest, TriesOtherPortsWhenARecordIsSharedWithAnotherPeer) {
  ASSERT_TRUE(Join(client));
  service.m_deafPort = *service.Admitted().begin();
  ASSERT_TRUE(Open(client) && Deliver(0, 1));
}

// The service may end with what it has taken but not run.
TEST_F(GDQUdpClientTest, SendsAgainWhatARestartMayHaveLostAndNothingElse) {
  ASSERT_TRUE(Open(client) && Deliver(0, 10));
  ASSERT_TRUE(SendNumbers(client, 10, 20) && WaitFor([&] { return service.Lines().size() == 20; }));
  client.Process();  // all receipts are here
  EXPECT_EQ(10u, client.Held());
  service.Restart(GDQUdpClient::kSettleMs / 2);
  EXPECT_TRUE(RunUntil(client, [&] { return client.Held() == 0; }));
  EXPECT_EQ(Numbers(0, 20), InOrder(service.Lines()));
  const Lines lines = service.Lines();
  EXPECT_EQ(1, std::count(lines.begin(), lines.end(), Number(9)));
  EXPECT_EQ(2u, client.Joins());

  service.Restart(0);
  ASSERT_TRUE(Deliver(20, 21));
  EXPECT_EQ(lines.size() + 1, service.Lines().size());
}

// The service has restarted within one second, so that we have the cookies of before.
TEST_F(GDQUdpClientTest, TakesNoReceiptOfBeforeARestartForOneOfAfter) {
  ASSERT_TRUE(Join(client));
  service.m_holdsReceipts = true;
  ASSERT_TRUE(SendNumbers(client, 0, 3) && WaitFor([&] { return service.Lines().size() == 3; }));
  service.m_losesCalls = true;
  service.Restart(kLongMs);
  ASSERT_TRUE(RunUntil(client, [&] { return client.Joins() == 2; }));
  service.m_holdsReceipts = false;
  EXPECT_EQ(3u, client.Flush(2 * GDQUdpClient::kSettleMs));
  service.m_losesCalls = false;
  EXPECT_EQ(0u, client.Flush(kLongMs));
  EXPECT_EQ(Numbers(0, 3), service.Lines());
}

TEST_F(GDQUdpClientTest, LosesNothingAndKeepsTheOrderThroughEveryFault) {
  service.m_faultPercent = 5;
  constexpr unsigned kCount = 6000;
  std::atomic<bool> isDone{false};
  std::thread restarts([&] {
    for (; !isDone; service.Restart(GDQUdpClient::kSettleMs / 2)) usleep(400000);
  });
  EXPECT_TRUE(Open(client) && SendNumbers(client, 0, kCount));
  isDone = true;
  restarts.join();
  EXPECT_EQ(0u, client.Flush(kLongMs));
  EXPECT_GT(client.Joins(), 1u);
  EXPECT_EQ(Numbers(0, kCount), InOrder(service.Lines()));
}

TEST_F(GDQUdpClientTest, WaitsForRoomOrNotAsAsked) {
  service.Stop();
  options.waitMs = 0;
  options.heldLines = 16;
  ASSERT_TRUE(Open(client));
  EXPECT_TRUE(SendNumbers(client, 0, 16));
  EXPECT_FALSE(client.SendMsg("x"));
  EXPECT_EQ(EAGAIN, errno);
  const std::string longest(GDQUdpClient::kMaxTaggedText, 'x');
  EXPECT_FALSE(client.SendMsg((longest + "x").c_str()));
  EXPECT_EQ(EMSGSIZE, errno);

  options.waitMs = 60;
  ASSERT_TRUE(Open(client));
  EXPECT_TRUE(client.SendMsg(longest.c_str()));
  const auto begin = StubService::Clock::now();
  while (client.SendMsg(longest.c_str())) continue;
  EXPECT_GE(StubService::Clock::now() - begin, std::chrono::milliseconds(60));
  ASSERT_TRUE(service.Start());
  EXPECT_EQ(0u, client.Flush(kLongMs));
  EXPECT_EQ(longest, service.Lines().at(0));
}

TEST_F(GDQUdpClientTest, SendsOnceWhenNotReliable) {
  options.reliable = false;
  ASSERT_TRUE(Open(client) && Deliver(0, 50));
  EXPECT_TRUE(WaitFor([&] { return service.Lines() == Numbers(0, 50); }));
  EXPECT_EQ(1u, service.Admitted().size());
  EXPECT_EQ(0u, client.Probe());
  service.Stop();
  client.SendMsg("x");  // is refused, which tells of the restart
  ASSERT_TRUE(service.Start() && Deliver(0, 5));
  EXPECT_TRUE(WaitFor([&] { return service.Lines().size() >= 5; }));
}

TEST_F(GDQUdpClientTest, TakesNullForAnEmptyText) {
  ASSERT_TRUE(Join(client));
  client.Call("SyncLog", nullptr);
  client.Call(nullptr, "SyncVar");
  EXPECT_EQ(0u, client.Flush(kLongMs));
  EXPECT_EQ((Lines{"SyncLog", " SyncVar"}), service.Lines());
}

TEST_F(GDQUdpClientTest, UsesTheSamePortsForAnyNumberOfRuns) {
  for (int run = 0; run < 40; ++run) {
    GDQUdpClient one;
    ASSERT_TRUE(Join(one));
  }
  EXPECT_LE(service.m_connectPorts, 2 * Velk::PeerSocket::kPorts);

  // More at the same time than there are ports.
  std::deque<GDQUdpClient> clients(Velk::PeerSocket::kPorts + 1);
  for (GDQUdpClient& each : clients) ASSERT_TRUE(Open(each));
  for (GDQUdpClient& each : clients) EXPECT_EQ(State::Joined, each.WaitForAnswer(kLongMs));
}

TEST_F(GDQUdpClientTest, HearsTheCallsOfOthersAndItsProbesOnly) {
  options.reliable = false;
  options.listen = true;
  Lines heard, expected{"Name|args ", "Alone|"};
  const auto onCall = [](const char* name, const char* args, void* user) {
    static_cast<Lines*>(user)->push_back(std::string(name) + "|" + args);
  };
  const auto onTrip = [](unsigned id, unsigned micros, void* user) {
    static_cast<Lines*>(user)->push_back((micros < kLongMs * 1000 ? "" : "late ") + std::to_string(id));
  };
  client.SetCallHandler(onCall, &heard);
  client.SetProbeHandler(onTrip, &heard);
  ASSERT_TRUE(Open(client) && RunUntil(client, [&] { return client.GetState() == State::Joined; }));
  GDQUdpClient other;
  options = {};
  ASSERT_TRUE(Join(other));  // its probe is heard, and is no call
  (client << "Own" << 1).CallObj();
  service.Call("  Name\targs ");
  service.Call("Alone");
  for (int i = 0; i < 3; ++i) expected.push_back(std::to_string(client.Probe()));
  client.Flush(50);  // hears, but must not deliver
  EXPECT_EQ(Lines{}, heard);
  EXPECT_TRUE(RunUntil(client, [&] { return heard.size() == 5; }));
  EXPECT_EQ(expected, heard);

  // A listener finds out by itself that it was forgotten, and hears on.
  service.Restart(0);
  EXPECT_TRUE(RunUntil(client, [&] { return client.Joins() == 2; }));
  service.Call("Again");
  EXPECT_TRUE(RunUntil(client, [&] { return heard.back() == "Again|"; }));
}

TEST_F(GDQUdpClientTest, ServesManyThreadsWithOneOfItsOwn) {
  options.heldLines = 64;
  ASSERT_TRUE(Open(client) && client.StartThread());
  constexpr unsigned kThreads = 4, kEach = 40;
  InThreads(kThreads, [&](unsigned thread) {
    for (unsigned line = 0; line < kEach; ++line)
      client.SendMsg((std::to_string(thread) + " " + std::to_string(line)).c_str());
  });
  EXPECT_TRUE(WaitFor([&] { return client.Held() == 0; }));  // nobody else gives it time
  unsigned next[kThreads] = {};
  for (const std::string& line : service.Lines()) {
    const unsigned thread = static_cast<unsigned>(line[0] - '0');
    if (line.substr(2) == std::to_string(next[thread])) ++next[thread];
  }
  for (const unsigned count : next) EXPECT_EQ(kEach, count);
}

TEST_F(GDQUdpClientTest, WorksInAChildProcessBesideItsParent) {
#ifdef __SANITIZE_THREAD__
  GTEST_SKIP() << "threads of a child of threads are unknown here";
#endif
  ASSERT_TRUE(Open(client) && client.StartThread() && client.SendMsg("before"));
  EXPECT_EQ(getpid(), Velk::ThreadId());
  for (const bool opensAgain : {false, true}) {
    const pid_t child = fork();
    if (child == 0) {
      alarm(60);
      if (Velk::ThreadId() != getpid()) _exit(3);
      if (!opensAgain) _exit(client.SendMsg("child") && client.Flush(kLongMs) == 0 ? 0 : 1);
      const bool isFine = Open(client) && client.StartThread();
      _exit(isFine && WaitFor([&] { return client.Joins() == 1; }) ? 0 : 2);
    }
    int status = -1;
    waitpid(child, &status, 0);
    EXPECT_EQ(0, status);
  }
  EXPECT_TRUE(client.SendMsg("parent"));
  EXPECT_EQ(0u, client.Flush(kLongMs));
  Lines lines = service.Lines();
  std::sort(lines.begin(), lines.end());
  EXPECT_EQ((Lines{"before", "child", "parent"}), lines);
  EXPECT_EQ(1u, client.Joins());
}

TEST_F(GDQUdpClientTest, CarriesTheWholeLogOfAProgram) {
  CapturedLog log(false);
  ASSERT_TRUE(Open(client));
  LogPrinter printer(nullptr);
  printer.m_consoleEnabled = false;
  printer.SetLogToGDQUdp(&client);
  printer.Log(Warning, "net", "link `%s` down\n", "eth0");
  printer.Log(Info, "big", "%s\n", std::string(2000, 'a').c_str());
  EXPECT_EQ(0u, client.Flush(kLongMs));
  const Lines lines = service.Lines();
  ASSERT_EQ(3u, lines.size());
  EXPECT_EQ("logmsg  2 `net` `link ~`eth0~` down\n`", lines[0]);
  EXPECT_EQ("LogMsg 1 `big` `", lines[1].substr(0, 16));
  EXPECT_EQ(2000, std::count(lines[1].begin(), lines[1].end(), 'a') +
                      std::count(lines[2].begin(), lines[2].end(), 'a'));
  client.Close();
  printer.Log(Info, "late", "must do no harm\n");
}
