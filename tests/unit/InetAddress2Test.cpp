#include "common/InetAddress2.h"

#include <sys/resource.h>
#include <sys/wait.h>

#include "common/LogPrinter.h"
#include "tests/unit/CapturedLog.h"
#include "tests/unit/Choices.h"
#include "tests/unit/QuadModel.h"

TEST(InetAddress2, ReadsQuadsLikeTheModel) {
  EXPECT_TRUE(InetAddress2::Test());
  Choices choices = Choices::Random(1, 400000);
  unsigned valid = 0;
  while (choices.AreLeft() && !HasFailure())
    valid += CheckQuad((choices.Below(2) != 0 ? "" : "1.2") + choices.Text("0011225.....:ax", 13));
  EXPECT_GT(valid, 250u);
  bool error = false;
  EXPECT_EQ(0u, InetAddress2::StringToIP(nullptr, &error));
  EXPECT_TRUE(error);
  EXPECT_EQ(0x01020304u, InetAddress2::StringToIP("1a.2.3.4", nullptr));
  EXPECT_EQ(0u, InetAddress2::StringToIP("4294967297.2.3.4", nullptr));
}

TEST(InetAddress2, SetsAddressAndPortFromTextOrStaysUnchanged) {
  CapturedLog log(false);
  const std::string longestLookup(79, 'a');  // too long for a DNS label: fails without a query
  const std::tuple<std::string, unsigned short, const char*> rows[] = {
      // text, default port, result; null: refused
      {"255.255.255.255:65535", 1, "255.255.255.255:65535"},
      {"10.0.0.1", 514, "10.0.0.1:514"},
      {"10.0.0.1:514 and more", 1, "10.0.0.1:514"},
      {"10.0.0.1: 7:8", 1, "10.0.0.1:7"},
      {"10.0.0.1:65537", 2, "10.0.0.1:1"},
      {"10.0.0.1:65536", 514, nullptr},
      {"10.0.0.1:", 514, nullptr},
      {"10.0.0.1", 0, nullptr},
      {"localhost:11001", 0, "127.0.0.1:11001"},
      {"localhost", 514, "127.0.0.1:514"},
      {"", 514, nullptr},
      {":514", 514, nullptr},
      {std::string(80, 'a'), 514, nullptr},
      {std::string(75, '0') + "1.2.3.4", 514, "1.2.3.4:514"},
      {longestLookup + ":9", 514, nullptr},
  };
  for (const auto& [text, defaultPort, result] : rows) {
    InetAddress2 address(0x7F000002, 99);
    EXPECT_EQ(result != nullptr, address.SetAddressString(text.c_str(), defaultPort)) << text;
    EXPECT_EQ(result != nullptr ? result : "127.0.0.2:99", TextOf(address)) << text;
  }
  const auto lines = log.Take();
  ASSERT_EQ(1u, lines.size());
  EXPECT_EQ(0u, lines[0].find("2:Cannot resolve host name '" + longestLookup + "', error code -"));
  EXPECT_FALSE(InetAddress2(1, 1).SetAddressString(nullptr, 514));
}

namespace {

// Resolves a name with only this many bytes of memory left, and exits.
[[noreturn]] void LookUpWith(size_t bytes) {
  free(malloc(1 << 20));  // initialises the heap
  void* const left = malloc(bytes);
  const rlimit none{1, 1};
  setrlimit(RLIMIT_AS, &none);
  void* volatile const much = malloc(64 << 20);
  if (much != nullptr) _exit(0);  // an emulator without this limit
  for (size_t size = 1 << 20; size >= 16; size = size > 4096 ? size / 2 : size - 16) {
    for (void* volatile block = left; block != nullptr;) block = malloc(size);
  }
  free(left);
  errno = 0;
  InetAddress2 address(0, 0);
  const bool isFound = address.SetAddressString("LOCALHOST", 514);
  _exit(isFound || errno == ENOMEM ? 0 : 1);
}

// Calls LookUpWith() in children, with more and more bytes. Exits with 0 if all succeed.
[[noreturn]] void LookUpInChildren() {
  LogPrinter::Instance()->m_consoleEnabled = false;
  for (size_t bytes = 0; bytes < 200000; bytes += bytes < 16384 ? 64 : 8192) {
    const pid_t child = fork();
    if (child == 0) LookUpWith(bytes);
    int status = -1;
    waitpid(child, &status, 0);
    if (status != 0) _exit(1);
  }
  _exit(0);
}

}  // namespace

// Without our precaution, glibc 2.36 aborts a program whose first lookup runs out of memory.
TEST(InetAddress2, DoesNotAbortWithoutMemory) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "a sanitizer has its own allocator";
#endif
  if (access("/etc/hosts", R_OK) != 0) GTEST_SKIP() << "there is no /etc/hosts to look up localhost in";
  testing::FLAGS_gtest_death_test_style = "threadsafe";  // a new process, without earlier lookups
  EXPECT_EXIT(LookUpInChildren(), testing::ExitedWithCode(0), "");
}

TEST(InetAddress2, HoldsASocketAddressInNetworkOrderAndWritesIt) {
  InetAddress2 address(static_cast<long>(0xC0A80114), 0x1F90);
  EXPECT_EQ(0, memcmp("\xC0\xA8\x01\x14", &address.Native().sin_addr, 4));
  EXPECT_EQ(0, memcmp("\x1F\x90", &address.Native().sin_port, 2));
  EXPECT_EQ(AF_INET, address.Native().sin_family);
  address.SetAddress(-1, 1);  // 255.255.255.255 in a 32-bit long
  EXPECT_EQ(0xFFFFFFFFu, address.GetIP());
  address.SetListenAddress(514);
  EXPECT_EQ("0.0.0.0:514", TextOf(address));
  char text[InetAddress2::kMaxText];
  EXPECT_EQ(text + 1, NumToString(text, 0));
  EXPECT_EQ(text + 10, NumToString(text, 4294967295u));
  EXPECT_STREQ("4294967295", text);
  EXPECT_EQ(text + 8, InetAddress2(0x0A000001, 514).GetIPString(text));
  EXPECT_STREQ("10.0.0.1", text);
}
