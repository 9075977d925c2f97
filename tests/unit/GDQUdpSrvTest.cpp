#include "common/GDQUdpSrv.h"

#include "tests/unit/ServerModel.h"

namespace {

constexpr Endpoint kPeer(0x7F000001, 41001);

void OpenOnFreePort(Velk::GDQUdpSrv& server, const char* password, unsigned short& port) {
  while (!server.Open(password, ++port)) ASSERT_LT(port, 40000);
}

std::string Join(UnpluggedServer& server, const Endpoint& peer, const std::string& password) {
  Give(server, peer, "CONN");
  const std::string cookie = Md5(server.m_sent.back().second + password);
  Give(server, peer, cookie);
  server.m_sent.clear();
  return cookie;
}

}  // namespace

TEST(GDQUdpSrv, AgreesWithAListOfPeers) {
  ServerModel(Choices::Random(7, 300000)).Run();
}

TEST(GDQUdpSrv, KeepsItsPasswordIfThePortIsTaken) {
  CapturedLog log(false);
  UnpluggedServer server, owner;
  server.ReceiveTask();  // returns, as there is no socket
  auto port = static_cast<unsigned short>(20000 + getpid() % 10000);
  OpenOnFreePort(server, "mosk", port);
  OpenOnFreePort(owner, "", port);
  EXPECT_FALSE(server.Open("other", port));
  const std::string cookie = Join(server, kPeer, "mosk");
  (server << "Name" << 7).CallObj();
  EXPECT_TRUE(server.SendMsg(nullptr));
  EXPECT_EQ((Datagrams{{kPeer, cookie + "Name  7"}, {kPeer, cookie}}), server.m_sent);
}

// All keys are in one bucket: if the server walked the whole chain, the test would time out.
TEST(GDQUdpSrv, DoesNotWalkPeersThatWereNeverAdmitted) {
  CapturedLog log(false);
  UnpluggedServer server;
  for (uint32_t i = 1; i <= 200000; ++i) {
    server.HandleConnect(InetAddress2(static_cast<long>(i), 31));
    if (i % 1000 == 0) log.Take();
  }
  Join(server, Endpoint(kPeer.first, 31 * 1400), "");
  for (int i = 0; i < 1000; ++i) ASSERT_TRUE(server.SendMsg("x"));
  EXPECT_EQ(1000u, server.m_sent.size());
}
