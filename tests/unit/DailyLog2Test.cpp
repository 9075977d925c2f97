#include "common/DailyLog2.h"

#include <malloc.h>

#include <numeric>

#include "tests/unit/CapturedLog.h"
#include "tests/unit/TempDirectory.h"

namespace {

// Replaces each "[12:34:56.789] " with "# ", so that texts can be compared.
std::string WithoutTimes(std::string text) {
  for (size_t at = 0; (at = text.find('[', at)) != std::string::npos; ++at) {
    int length = 0;
    sscanf(text.substr(at, 15).c_str(), "[%*2u:%*2u:%*2u.%*3u] %n", &length);
    if (length == 15) text.replace(at, 15, "# ");
  }
  return text;
}

// Keeps what the last notification showed. During each one, logs a warning to messageLog if that is set.
struct Watcher final : IDailyLog2::ILogErrorNotify {
  void OnLogError(IDailyLog2::ILogDataBlock** messages, unsigned count, unsigned totalBytes) override {
    const std::lock_guard<std::mutex> lock(mutex);
    ++calls;
    total = totalBytes;
    shown.clear();
    for (unsigned i = 0; i < count; ++i) {
      for (auto* chunk = messages[i]; chunk != nullptr; chunk = chunk->GetNext()) {
        shown.append(chunk->GetDataPtr(), chunk->GetDataSize());
        EXPECT_TRUE(chunk->GetDataSize() == DailyLog2::kChunkSize ||
                    (chunk->GetDataSize() != 0 && chunk->GetNext() == nullptr));
      }
    }
    EXPECT_LE(shown.size(), totalBytes);
    if (messageLog != nullptr) messageLog->Log(Warning, "nested", "warning\n");
  }

  std::mutex mutex;
  int calls = 0;
  unsigned total = 0;
  std::string shown;
  IDailyLog2* messageLog = nullptr;
};

struct DailyLog2Test : testing::Test {
  std::string Synced(DailyLog2& log) const {
    log.SyncLog();
    return WithoutTimes(m_dir.Read("synclog"));
  }

  const TempDirectory m_dir;
  const std::string m_path = m_dir.Path("synclog");
  CapturedLog m_captured{false};
};

}  // namespace

TEST_F(DailyLog2Test, AgreesWithADequeAtAnyCapacity) {
  const char* const kWords[] = {"Trace: ", "Info: ", "Warning: ", "Error: "};
  std::mt19937 random(42);
  for (const unsigned capacity : {0u, 1u, 2u, 7u, 500u}) {
    DailyLog2 log(capacity, m_path.c_str());
    Watcher watcher;
    log.AddErrorNotify(&watcher);
    std::deque<std::string> model;
    std::deque<size_t> sizes;
    for (unsigned count = 1; count <= 1500; ++count) {
      const std::string module(random() % 4 == 0 ? random() % 140 : random() % 10, 'm');
      const std::string text(random() % 8 == 0 ? random() % 3000 : random() % 300, "%s\n[ab"[count % 6]);
      const bool isChecked = random() % 32 == 0 || (count + 1 >= capacity && count <= capacity + 1);
      const unsigned type = isChecked ? 3 : static_cast<unsigned>(random() % 4);
      const std::string header = (module.empty() ? "" : module + ".") + kWords[type];
      log.Log(static_cast<ELogMessageType>(type), module.c_str(), text.c_str());
      log.Log(static_cast<ELogMessageType>(4), "net", "no such type\n");
      model.push_back("# " + header.substr(0, 113) + text);
      sizes.push_back(15 + std::min<size_t>(header.size(), 126) + text.size());  // what totalBytes counts
      if (model.size() > capacity) model.pop_front();
      if (sizes.size() > capacity) sizes.pop_front();
      if (!isChecked) continue;
      const std::string expected = std::accumulate(model.begin(), model.end(), std::string());
      ASSERT_EQ(expected, WithoutTimes(watcher.shown)) << count;
      ASSERT_EQ(std::accumulate(sizes.begin(), sizes.end(), size_t{0}), watcher.total) << count;
      ASSERT_EQ(expected, Synced(log)) << count;
    }
  }
}

TEST_F(DailyLog2Test, ReusesTheMemoryOfOldMessages) {
  DailyLog2 log(2, nullptr);
  const std::string texts[] = {std::string(600, 't'), "short", std::string(300, 't')};
  size_t used[2];  // bytes of heap
  for (size_t& bytes : used) {
    for (int i = 0; i < 99; ++i) log.Log(Info, nullptr, texts[i % 3].c_str());
    bytes = mallinfo2().uordblks;
  }
  EXPECT_EQ(used[0], used[1]);
}

TEST_F(DailyLog2Test, NotifiesEveryWatcherOfEveryWarningAndError) {
  DailyLog2 log(3, nullptr);
  Watcher first, second;
  const auto callsAfter = [&](ELogMessageType type) {
    log.Log(type, nullptr, "text\n");
    return std::to_string(first.calls) + " " + std::to_string(second.calls);
  };
  for (Watcher* watcher : {&first, &second, &first}) log.AddErrorNotify(watcher);
  EXPECT_EQ("0 0", callsAfter(Info));
  EXPECT_EQ("0 0", callsAfter(Trace));
  first.messageLog = &log;
  EXPECT_EQ("2 1", callsAfter(Warning));  // "first" was added twice; its nested warnings notify no one
  first.messageLog = nullptr;
  EXPECT_EQ("4 2", callsAfter(Error));
  EXPECT_EQ("# nested.Warning: warning\n", WithoutTimes(second.shown).substr(0, 26));
  for (Watcher* watcher : {&first, &second, &second}) log.RemoveErrorNotify(watcher);  // second twice
  EXPECT_EQ("5 2", callsAfter(Error));
  log.RemoveErrorNotify(&first);
  EXPECT_EQ("5 2", callsAfter(Error));
  log.AddErrorNotify(&second);  // reuses a removed entry
  EXPECT_EQ("5 3", callsAfter(Warning));
}

TEST_F(DailyLog2Test, MakesTheDirectoryOfTheSyncFile) {
  const std::string deep = m_dir.Path("a/b");
  for (int i = 0; i < 2; ++i) {
    DailyLog2 log(5, (deep + "/synclog").c_str());
    log.Log(Info, nullptr, "x\n");
    log.Log(Info, nullptr, nullptr);
    log.SyncLog();
    EXPECT_EQ("# Info: x\n# Info: ", WithoutTimes(m_dir.Read("a/b/synclog")));
  }
  DailyLog2(5, "").SyncLog();
  DailyLog2 gone(5, (deep + "/synclog").c_str());
  std::filesystem::remove_all(deep);
  gone.SyncLog();
  const std::string found = "1:Using file path '" + deep + "' for SyncLog\n";
  EXPECT_EQ((Lines{"1:SyncLog path '" + deep + "' does not exist, creating..\n", found, found,
                   "3:Cannot write " + deep + "/synclog: No such file or directory\n"}),
            m_captured.Take());
}

TEST_F(DailyLog2Test, WritesTheDailyFileAndTheEcho) {
  DailyLog2 log(5, nullptr);
  EXPECT_EQ(nullptr, log.GetLogPath());
  ASSERT_TRUE(log.Open("day", nullptr, m_dir.path.c_str(), 1, true));
  EXPECT_EQ(m_dir.path + "/", log.GetLogPath());
  testing::internal::CaptureStdout();
  log.Log(Info, "net", "up\n");
  EXPECT_EQ("# net.Info: up\n", WithoutTimes(testing::internal::GetCapturedStdout()));
  const auto note = [](const char* name, const char*, void* context) {
    *static_cast<std::string*>(static_cast<CDailyEventLog::EnumContext*>(context)->context) = name;
    return true;
  };
  std::string name;
  EXPECT_TRUE(log.EnumerateLogs(note, &name));
  EXPECT_EQ("# net.Info: up\n", WithoutTimes(m_dir.Read(name)));
}

// The service tests cover the rest of forwarding.
TEST_F(DailyLog2Test, ForwardsToPort514DespiteAnotherPort) {
  UdpSocket3 server;
  constexpr unsigned long kIp = 0x7F4D0001;  // 127.77.0.1, which no real server uses
  if (!server.Open() || !server.Bind(DailyLog2::kSyslogPort, kIp)) GTEST_SKIP() << "port not permitted";
  DailyLog2 log(5, nullptr);
  ASSERT_TRUE(log.EnableSyslog("127.77.0.1:9999", 0));
  EXPECT_FALSE(log.EnableSyslog(nullptr, 0) || log.EnableSyslog("127.77.0.1:0", 0));
  log.Log(Info, nullptr, "t");
  EXPECT_EQ(1, server.WaitForRead(0));
}

TEST_F(DailyLog2Test, KeepsLinesOfManyThreadsWhole) {
  constexpr unsigned kCapacity = 50, kThreads = 3;
  DailyLog2 log(kCapacity, m_path.c_str());
  Watcher always, comesAndGoes[kThreads];
  log.AddErrorNotify(&always);
  InThreads(kThreads, [&](unsigned id) {
    const std::string text = std::string(200, static_cast<char>('a' + id)) + "\n";
    for (int i = 0; i < 500; ++i) {
      log.Log(i % 4 == 0 ? Warning : Info, "t", text.c_str());
      if (i % 50 == 0) log.SyncLog();
      if (i % 20 == 0) log.EnableSyslog("127.77.0.1", 0);
      if (i % 20 == 10) log.DisableSyslog();
      if (i % 8 == 1) log.AddErrorNotify(&comesAndGoes[id]);
      if (i % 8 == 6) log.RemoveErrorNotify(&comesAndGoes[id]);
    }
  });
  EXPECT_GT(always.calls, 0);
  EXPECT_EQ(always.shown.size(), always.total);

  std::istringstream lines(Synced(log));
  unsigned count = 0;
  for (std::string line; std::getline(lines, line); ++count)
    EXPECT_EQ(std::string(200, line.back()), line.substr(line.find(": ") + 2));
  EXPECT_EQ(kCapacity, count);
}
