// Microbenchmarks of each step that a call takes: build-bench/bench/micro. They show which step a change
// affects; bench/compare.sh shows whether it matters.
#include <arpa/inet.h>
#include <benchmark/benchmark.h>
#include <fcntl.h>
#include <string.h>
#include <unistd.h>

#include <string>
#include <vector>

#include "app/RemoteMessages.h"
#include "common/ArgsParser.h"
#include "common/DailyLog2.h"
#include "common/GDQ.h"
#include "common/GDQUdpSrv.h"
#include "common/HashMD5.h"
#include "common/LogPrinter.h"
#include "common/PeerTable.h"

namespace {

const char kArgs[] = "1 bench 'seq=00000001 xxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx\n'";
const char kText[] = "seq=00000001 xxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx\n";

void Parse(benchmark::State& state) {
  Velk::ArgsParser parser(32);
  for (auto _ : state) benchmark::DoNotOptimize(parser.ParseArgs(kArgs));
}
BENCHMARK(Parse);

class Counter : public Velk::IGenericDispatchTarget {
 public:
  bool Dispatch(const char*, const Velk::IArgsList*) override {
    m_count.fetch_add(1, std::memory_order_release);
    return true;
  }
  std::atomic<long> m_count{0};
};

// One poster. After every 32 posts it waits until fewer than 32 are pending.
void PostAndDeliver(benchmark::State& state) {
  Counter counter;
  Velk::GDQ queue(0, 0, "bench", false);
  queue.Run();
  long posted = 0;
  for (auto _ : state) {
    queue.Post(&counter, "LogMsg", kArgs);
    if (++posted % 32 == 0) queue.WaitForFewerPosts(32, Velk::GDQ::kForever);
  }
  while (counter.m_count.load(std::memory_order_acquire) < posted) usleep(10);
  queue.Stop();
}
BENCHMARK(PostAndDeliver)->UseRealTime();

void FormatAndStore(benchmark::State& state) {
  DailyLog2 log(500, "");
  for (auto _ : state) log.Log(Info, "bench", kText);
}
BENCHMARK(FormatAndStore);

// The console is /dev/null, so this measures the printer and one system call.
void Print(benchmark::State& state) {
  LogPrinter printer(nullptr);
  const int console = dup(STDOUT_FILENO);
  const int nowhere = open("/dev/null", O_WRONLY);
  fflush(stdout);
  dup2(nowhere, STDOUT_FILENO);
  for (auto _ : state) printer.LogText(Info, "bench", kText);
  dup2(console, STDOUT_FILENO);
  close(nowhere);
  close(console);
}
BENCHMARK(Print);

// A server without real peers: the datagrams that it sends are dropped on loopback.
class Server : public Velk::GDQUdpSrv {
 public:
  Server() {
    LogPrinter::Instance()->m_consoleEnabled = false;
    Open("mosk", 0);
  }

  static InetAddress2 PeerAddress(unsigned index) {
    return InetAddress2(0x7F000002 + static_cast<long>(index), 9);
  }

  void Connect(unsigned index) {
    unsigned char connect[] = {'C', 'O', 'N', 'N', 0};
    HandleDatagram(PeerAddress(index), connect, 4);
  }

  // Admits a peer: computes the nonce, a digest of time, address and port. Returns the datagram of the call.
  std::vector<unsigned char> Admit(unsigned index, const std::string& call) {
    std::vector<unsigned char> packet(16 + call.size() + 1);
    for (;;) {
      const auto now = static_cast<uint32_t>(time(nullptr));
      Connect(index);
      if (static_cast<uint32_t>(time(nullptr)) != now) continue;
      const InetAddress2 peer = PeerAddress(index);
      const auto ip = static_cast<uint32_t>(peer.GetIP());
      unsigned char seed[10];
      for (unsigned i = 0; i < 4; ++i) {
        seed[i] = static_cast<unsigned char>(now >> (8 * i));
        seed[4 + i] = static_cast<unsigned char>(ip >> (8 * i));
      }
      seed[8] = static_cast<unsigned char>(peer.GetPort());
      seed[9] = static_cast<unsigned char>(peer.GetPort() >> 8);
      Velk::HashMD5 md5;
      md5.AddBinary(seed, sizeof seed);
      unsigned char nonce[16];
      md5.GetDigest(nonce);
      md5.Reset();
      md5.AddBinary(nonce, sizeof nonce);
      md5.AddString("mosk");
      md5.GetDigest(packet.data());
      memcpy(packet.data() + 16, call.data(), call.size());
      HandleDatagram(peer, packet.data(), 16);
      return packet;
    }
  }

  void Receive(unsigned index, std::vector<unsigned char>& packet, const unsigned char* cookie) {
    memcpy(packet.data(), cookie, 16);  // relaying has replaced it
    HandleDatagram(PeerAddress(index), packet.data(), static_cast<int>(packet.size() - 1));
  }
};

void Handshake(benchmark::State& state) {
  Server server;
  for (auto _ : state) server.Connect(0);
}
BENCHMARK(Handshake);

// Adds and admits peers to a table with range(0) others.
void AdmitAmong(benchmark::State& state) {
  Velk::PeerTable table;
  unsigned next = 0;
  const auto admitNext = [&] {
    const InetAddress2 address = Server::PeerAddress(next++);
    const unsigned char cookie[16] = {};
    table.Connect(address, cookie);
    table.Admit(table.Find(address));
  };
  while (next < state.range(0)) admitNext();
  for (auto _ : state) admitNext();
}
BENCHMARK(AdmitAmong)->ArgName("admitted")->Arg(0)->Arg(1000)->Arg(10000)->Iterations(200);

// One call of one peer. range(0): other admitted peers, to which it is relayed; range(1): peers that only
// sent a connect.
void ReceiveAmong(benchmark::State& state) {
  Server server;
  unsigned next = 1;
  for (long i = 0; i < state.range(1); ++i) server.Connect(next++);
  for (long i = 0; i < state.range(0); ++i) server.Admit(next++, "");
  std::vector<unsigned char> packet = server.Admit(0, "LogMsg " + std::string(kArgs));
  unsigned char cookie[16];
  memcpy(cookie, packet.data(), sizeof cookie);
  for (auto _ : state) server.Receive(0, packet, cookie);
}
BENCHMARK(ReceiveAmong)
    ->ArgNames({"admitted", "known"})
    ->Args({0, 1})
    ->Args({0, 10})
    ->Args({0, 100})
    ->Args({0, 1000})
    ->Args({0, 10000})
    ->Args({0, 200000})
    ->Args({1, 0})
    ->Args({10, 0})
    ->Args({100, 0})
    ->Args({1000, 0})
    ->Args({10000, 0});

}  // namespace

BENCHMARK_MAIN();
