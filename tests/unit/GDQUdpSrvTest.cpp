#include "common/GDQUdpSrv.h"

#include "tests/unit/ServerModel.h"

using Velk::GDQUdpSrv;

namespace {

constexpr uint32_t kClientHost = 0x7F010203;  // loopback, but of no other test

unsigned short OpenOnFreePort(GDQUdpSrv& server, const char* password) {
  static unsigned short port = static_cast<unsigned short>(20000 + getpid() % 10000);
  while (!server.Open(password, ++port)) EXPECT_LT(port, 40000);
  return port;
}

struct Client {
  explicit Client(unsigned short port) : m_endpoint(kClientHost, port) {
    EXPECT_TRUE(m_socket.Open() && m_socket.Bind(port, kClientHost));
  }

  // What has arrived; "(nothing)" when nothing has. Loopback delivers before the sender's call returns.
  std::string Receive() {
    char bytes[2000];
    if (m_socket.WaitForRead(0) != 1) return "(nothing)";
    return std::string(bytes, static_cast<size_t>(m_socket.Read(bytes, sizeof bytes, nullptr)));
  }

  std::string Join(GDQUdpSrv& server, const std::string& password) {
    Give(server, m_endpoint, "CONN");
    const std::string cookie = Md5(Receive() + password);
    Give(server, m_endpoint, cookie);
    return cookie;
  }

  const Endpoint m_endpoint;
  UdpSocket3 m_socket;
};

}  // namespace

TEST(GDQUdpSrv, AgreesWithAListOfPeers) {
  ServerModel(Choices::Random(7, 300000)).Run();
}

TEST(GDQUdpSrv, KeepsItsPasswordWhereThePortIsTaken) {
  CapturedLog log(false);
  GDQUdpSrv server, owner;
  server.ReceiveTask();  // stops without a socket
  OpenOnFreePort(server, "mosk");
  const unsigned short taken = OpenOnFreePort(owner, "");
  EXPECT_FALSE(server.Open("other", taken));
  Client client(41001);
  const std::string cookie = client.Join(server, "mosk");
  (server << "Name" << 7).CallObj();
  EXPECT_EQ(cookie + "Name  7", client.Receive());
  EXPECT_TRUE(server.SendMsg(nullptr));
  EXPECT_EQ(cookie, client.Receive());
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
  while (kClientHost * port % 31 != 0) ++port;
  Client client(port);
  const std::string cookie = client.Join(server, "p");
  for (int i = 0; i < 1000; ++i) ASSERT_TRUE(server.SendMsg("x"));
  EXPECT_EQ(cookie + "x", client.Receive());
}
