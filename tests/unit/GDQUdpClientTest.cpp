#include "client/GDQUdpClient.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/timerfd.h>
#include <sys/wait.h>

#include "client/ClientThread.h"
#include "common/LogPrinter.h"
#include "tests/unit/CapturedLog.h"
#include "tests/unit/StubService.h"

using Velk::GDQUdpClient;
using State = GDQUdpClient::State;

namespace {

constexpr unsigned kLongMs = 20000;

std::string CallText(size_t number) {
  return "Call " + std::to_string(number);
}

Lines Calls(unsigned first, unsigned end) {
  Lines lines;
  while (first < end) lines.push_back(CallText(first++));
  return lines;
}

bool SendCalls(GDQUdpClient& client, unsigned first, unsigned end) {
  while (first < end && client.SendMsg(CallText(first).c_str())) ++first;
  return first == end;
}

// Runs the client, as an event loop does, until the condition holds.
template <typename Condition>
bool RunUntil(GDQUdpClient& client, Condition condition) {
  return WaitFor([&] {
    pollfd watched = {client.Descriptor(), POLLIN, 0};
    if (poll(&watched, 1, 5) == 1) client.Process();
    return condition();
  });
}

// Whether the condition holds in a child process.
template <typename Condition>
bool HoldsInChild(Condition condition) {
  const pid_t child = fork();
  if (child == 0) {
    alarm(60);
    _exit(condition() ? 0 : 1);
  }
  int status = -1;
  waitpid(child, &status, 0);
  return status == 0;
}

struct GDQUdpClientTest : testing::Test {
  bool Open(GDQUdpClient& opened) const { return opened.Open(service.Address().c_str(), "mosk", options); }

  // Sends calls and flushes them.
  bool Deliver(unsigned first, unsigned end) {
    return SendCalls(client, first, end) && client.Flush(kLongMs) == 0;
  }

  StubService service;
  GDQUdpClient client;
  GDQUdpClient::Options options;
};

}  // namespace

TEST_F(GDQUdpClientTest, HoldsCallsUntilTheServiceStartsAndLeavesItWhenClosed) {
  service.Stop();
  EXPECT_EQ(-1, client.Descriptor());
  EXPECT_FALSE(client.SendMsg("x"));
  EXPECT_EQ(EBADF, errno);
  ASSERT_TRUE(Open(client) && SendCalls(client, 0, 300));
  EXPECT_EQ(300u, client.Flush(150));
  EXPECT_EQ(State::NotJoined, client.GetStatus().state);

  ASSERT_TRUE(service.Start());
  EXPECT_EQ(0u, client.Flush(kLongMs));
  EXPECT_EQ(State::Joined, client.GetStatus().state);
  EXPECT_EQ(Calls(0, 300), service.Ran());
  EXPECT_EQ(1u, service.m_connects);
  EXPECT_EQ(1u, service.Admitted().size());
  client.Close();
  EXPECT_TRUE(WaitFor([&] { return service.Admitted().empty(); }));
}

TEST_F(GDQUdpClientTest, ReportsMissingAcksAndThenSendsOnce) {
  options.waitMs = 0;
  ASSERT_TRUE(client.Open(service.Address().c_str(), "other", options) && client.SendMsg("x"));
  EXPECT_TRUE(RunUntil(client, [&] { return client.GetStatus().state == State::Unanswered; }));
  EXPECT_EQ(1u, client.GetStatus().held);
  EXPECT_LE(service.m_wrongCookies, 6u);  // each makes a line in a real service's log

  service.m_knowsAcks = false;
  ASSERT_TRUE(Open(client) && SendCalls(client, 0, 3));
  EXPECT_EQ(3u, client.Flush(kLongMs));
  EXPECT_EQ(State::Unanswered, client.GetStatus().state);
  EXPECT_EQ(3u, client.GetStatus().sentOnce);
  EXPECT_EQ(0u, client.Flush(0));
  EXPECT_TRUE(WaitFor([&] {
    const Lines lines = service.Ran();
    return lines.size() > 3 && Lines(lines.end() - 3, lines.end()) == Calls(0, 3);
  }));
  service.Stop();
  client.SendMsg("x");
  EXPECT_TRUE(RunUntil(client, [&] { return client.GetStatus().state == State::NotJoined; }));
  ASSERT_TRUE(service.Start());
  EXPECT_TRUE(RunUntil(client, [&] { return client.GetStatus().state == State::Unanswered; }));

  service.m_answersRubbish = true;
  ASSERT_TRUE(Open(client));
  client.SendMsg("x");
  EXPECT_NE(0u, client.Flush(300));

  EXPECT_FALSE(client.Open("", "mosk"));
  EXPECT_EQ(EHOSTUNREACH, errno);
  for (const char* server : {"127.0.0.1:", "127.0.0.1:0", "127.0.0.1:70000", "127.0.0.1:1x"}) {
    EXPECT_FALSE(client.Open(server, "mosk"));
    EXPECT_EQ(EINVAL, errno) << server;
  }
}

TEST_F(GDQUdpClientTest, TriesOtherPortsWhenItsCookieNeverMatches) {
  ASSERT_TRUE(Open(client) && Deliver(0, 1));
  service.m_deafPort = *service.Admitted().begin();
  ASSERT_TRUE(Open(client) && Deliver(1, 2));
}

TEST_F(GDQUdpClientTest, RetransmitsOnlyUnacknowledgedCalls) {
  ASSERT_TRUE(Open(client) && Deliver(0, 10));
  service.m_isBlocked = true;
  ASSERT_TRUE(SendCalls(client, 10, 20));
  client.Flush(50);
  service.Forget();
  service.m_isBlocked = false;
  ASSERT_TRUE(Deliver(20, 30));
  EXPECT_EQ(Calls(0, 30), service.Ran());
  EXPECT_EQ(1u, client.GetStatus().forgotten);
  client.SendMsg("Unknown");
  client.SendMsg("");
  EXPECT_EQ(0u, client.Flush(kLongMs));
  EXPECT_EQ(1u, client.GetStatus().refused);
}

TEST_F(GDQUdpClientTest, BlocksForRoomOnlyIfAsked) {
  service.Stop();
  options.waitMs = 0;
  options.heldLines = 16;
  ASSERT_TRUE(Open(client));
  EXPECT_TRUE(SendCalls(client, 0, 16));
  EXPECT_FALSE(client.SendMsg("x"));
  EXPECT_EQ(EAGAIN, errno);
  const std::string longest(GDQUdpClient::kMaxCall, 'x');
  EXPECT_FALSE(client.SendMsg((longest + "x").c_str()));
  EXPECT_EQ(EMSGSIZE, errno);

  options.waitMs = 60;
  ASSERT_TRUE(Open(client));
  EXPECT_TRUE(client.SendMsg(longest.c_str()));
  const auto begin = std::chrono::steady_clock::now();
  while (client.SendMsg(longest.c_str())) continue;
  EXPECT_GE(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(60));
  ASSERT_TRUE(service.Start());
  EXPECT_EQ(0u, client.Flush(kLongMs));
  EXPECT_EQ(longest, service.Ran().at(0));
}

TEST_F(GDQUdpClientTest, SendsOnceWhenNotReliable) {
  options.reliable = false;
  ASSERT_TRUE(Open(client) && Deliver(0, 50));
  EXPECT_TRUE(WaitFor([&] { return service.Ran() == Calls(0, 50); }));
  service.Stop();
  client.SendMsg("x");  // ECONNREFUSED makes the client join again
  ASSERT_TRUE(service.Start() && Deliver(50, 55));
  EXPECT_TRUE(WaitFor([&] { return service.Ran().size() >= 55; }));
}

TEST_F(GDQUdpClientTest, UsesTheSamePortsForAnyNumberOfRuns) {
  for (int run = 0; run < 40; ++run) {
    GDQUdpClient one;
    ASSERT_TRUE(Open(one) && one.SendMsg("x") && one.Flush(kLongMs) == 0);
  }
  EXPECT_LE(service.m_connectPorts, Velk::PeerSocket::kPorts);

  // More clients at the same time than ports.
  std::deque<GDQUdpClient> clients(Velk::PeerSocket::kPorts + 1);
  for (GDQUdpClient& each : clients) ASSERT_TRUE(Open(each) && each.SendMsg("x"));
  for (GDQUdpClient& each : clients) EXPECT_EQ(0u, each.Flush(kLongMs));
}

TEST_F(GDQUdpClientTest, HearsOnlyTheCallsOfOthers) {
  struct Ear final : Velk::GDOBase {
    void Call(const char* name, const char* args) override {
      heard.push_back(std::string(name) + "|" + args);
    }
    Lines heard;
  } ear;
  options.listen = true;
  client.AddListener(&ear);
  ASSERT_TRUE(Open(client) && RunUntil(client, [&] { return service.Admitted().size() == 1; }));
  client.SendMsg("Own 1");
  service.Call("  Name\targs ");
  service.Call("Alone");
  client.Flush(50);  // receives calls, but must not deliver them
  EXPECT_EQ(Lines{}, ear.heard);
  EXPECT_TRUE(RunUntil(client, [&] { return ear.heard.size() == 2; }));
  EXPECT_EQ((Lines{"Name|args ", "Alone|"}), ear.heard);

  // The client notices by itself that it was forgotten, and joins again.
  service.Forget();
  EXPECT_TRUE(RunUntil(client, [&] { return client.GetStatus().forgotten == 1; }));
  service.Call("Again");
  EXPECT_TRUE(RunUntil(client, [&] { return ear.heard.back() == "Again|"; }));
}

TEST_F(GDQUdpClientTest, ServesManyThreadsWithItsOwn) {
  options.heldLines = 64;
  Velk::ClientThread thread;
  ASSERT_TRUE(Open(client) && thread.Start(&client));
  constexpr unsigned kThreads = 4, kEach = 400;
  InThreads(kThreads, [&](unsigned sender) {
    for (unsigned line = 0; line < kEach; ++line)
      client.SendMsg((std::to_string(sender) + " " + std::to_string(line)).c_str());
  });
  EXPECT_TRUE(WaitFor([&] { return client.GetStatus().held == 0; }));  // only ClientThread calls Process()
  unsigned next[kThreads] = {};
  for (const std::string& line : service.Ran()) {
    const unsigned sender = static_cast<unsigned>(line[0] - '0');
    EXPECT_EQ(std::to_string(next[sender]++), line.substr(2));
  }
  for (const unsigned count : next) EXPECT_EQ(kEach, count);
}

TEST_F(GDQUdpClientTest, HoldsNoLockAfterAThreadIsCancelled) {
#ifdef __SANITIZE_ADDRESS__
  GTEST_SKIP() << "the sanitizer treats a cancelled thread's frames as still in use";
#endif
  service.Stop();
  options.heldLines = 16;
  ASSERT_TRUE(Open(client) && SendCalls(client, 0, 16));
  for (int round = 0; round < 20; ++round) {
    pthread_t sender;
    const auto block = [](void* opened) -> void* {
      static_cast<GDQUdpClient*>(opened)->SendMsg("x");  // blocks until there is room
      return nullptr;
    };
    ASSERT_EQ(0, pthread_create(&sender, nullptr, block, &client));
    usleep(static_cast<useconds_t>(round * 300));
    pthread_cancel(sender);
    pthread_join(sender, nullptr);
    EXPECT_EQ(16u, client.GetStatus().held);
  }
}

TEST_F(GDQUdpClientTest, BelongsToTheProcessThatOpenedIt) {
#ifdef __SANITIZE_THREAD__
  GTEST_SKIP() << "the sanitizer does not support threads in a forked child";
#endif
  Velk::ClientThread thread;
  ASSERT_TRUE(Open(client) && thread.Start(&client) && client.SendMsg("before"));
  EXPECT_EQ(0u, client.Flush(kLongMs));
  const unsigned connects = service.m_connects;
  EXPECT_TRUE(HoldsInChild([&] {
    thread.Stop();
    client.Close();
    return true;
  }));
  EXPECT_TRUE(client.SendMsg("during") && client.Flush(kLongMs) == 0);
  EXPECT_EQ(connects, service.m_connects);  // the child has not ended its parent's admission
  EXPECT_TRUE(HoldsInChild([&] {
    const bool isRefused = !client.SendMsg("child") && errno == EPERM && client.Descriptor() == -1;
    client.Process();
    client.Close();
    GDQUdpClient own;
    const bool isFine = Open(own) && thread.Start(&own) && own.SendMsg("own") &&
                        WaitFor([&] { return own.GetStatus().held == 0; });
    thread.Stop();
    return isRefused && isFine && client.SendMsg("closed") == false && errno == EBADF;
  }));
  EXPECT_TRUE(client.SendMsg("parent"));
  EXPECT_EQ(0u, client.Flush(kLongMs));
  Lines lines = service.Ran();
  std::sort(lines.begin(), lines.end());
  EXPECT_EQ((Lines{"before", "during", "own", "parent"}), lines);
  EXPECT_EQ(0u, client.GetStatus().forgotten);
}

// A program may close and replace the standard descriptors.
TEST_F(GDQUdpClientTest, UsesNoStandardDescriptor) {
  EXPECT_TRUE(HoldsInChild([&] {
    for (int fd = 0; fd <= STDERR_FILENO; ++fd) close(fd);
    GDQUdpClient own;
    bool isFree = Open(own);
    for (int fd = 0; fd <= STDERR_FILENO; ++fd) isFree = isFree && fcntl(fd, F_GETFD) < 0;
    return isFree;
  }));
}

namespace {

// Returns the descriptors that the operation opens, in ascending order.
template <typename Operation>
std::vector<int> DescriptorsOf(Operation operation) {
  const auto isOpen = [](int fd) { return fcntl(fd, F_GETFD) >= 0; };
  std::set<int> before;
  for (int fd = 0; fd < 200; ++fd) {
    if (isOpen(fd)) before.insert(fd);
  }
  EXPECT_TRUE(operation());
  std::vector<int> opened;
  for (int fd = 0; fd < 200; ++fd) {
    if (isOpen(fd) && before.count(fd) == 0) opened.push_back(fd);
  }
  return opened;
}

// Replaces descriptors of the client with the program's own: connected sockets with unread input, or running
// timers.
class Strangers {
 public:
  Strangers(const std::vector<int>& numbers, bool areTimers) : m_numbers(numbers), m_areTimers(areTimers) {
    EXPECT_EQ(0, socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, m_pair));
    EXPECT_EQ(4, write(m_pair[1], "mine", 4));
    m_timer = timerfd_create(CLOCK_MONOTONIC, TFD_CLOEXEC);
    itimerspec hour{};
    hour.it_value.tv_sec = 3600;
    timerfd_settime(m_timer, 0, &hour, nullptr);
    for (const int fd : m_numbers) EXPECT_EQ(fd, dup2(areTimers ? m_timer : m_pair[0], fd));
  }
  ~Strangers() {
    for (const int fd : m_numbers) close(fd);
    for (const int fd : {m_pair[0], m_pair[1], m_timer}) close(fd);
  }

  void HangUp() const { shutdown(m_pair[1], SHUT_RDWR); }

  // Whether none of the program's descriptors was closed, written, read or set.
  bool AreUntouched() const {
    char text[8];
    itimerspec left{};
    for (const int fd : m_numbers) {
      struct stat now, then;
      if (fstat(fd, &now) != 0 || fstat(m_areTimers ? m_timer : m_pair[0], &then) != 0) return false;
      if (now.st_ino != then.st_ino) return false;
    }
    return recv(m_pair[0], text, sizeof text, MSG_PEEK | MSG_DONTWAIT) == 4 &&
           recv(m_pair[1], text, sizeof text, MSG_PEEK | MSG_DONTWAIT) < 0 &&
           timerfd_gettime(m_timer, &left) == 0 && left.it_value.tv_sec > 3000;
  }

 private:
  std::vector<int> m_numbers;
  bool m_areTimers;
  int m_pair[2];
  int m_timer;
};

}  // namespace

TEST(PeerSocket, NeitherBlocksNorDiesOnAFileThatReplacedItsSocket) {
  signal(SIGPIPE, SIG_DFL);  // would end the test
  Velk::Readiness readiness;
  Velk::PeerSocket socket(GDQUdpClient::kFirstLocalPort, readiness);
  ASSERT_TRUE(readiness.Open() && socket.Open(InetAddress2(INADDR_LOOPBACK, 9)));
  const std::string nonce(Velk::PeerSocket::kCookieSize, 'n');
  ASSERT_TRUE(socket.TakeNonce(nonce.c_str(), "mosk"));
  const Strangers strangers({socket.Descriptor()}, false);
  char datagram[100];
  EXPECT_EQ(4, socket.Receive(datagram, sizeof datagram));
  EXPECT_EQ(-1, socket.Receive(datagram, sizeof datagram));
  for (int sent = 0; socket.Send("", 0, "x", 1); ++sent) ASSERT_LT(sent, 100000);
  EXPECT_EQ(EAGAIN, errno);
  socket.SendConnect();
  strangers.HangUp();
  socket.SendConnect();
  EXPECT_FALSE(socket.Send("", 0, "x", 1));
}

// As when a program becomes a daemon after it opened the client.
TEST_F(GDQUdpClientTest, DoesNotTouchDescriptorsThatReplacedItsOwn) {
  unsigned next = 0;
  for (unsigned round = 0; round < 12; ++round) {
    std::vector<int> own = DescriptorsOf([&] { return Open(client); });
    ASSERT_TRUE(Deliver(next, next + 1));
    ASSERT_LE(own.size(), 5u);
    const unsigned which = round / 2;  // one of the descriptors, or all
    if (which < own.size()) own = {own[which]};
    const Strangers strangers(own, round % 2 == 0);
    EXPECT_TRUE(HoldsInChild([&] {
      client.Close();
      return strangers.AreUntouched();
    }));
    EXPECT_TRUE(Deliver(next + 1, next + 3)) << round;
    client.Process();
    EXPECT_TRUE(SendCalls(client, next + 3, next + 4));
    EXPECT_TRUE(RunUntil(client, [&] { return client.GetStatus().held == 0; })) << round;
    EXPECT_TRUE(strangers.AreUntouched()) << round;
    client.Close();
    EXPECT_TRUE(strangers.AreUntouched()) << round;
    next += 4;
  }
  EXPECT_EQ(Calls(0, next), service.Ran());
}

TEST_F(GDQUdpClientTest, IdlesAfterAProgramClosedItsDescriptors) {
#ifdef __SANITIZE_THREAD__
  GTEST_SKIP() << "the sanitizer reports the close of a descriptor that another thread polls";
#endif
  const auto usedMs = [] {
    timespec used{};
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &used);
    return used.tv_sec * 1000 + used.tv_nsec / 1000000;
  };
  for (unsigned round = 0; round < 4; ++round) {
    Velk::ClientThread thread;
    std::vector<int> own = DescriptorsOf([&] { return Open(client) && thread.Start(&client); });
    ASSERT_TRUE(Deliver(round, round + 1));
    usleep(20000);  // until the thread only polls: a program must not close what an operation uses
    if (round % 2 == 0) own.resize(1);
    const Strangers strangers(own, false);
    const bool areClosed = round < 2;
    // The thread's poll(2) still holds the file that the stranger replaced. Acknowledgements end the poll, so
    // that the thread sees the stranger before the loop below closes it.
    for (int i = 0; areClosed && i < 200; ++i) EXPECT_TRUE(client.SendMsg("x"));
    for (const int fd : own) {
      if (areClosed) close(fd);
    }
    usleep(20000);  // time for the thread to notice
    if (areClosed) {
      for (const int fd : own) EXPECT_LT(fcntl(fd, F_GETFD), 0) << round;
    }
    EXPECT_TRUE(SendCalls(client, round + 1, round + 2));
    const auto begin = usedMs();
    usleep(500000);
    EXPECT_LT(usedMs() - begin, 100) << round;
    EXPECT_TRUE(WaitFor([&] { return client.GetStatus().held == 0; })) << round;  // the client's thread sends
    thread.Stop();
    client.Close();
    EXPECT_TRUE(areClosed || strangers.AreUntouched()) << round;
  }
}

TEST_F(GDQUdpClientTest, CarriesTheWholeLogOfAProgram) {
  CapturedLog log(false);
  ASSERT_TRUE(Open(client));
  LogPrinter printer(nullptr);
  printer.m_consoleEnabled = false;
  printer.SetLogToGDQUdp(&client);
  printer.Log(Warning, "net", "link `%s` down\n", "eth0");
  printer.Log(Info, "big", "%s\n", std::string(2000, '~').c_str());
  client.Call("SyncLog", nullptr);
  client.Call(nullptr, "SyncVar");
  EXPECT_EQ(0u, client.Flush(kLongMs));
  const Lines lines = service.Ran();
  ASSERT_EQ(6u, lines.size());
  EXPECT_EQ("logmsg  2 `net` `link ~`eth0~` down\n`", lines[0]);
  for (int i = 1; i < 4; ++i) EXPECT_EQ("logmsg  1 `big` `~", lines[i].substr(0, 18));
  EXPECT_EQ((Lines{"SyncLog ", " SyncVar"}), Lines(lines.begin() + 4, lines.end()));
  client.Close();
  printer.Log(Info, "late", "must do no harm\n");
}
