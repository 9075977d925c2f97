#include "common/UdpSocket3.h"

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/select.h>

#include "tests/unit/Test.h"

namespace {

constexpr long kLoopback = INADDR_LOOPBACK;

int NextDescriptor() {
  const int fd = open("/dev/null", O_RDONLY | O_CLOEXEC);
  close(fd);
  return fd;
}

}  // namespace

TEST(UdpSocket3, RefusesWhatItCannotDo) {
  UdpSocket3 socket;
  InetAddress2 address(kLoopback, 9);
  char byte = 0;
  EXPECT_FALSE(socket.Bind(0, 0) || socket.BindAddress(address) || socket.SetTTL(1));
  EXPECT_TRUE(socket.Read(&byte, 1, &address) == -1 && socket.Write(&byte, 1, &address) == -1);
  EXPECT_EQ(-1, socket.WaitForRead(UdpSocket3::kForever));
  ASSERT_TRUE(socket.Open());
  EXPECT_TRUE(socket.Write(&byte, 1, nullptr) == -1 && socket.Write(&byte, -1, &address) == -1);
  EXPECT_EQ(-1, socket.Read(&byte, -1, &address));
  EXPECT_FALSE(socket.Bind(0, 0xE0000001));
  EXPECT_TRUE(socket.Bind(0, 0xE0000000));
}

TEST(UdpSocket3, OwnsAtMostOneDescriptor) {
  const int free = NextDescriptor();
  {
    UdpSocket3 socket;
    ASSERT_TRUE(socket.Open());
    EXPECT_EQ(FD_CLOEXEC, fcntl(free, F_GETFD));
    socket.Close();
    EXPECT_EQ(free, NextDescriptor());
    ASSERT_TRUE(socket.Open() && socket.Open());
  }
  EXPECT_EQ(free, NextDescriptor());
}

TEST(UdpSocket3, DoesNotSelectOnADescriptorTooLargeForAnFdSet) {
  rlimit limit{};
  getrlimit(RLIMIT_NOFILE, &limit);
  const rlimit raised{limit.rlim_max, limit.rlim_max};
  if (limit.rlim_max < FD_SETSIZE + 8) GTEST_SKIP() << "too few descriptors allowed";
  setrlimit(RLIMIT_NOFILE, &raised);
  std::vector<int> fillers{open("/dev/null", O_RDONLY | O_CLOEXEC)};
  while (fillers.back() >= 0 && fillers.back() < FD_SETSIZE) fillers.push_back(dup(fillers[0]));
  UdpSocket3 socket;
  EXPECT_TRUE(socket.Open() && socket.WaitForRead(0) == -1 && socket.WaitForWrite(0) == -1);
  for (const int fd : fillers) close(fd);
  setrlimit(RLIMIT_NOFILE, &limit);
}

TEST(UdpSocket3, JoinsAndLeavesAGroup) {
  // A group of its own for each run: after we leave, Linux still delivers to us while any process is a
  // member.
  const long ip = static_cast<long>(0xEF010000 + static_cast<unsigned>(getpid()) % 65536);
  UdpSocket3 receiver, sender;
  InetAddress2 group(ip, static_cast<unsigned short>(30000 + getpid() % 10000));
  ASSERT_TRUE(sender.Open() && receiver.Open() && receiver.BindAddress(group));
  ASSERT_TRUE(receiver.AddMulticastMembership(ip, kLoopback) && sender.SetMulticastInterface(kLoopback));
  EXPECT_EQ(1, sender.Write("x", 1, &group));
  ASSERT_EQ(1, receiver.WaitForRead(5000));
  char byte = 0;
  EXPECT_EQ(1, receiver.Read(&byte, 1, nullptr));
  EXPECT_TRUE(receiver.DropMulticastMembership(ip, kLoopback));
  sender.Write("x", 1, &group);
  EXPECT_EQ(0, receiver.WaitForRead(0));
}

TEST(UdpSocket3, SetsTheOptionsOfIp) {
  UdpSocket3 socket;
  ASSERT_TRUE(socket.Open());
  const auto option = [&socket](int name, int level = IPPROTO_IP) {
    int value = -1;
    socklen_t size = sizeof value;
    getsockopt(socket.Descriptor(), level, name, &value, &size);
    return value;
  };
  socket.SetReceiveBuffer(100000);
  EXPECT_EQ(200000, option(SO_RCVBUF, SOL_SOCKET));
  EXPECT_TRUE(socket.SetMulticastLoopback(false) && socket.SetMulticastTTL(0) && socket.SetTTL(200) &&
              socket.SetMulticastInterface(kLoopback));
  EXPECT_FALSE(socket.SetTTL(0));
  EXPECT_EQ(0, option(IP_MULTICAST_LOOP));
  EXPECT_EQ(0, option(IP_MULTICAST_TTL));
  EXPECT_EQ(200, option(IP_TTL));
  EXPECT_EQ(static_cast<int>(htonl(kLoopback)), option(IP_MULTICAST_IF));
  EXPECT_TRUE(socket.SetMulticastLoopback(true) && socket.ClearMulticastInterface());
  EXPECT_EQ(1, option(IP_MULTICAST_LOOP));
  EXPECT_EQ(0, option(IP_MULTICAST_IF));
}
