// The reliable client and the server over a network that loses, doubles, reorders and makes up datagrams,
// with a server that restarts: what the client calls confirmed was run.
#include <sys/socket.h>
#include <time.h>

#include "client/GDQUdpClient.h"
#include "tests/unit/CapturedLog.h"
#include "tests/unit/Choices.h"
#include "tests/unit/Peers.h"

namespace {

constexpr uint64_t kMs = 1000;

using Datagram = std::pair<unsigned short, std::string>;  // the client's port

class World final : public Velk::GDOBase {
 public:
  explicit World(Choices choices) : m_choices(choices) {}

  void Run() {
    Velk::GDQUdpClient::Options options;
    options.waitMs = 0;
    options.heldLines = 16;
    StartServer();
    ASSERT_TRUE(m_client.Open("127.0.0.1", "", options));
    while (m_choices.AreLeft()) {
      Step();
      Check();
    }
    const uint64_t end = m_nowUs + 60000 * kMs;  // all is well from now on
    for (; m_client.Held() != 0; m_nowUs += 5 * kMs) {
      ASSERT_LT(m_nowUs, end);
      for (int i = 0; i < 8; ++i) Deliver();
      m_client.Process();
    }
    Check();
    m_client.Close();
  }

  // Run by the server once it has lived on for the time that the client allows it.
  void Call(const char* name, const char*) override {
    if (*name != '\0') m_taken.emplace_back(m_nowUs + Velk::GDQUdpClient::kSettleMs * kMs, name);
  }

  void Put(std::deque<Datagram>& way, const Datagram& datagram) {
    const unsigned fate = m_choices.Below(16);
    if (fate == 1) return;
    for (unsigned copies = fate == 2 ? 2 : 1; copies != 0; --copies) {
      const size_t ahead = fate == 3 ? std::min<size_t>(way.size(), m_choices.Below(4)) : 0;
      way.insert(way.end() - static_cast<long>(ahead), datagram);
    }
  }

  // 0, or why the machine refuses a client's call at once: no room, or nobody had the port just now.
  int Refusal() {
    const unsigned fate = m_choices.Below(64);
    if (fate == 1) return EAGAIN;
    return fate == 2 ? ECONNREFUSED : 0;
  }

  uint64_t m_nowUs = 1000000 * kMs;
  std::deque<Datagram> m_toServer, m_toClient;

 private:
  void StartServer() {
    RunTaken();
    m_taken.clear();
    m_server = std::make_unique<Velk::GDQUdpSrv>();
    m_server->AddListener(this);
  }

  void RunTaken() {
    for (; !m_taken.empty() && m_taken.front().first <= m_nowUs; m_taken.pop_front())
      m_ran.insert(m_taken.front().second);
  }

  void Deliver() {
    if (m_toServer.empty()) return;
    const auto [port, bytes] = m_toServer.front();
    m_toServer.pop_front();
    Give(*m_server, {INADDR_LOOPBACK, port}, bytes);
  }

  void Step() {
    const unsigned step = m_choices.Below(16);
    if (step == 0) StartServer();
    if (step == 1) {
      const unsigned port = Velk::GDQUdpClient::kMouthPort + m_choices.Below(64);
      m_toClient.emplace_back(port, m_choices.Bytes(m_choices.Below(64)));
    }
    if (step == 2) m_nowUs += m_choices.Below(256) * 4 * kMs;
    if (step >= 3 && step <= 5) {
      const std::string args(m_choices.Below(4) * 400, 'x');
      if (m_client.SendMsg(("call" + std::to_string(m_sent) + " " + args).c_str())) ++m_sent;
    }
    if (step == 6) m_client.Probe();
    if (step == 7 || step == 8) m_nowUs += m_choices.Below(20) * kMs;
    if (step >= 9 && step <= 11) m_client.Process();
    if (step >= 12) Deliver();
  }

  void Check() {
    RunTaken();
    for (; m_confirmed < m_sent - m_client.Held(); ++m_confirmed)
      ASSERT_EQ(1u, m_ran.count("call" + std::to_string(m_confirmed))) << m_confirmed;
  }

  Choices m_choices;
  std::unique_ptr<Velk::GDQUdpSrv> m_server;
  std::deque<std::pair<uint64_t, std::string>> m_taken;  // when each is run
  std::set<std::string> m_ran;
  unsigned m_sent = 0;
  unsigned m_confirmed = 0;
  Velk::GDQUdpClient m_client;
};

World* s_world = nullptr;

unsigned short PortOf(int fd) {
  sockaddr_in address{};
  socklen_t size = sizeof address;
  getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size);
  return ntohs(address.sin_port);
}

}  // namespace

extern "C" {

int __real_clock_gettime(clockid_t, timespec*);
int __wrap_clock_gettime(clockid_t clock, timespec* time) {
  if (s_world == nullptr) return __real_clock_gettime(clock, time);
  *time = {static_cast<time_t>(s_world->m_nowUs / 1000000),
           static_cast<long>(s_world->m_nowUs % 1000000 * 1000)};
  return 0;
}

time_t time(time_t*) {
  return static_cast<time_t>(s_world != nullptr ? s_world->m_nowUs / 1000000 : 0);
}

ssize_t getrandom(void* bytes, size_t size, unsigned) {
  memset(bytes, 7, size);
  return static_cast<ssize_t>(size);
}

ssize_t send(int fd, const void* bytes, size_t size, int) {
  errno = s_world->Refusal();
  if (errno != 0) return -1;
  s_world->Put(s_world->m_toServer, {PortOf(fd), std::string(static_cast<const char*>(bytes), size)});
  return static_cast<ssize_t>(size);
}

ssize_t sendmsg(int fd, const msghdr* message, int flags) {
  std::string datagram;
  for (size_t i = 0; i < message->msg_iovlen; ++i)
    datagram.append(static_cast<const char*>(message->msg_iov[i].iov_base), message->msg_iov[i].iov_len);
  return send(fd, datagram.data(), datagram.size(), flags);
}

// By the server.
ssize_t sendto(int, const void* bytes, size_t size, int, const sockaddr* to, socklen_t) {
  sockaddr_in address{};
  memcpy(&address, to, sizeof address);
  s_world->Put(s_world->m_toClient,
               {ntohs(address.sin_port), std::string(static_cast<const char*>(bytes), size)});
  return static_cast<ssize_t>(size);
}

ssize_t recv(int fd, void* bytes, size_t size, int) {
  const unsigned short port = PortOf(fd);
  auto& way = s_world->m_toClient;
  const auto first =
      std::find_if(way.begin(), way.end(), [&](const auto& item) { return item.first == port; });
  if (first == way.end()) {
    errno = s_world->Refusal() != ECONNREFUSED ? EAGAIN : ECONNREFUSED;
    return -1;
  }
  const size_t length = first->second.copy(static_cast<char*>(bytes), size);
  way.erase(first);
  return static_cast<ssize_t>(length);
}

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static CapturedLog log(false);
  World world(Choices(data, size));
  s_world = &world;
  world.Run();
  s_world = nullptr;
  log.Take();
  return 0;
}

}  // extern "C"
