#include "common/GDQUdpSrv.h"

#include <gtest/gtest.h>
#include <signal.h>
#include <string.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <random>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "common/HashMD5.h"
#include "tests/unit/CapturedLog.h"

using Velk::GDQUdpSrv;

namespace {

constexpr unsigned long kLoopback = INADDR_LOOPBACK;
constexpr unsigned long kClientHost = 0x7F010203;  // loopback too, but nobody else's
using Lines = std::vector<std::string>;
using Calls = std::vector<std::pair<std::string, std::string>>;

std::string Md5(const std::string& bytes) {
  Velk::HashMD5 md5;
  unsigned char digest[16];
  md5.AddBinary(bytes.data(), bytes.size());
  md5.GetDigest(digest);
  return std::string(reinterpret_cast<char*>(digest), sizeof digest);
}

std::string Hex(const std::string& bytes) {
  std::string text;
  char piece[4];
  for (const char byte : bytes) {
    snprintf(piece, sizeof piece, " %2.2x", static_cast<unsigned>(static_cast<unsigned char>(byte)));
    text += piece;
  }
  return text;
}

std::string FromHex(const std::string& text) {
  std::string bytes;
  for (size_t at = 0; at + 2 < text.size(); at += 3)
    bytes += static_cast<char>(std::stoi(text.substr(at, 3), nullptr, 16));
  return bytes;
}

InetAddress2 Loopback(unsigned short port) {
  return InetAddress2(static_cast<long>(kLoopback), port);
}

// Lets the server see one datagram, in a buffer just large enough for it.
void Give(GDQUdpSrv& server, const InetAddress2& from, const std::string& datagram) {
  std::vector<unsigned char> packet(datagram.begin(), datagram.end());
  packet.push_back(0xFF);
  server.HandleDatagram(from, packet.data(), static_cast<int>(datagram.size()));
}

// Opens the socket on a port that was free just now.
unsigned short OpenOnFreePort(GDQUdpSrv& server, const char* password) {
  static unsigned short port = static_cast<unsigned short>(20000 + getpid() % 10000);
  while (!server.Open(password, ++port)) EXPECT_LT(port, 40000);
  return port;
}

// One remote program, on the real network's loopback.
class Client {
 public:
  explicit Client(unsigned short port, unsigned long ip = kClientHost)
      : m_address(static_cast<long>(ip), port) {
    m_isBound = m_socket.Open() && m_socket.Bind(port, ip);
  }

  bool IsBound() const { return m_isBound; }
  const InetAddress2& Address() const { return m_address; }

  // What has arrived; "(nothing)" when nothing has. Loopback delivers before the sender's call returns.
  std::string Receive(unsigned long waitMs = 0) {
    char bytes[2000];
    if (m_socket.WaitForRead(waitMs) != 1) return "(nothing)";
    return std::string(bytes, static_cast<size_t>(m_socket.Read(bytes, sizeof bytes, nullptr)));
  }

  // Asks for a nonce and remembers the cookie that belongs to it.
  void Connect(GDQUdpSrv& server, const std::string& password) {
    Give(server, m_address, "CONN");
    m_cookie = Md5(Receive() + password);
  }

  void Join(GDQUdpSrv& server, const std::string& password) {
    Connect(server, password);
    Give(server, m_address, m_cookie);
  }

  const std::string& Cookie() const { return m_cookie; }
  UdpSocket3& Socket() { return m_socket; }

 private:
  UdpSocket3 m_socket;
  InetAddress2 m_address;
  std::string m_cookie;
  bool m_isBound = false;
};

class Listener : public Velk::GDOBase {
 public:
  void Call(const char* name, const char* args) override { m_calls.emplace_back(name, args); }
  Calls Take() { return std::move(m_calls); }
  virtual ~Listener() = default;

 private:
  Calls m_calls;
};

}  // namespace

TEST(GDQUdpSrv, AdmitsWhoProvesToKnowThePassword) {
  CapturedLog log(true);
  GDQUdpSrv server;
  OpenOnFreePort(server, "mosk");
  Client client(41001, 0x7F000203);
  ASSERT_TRUE(client.IsBound());
  Give(server, client.Address(), "conn");
  Give(server, client.Address(), std::string(16, 'c'));
  EXPECT_EQ(Lines{}, log.Take());  // neither a Connect nor a known sender

  const time_t before = time(nullptr);
  Give(server, client.Address(), "CONN");
  const std::string nonce = client.Receive();
  std::string expected;
  for (time_t t = before; t <= time(nullptr) && nonce != expected; ++t) {
    std::string seed;
    for (const int shift : {0, 8, 16, 24}) seed += static_cast<char>(t >> shift & 0xFF);
    expected = Md5(seed + "\x03\x02" + '\0' + "\x7F" + "\x29\xA0");
  }
  EXPECT_EQ(Hex(expected), Hex(nonce));
  const std::string cookie = Md5(nonce + "mosk");
  EXPECT_EQ((Lines{"0:srv nonce:" + Hex(nonce) + "\n", "0:cookie:" + Hex(cookie) + "\n",
                   "1:srv wrote 16 to 0x7f000203:41001...\n"}),
            log.Take());

  Listener listener;
  server.AddListener(&listener);
  const std::string wrong = cookie.substr(0, 15) + static_cast<char>(cookie[15] ^ 1);
  Give(server, client.Address(), wrong + "Name args");
  EXPECT_EQ((Lines{"3:Cookies do not match:", "0:expected cookie:" + Hex(cookie) + "\n",
                   "0:received cookie:" + Hex(wrong) + "\n"}),
            log.Take());
  Give(server, client.Address(), cookie.substr(0, 15));
  server.SendMsg("");
  EXPECT_EQ("(nothing)", client.Receive());

  Give(server, client.Address(), cookie);
  server.SendMsg("");
  EXPECT_EQ(cookie, client.Receive());
  EXPECT_EQ(Calls{}, listener.Take());
  Give(server, client.Address(), cookie + "Name args");
  EXPECT_EQ((Calls{{"Name", "args"}}), listener.Take());

  client.Connect(server, "mosk");
  server.SendMsg("");
  EXPECT_EQ("(nothing)", client.Receive());  // has to prove it again
}

TEST(GDQUdpSrv, KeepsThePasswordOnlyWhenItListens) {
  CapturedLog log(true);
  GDQUdpSrv blocker, server;
  const unsigned short port = OpenOnFreePort(blocker, "");
  blocker.Close();
  const int fd = socket(AF_INET, SOCK_DGRAM, 0);
  const sockaddr_in address = Loopback(port).Native();
  ASSERT_EQ(0, bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address));
  EXPECT_FALSE(server.Open("mosk", port));
  close(fd);
  server.HandleConnect(Loopback(9));
  const Lines lines = log.Take();
  const std::string nonce = FromHex(lines[0].substr(12));
  EXPECT_EQ("0:cookie:" + Hex(Md5(nonce)) + "\n", lines[1]);
}

TEST(GDQUdpSrv, RelaysUnderEachReceiversCookieAndNeverToTheSender) {
  CapturedLog log(false);
  GDQUdpSrv server;
  OpenOnFreePort(server, "mosk");
  Listener first, second;
  server.AddListener(&first);
  server.AddListener(&second);
  server.AddListener(&first);
  Client a(41011), b(41012), c(41013), stranger(41014);
  for (Client* client : {&a, &b, &c}) client->Join(server, "mosk");
  stranger.Connect(server, "mosk");

  const std::string text = "  LogMsg\t2 'net' 'link down'";
  Give(server, a.Address(), a.Cookie() + text);
  EXPECT_EQ("(nothing)", a.Receive());
  EXPECT_EQ(b.Cookie() + text, b.Receive());
  EXPECT_EQ(c.Cookie() + text, c.Receive());
  EXPECT_EQ("(nothing)", stranger.Receive());
  EXPECT_EQ((Calls{{"LogMsg", "2 'net' 'link down'"}}), first.Take());
  EXPECT_EQ((Calls{{"LogMsg", "2 'net' 'link down'"}}), second.Take());
}

TEST(GDQUdpSrv, SplitsNameAndArguments) {
  CapturedLog log(false);
  GDQUdpSrv server;
  OpenOnFreePort(server, "p");
  Listener listener;
  server.AddListener(&listener);
  Client client(41021);
  client.Join(server, "p");
  const struct {
    std::string text;
    const char* name;
    const char* args;
  } rows[] = {
      {"a", "a", ""},           {"a ", "a", ""},     {"\n\v a\rb ", "a", "b "},
      {"a  b c", "a", " b c"},  {" \t", "", ""},     {"\xE4\xA0 x", "\xE4\xA0", "x"},
      {{"a\0b c", 5}, "a", ""}, {{"\0", 1}, "", ""}, {{"a b\0c", 5}, "a", "b"},
  };
  for (const auto& row : rows) {
    Give(server, client.Address(), client.Cookie() + row.text);
    EXPECT_EQ((Calls{{row.name, row.args}}), listener.Take()) << row.text;
  }
}

TEST(GDQUdpSrv, SendsTextsThatFitIntoADatagram) {
  CapturedLog log(false);
  GDQUdpSrv server;
  OpenOnFreePort(server, "p");
  Client client(41031);
  client.Join(server, "p");
  const std::string longest(1434, 'x');
  EXPECT_TRUE(server.SendMsg(longest.c_str()));
  EXPECT_EQ(client.Cookie() + longest, client.Receive());
  EXPECT_FALSE(server.SendMsg((longest + "x").c_str()));
  EXPECT_EQ("(nothing)", client.Receive());
  EXPECT_TRUE(server.SendMsg(nullptr));
  EXPECT_EQ(client.Cookie(), client.Receive());

  (server << "Name" << 7).CallObj();
  EXPECT_EQ(client.Cookie() + "Name  7", client.Receive());
  server.Call("Name", nullptr);
  EXPECT_EQ(client.Cookie() + "Name ", client.Receive());
}

// The real loop on the real network, in a process that can be ended.
TEST(GDQUdpSrv, ReceivesDatagramsUpToTheLimit) {
  GDQUdpSrv server;
  const unsigned short port = OpenOnFreePort(server, "p");
  const pid_t child = fork();
  if (child == 0) {
    CapturedLog log(false);
    alarm(60);
    server.ReceiveTask();
    _exit(1);
  }
  server.Close();
  const InetAddress2 to = Loopback(port);
  Client sender(41041), receiver(41042);
  std::string cookies[2];
  Client* const clients[] = {&sender, &receiver};
  for (int i = 0; i < 2; ++i) {
    clients[i]->Socket().Write("CONN", 4, &to);
    cookies[i] = Md5(clients[i]->Receive(20000) + "p");
    clients[i]->Socket().Write(cookies[i].data(), 16, &to);
  }
  const std::string text(1434, 'x');
  sender.Socket().Write("", 0, &to);
  for (const std::string& datagram : {cookies[0] + text + "x", cookies[0] + text + text, cookies[0] + text})
    sender.Socket().Write(datagram.data(), static_cast<long>(datagram.size()), &to);
  EXPECT_EQ(cookies[1] + text, receiver.Receive(20000));
  EXPECT_EQ("(nothing)", receiver.Receive());
  kill(child, SIGKILL);
  int status = 0;
  waitpid(child, &status, 0);
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL);
}

TEST(GDQUdpSrv, StopsReceivingWithoutASocket) {
  GDQUdpSrv server;
  server.ReceiveTask();
}

TEST(GDQUdpSrv, TakesEndpointsOfEqualProductForOnePeer) {
  CapturedLog log(false);
  GDQUdpSrv server;
  OpenOnFreePort(server, "p");
  Client a(512 * 50, 0x7F000001), b(256 * 50, 0x7F000002);
  ASSERT_TRUE(a.IsBound() && b.IsBound());
  a.Join(server, "p");
  b.Join(server, "p");
  log.Take();
  Give(server, a.Address(), a.Cookie() + "x");
  EXPECT_EQ((Lines{"3:Cookies do not match:"}), log.Take());
  Give(server, b.Address(), b.Cookie() + "x");
  EXPECT_EQ(b.Cookie() + "x", a.Receive());
  server.SendMsg("y");
  EXPECT_EQ(b.Cookie() + "y", a.Receive());
  EXPECT_EQ("(nothing)", b.Receive());
}

// Lookup, admission and sending order against plain chains. The trace log tells cookies and receivers.
TEST(GDQUdpSrv, FindsAndOrdersPeersAsChainsWould) {
  struct Record {
    uint32_t key;
    unsigned short port;  // unique, names the record in the log
    bool isValid;
    std::string cookie;
  };
  CapturedLog log(true);
  GDQUdpSrv server;  // never opened: what it sends gets nowhere
  std::vector<Record> chains[31];
  std::mt19937 random(7);
  const auto find = [&](uint32_t key) -> Record* {
    for (Record& record : chains[key % 31]) {
      if (record.key == key) return &record;
    }
    return nullptr;
  };
  unsigned sent = 0;
  for (int step = 0; step < 6000; ++step) {
    const unsigned n = static_cast<unsigned>(random() % 200);
    // Every fourth endpoint shares its product with the one before: twice the address at half the port.
    const bool isTwin = n % 4 == 3;
    const unsigned short plainPort = static_cast<unsigned short>(2000 + (isTwin ? n - 1 : n) * 62 % 5000 * 2);
    const InetAddress2 from(isTwin ? 0x02000000 : 0x01000000, isTwin ? plainPort / 2 : plainPort);
    const uint32_t key = static_cast<uint32_t>(from.GetIP()) * from.GetPort();
    Record* record = find(key);
    if (random() % 2 != 0) {
      log.Take();
      server.HandleConnect(from);
      if (record == nullptr) {
        chains[key % 31].push_back({key, from.GetPort(), false, ""});
        record = &chains[key % 31].back();
      }
      record->isValid = false;
      record->cookie = FromHex(log.Take()[1].substr(9));
    } else {
      std::string cookie = record != nullptr && random() % 4 != 0 ? record->cookie : std::string(16, 'w');
      const bool isRight = record != nullptr && cookie == record->cookie;
      ASSERT_EQ(isRight, server.IsValid(from, reinterpret_cast<unsigned char*>(&cookie[0])));
      if (isRight) record->isValid = true;
    }
    if (step % 20 != 0) continue;
    Lines expected{"0:GDQUdpSrv::SendMsg('x')\n"};
    for (const auto& chain : chains) {
      for (const Record& entry : chain) {
        if (entry.isValid)
          expected.push_back("0:GDQUdpSrv::Send to port " + std::to_string(entry.port) + "!!!\n");
      }
    }
    log.Take();
    server.SendMsg("x");
    ASSERT_EQ(expected, log.Take()) << step;
    sent += static_cast<unsigned>(expected.size());
  }
  EXPECT_GT(sent, 5000u);
}

TEST(GDQUdpSrv, SendsWhilePeersJoinAndReconnect) {
  CapturedLog log(false);
  GDQUdpSrv server;
  OpenOnFreePort(server, "p");
  Client last(41999);
  std::atomic<bool> isDone{false};
  std::thread sender([&] {
    while (!isDone) server.SendMsg("x");
  });
  for (unsigned short port = 41100; port < 41140; ++port) {
    Client client(port);
    client.Join(server, "p");
    Give(server, client.Address(), client.Cookie() + "y");
    if (port % 3 == 0) Give(server, client.Address(), "CONN");
  }
  Give(server, last.Address(), "CONN");
  std::string cookie = Md5(last.Receive() + "p");
  Give(server, last.Address(), cookie);
  EXPECT_EQ(cookie + "x", last.Receive(20000));
  isDone = true;
  sender.join();
}

// With a walk over all records of a chain this would not end in time: all keys are in one bucket.
TEST(GDQUdpSrv, DoesNotWalkPeersThatProvedNothing) {
  CapturedLog log(false);
  GDQUdpSrv server;
  for (uint32_t i = 1; i <= 200000; ++i) {
    server.HandleConnect(InetAddress2(static_cast<long>(i), 31));
    if (i % 1000 == 0) log.Take();
  }
  OpenOnFreePort(server, "p");
  unsigned short port = 42000;
  while (static_cast<uint32_t>(kClientHost) * port % 31 != 0) ++port;
  Client client(port);
  client.Join(server, "p");
  for (int i = 0; i < 1000; ++i) ASSERT_TRUE(server.SendMsg("x"));
  EXPECT_EQ(client.Cookie() + "x", client.Receive());
}
