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
