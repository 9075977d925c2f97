#include "common/CDailyEventLog.h"

#include "tests/unit/TempDirectory.h"

namespace {

constexpr time_t kNoon = 1704193200;  // 2024-01-02 12:00:00 in Berlin
constexpr time_t kDay = 86400;

struct TimedLog final : CDailyEventLog {
  time_t Now() const override { return m_now; }

  time_t m_now = kNoon;
};

struct CDailyEventLogTest : testing::Test {
  CDailyEventLogTest() {
    setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);  // Berlin's rules, without zone files
  }
  ~CDailyEventLogTest() override { unsetenv("TZ"); }

  TempDirectory m_dir;
  TimedLog m_log;
};

bool Collect(const char* name, const char* fullPath, void* context) {
  void* const names = static_cast<CDailyEventLog::EnumContext*>(context)->context;
  static_cast<std::set<std::string>*>(names)->insert(name);
  return access(fullPath, F_OK) == 0;
}

}  // namespace

TEST_F(CDailyEventLogTest, NamesAndListsItsFiles) {
  // Base name, extension, file name; a file that is listed, and one that is not.
  const std::tuple<const char*, const char*, const char*, const char*, const char*> rows[] = {
      {"event", nullptr, "event2024-01-02.log", "EVENT-old.LOG", "vent2024-01-02.log"},
      {nullptr, "", "2024-01-02.log", "x.log", "x.txt"},
      {"e", "txt", "e2024-01-02.txt", "e1.txt", "e1.log"},
      {"e", ".txt", "e2024-01-02.txt", "e1.txt", "e1txt"},
  };
  for (const auto& [base, extension, file, listed, notListed] : rows) {
    const TempDirectory dir;
    const std::string place = dir.path + "//x/y" + (base != nullptr ? "/" : "");  // is created
    ASSERT_TRUE(m_log.Open(base, extension, place.c_str(), 0));
    EXPECT_EQ(dir.path + "//x/y/", m_log.GetLogPath());
    m_log.Print("text\n");
    EXPECT_EQ("text\n", dir.Read(std::string("x/y/") + file));
    for (const char* name : {listed, notListed}) dir.Write(std::string("x/y/") + name, "");
    for (const char* name : {"x/y/e-dir.log", "x/y/e-dir.txt"}) mkdir(dir.Path(name).c_str(), 0777);
    std::set<std::string> names;
    EXPECT_TRUE(m_log.EnumerateLogs(Collect, &names));
    EXPECT_EQ((std::set<std::string>{file, listed}), names);
  }
}

TEST_F(CDailyEventLogTest, RefusesNamesThatDoNotFitAndDirectoriesWhereAFileIs) {
  m_dir.Write("file", "");
  EXPECT_FALSE(CDailyEventLog::MakeDirectories(m_dir.Path("file/z").c_str()));
  EXPECT_EQ(ENOTDIR, errno);
  EXPECT_FALSE(m_log.Open(nullptr, nullptr, m_dir.Path("file/z").c_str(), 0));
  EXPECT_FALSE(CDailyEventLog::MakeDirectories(nullptr));

  const std::string tail = "2024-01-02.log";
  const std::string fits(CDailyEventLog::kPathSize - 1 - (m_dir.path + "/" + tail).size(), 'f');
  ASSERT_TRUE(m_log.Open(fits.c_str(), nullptr, m_dir.path.c_str(), 0));
  m_log.Print("1");
  EXPECT_FALSE(m_log.Open((fits + "f").c_str(), nullptr, m_dir.path.c_str(), 0));
  EXPECT_FALSE(m_log.Open(nullptr, std::string(5000, 'x').c_str(), m_dir.path.c_str(), 0));
  EXPECT_FALSE(m_log.Open("base", nullptr, "", 0) || m_log.IsOpen());
  m_log.Print("dropped");
  EXPECT_TRUE(m_log.OpenTodaysFile());  // still with the earlier name
  m_log.Print("2");
  EXPECT_EQ("12", m_dir.Read(fits + tail));
}

TEST_F(CDailyEventLogTest, StopsAtTheSpaceLimitUntilTheNextDay) {
  const std::string today = "2024-01-02.log", before = std::string(50, '.') + "123456789\n";
  m_dir.Write(today, std::string(50, '.'));
  ASSERT_TRUE(m_log.Open(nullptr, nullptr, m_dir.path.c_str(), 1));
  m_log.LimitSpaceUsedBytes(100);
  m_log.Print("123456789\n");
  m_log.Print(std::string(40, 'x').c_str());  // would reach exactly 100
  m_log.Print("y");
  EXPECT_EQ(before + "\nWARNING: File size limit of 100 bytes reached! Logging stopped until next day.\n\n",
            m_dir.Read(today));

  m_log.m_now += kDay;
  m_log.Print(std::string(99, 'z').c_str());
  EXPECT_EQ(std::string(99, 'z'), m_dir.Read("2024-01-03.log"));
}

TEST_F(CDailyEventLogTest, MovesOnAtLocalMidnight) {
  // Time of Open(), midnight, file before and after it.
  const std::tuple<time_t, time_t, const char*, const char*> rows[] = {
      {kNoon, kNoon + kDay / 2, "2024-01-02.log", "2024-01-03.log"},
      {1735685999, 1735686000, "2024-12-31.log", "2025-01-01.log"},  // the last second of the year
      {1711837800, 1711839600, "2024-03-30.log", "2024-03-31.log"},  // shortly before a day of 23 hours
      {1729981800, 1730070000, "2024-10-27.log", "2024-10-28.log"},  // early in a day of 25 hours
  };
  for (const auto& [opened, midnight, today, tomorrow] : rows) {
    const TempDirectory dir;
    m_log.m_now = opened;
    ASSERT_TRUE(m_log.Open(nullptr, nullptr, dir.path.c_str(), 1)) << today;
    m_log.m_now = midnight - 1;
    m_log.Print("last");
    m_log.m_now = midnight;
    m_log.Print("first");
    EXPECT_EQ("last", dir.Read(today)) << today;
    EXPECT_EQ("first", dir.Read(tomorrow)) << today;
  }
}

TEST_F(CDailyEventLogTest, DropsTextsItCannotWrite) {
  m_log.Print("before Open");
  EXPECT_FALSE(m_log.OpenTodaysFile() || m_log.EnumerateLogs(Collect, nullptr));

  // A directory, a full device or a pipe without a reader must not block the caller.
  ASSERT_EQ(0, mkdir(m_dir.Path("d2024-01-02.log").c_str(), 0777));
  EXPECT_FALSE(m_log.Open("d", nullptr, m_dir.path.c_str(), 1));
  ASSERT_EQ(0, mkfifo(m_dir.Path("p2024-01-02.log").c_str(), 0600));
  EXPECT_FALSE(m_log.Open("p", nullptr, m_dir.path.c_str(), 1));
  ASSERT_EQ(0, symlink("/dev/full", m_dir.Path("f2024-01-02.log").c_str()));
  EXPECT_TRUE(m_log.Open("f", nullptr, m_dir.path.c_str(), 1));
  for (int i = 0; i < 1000; ++i) m_log.Print("0123456789\n");

  const std::string gone = m_dir.Path("gone");
  ASSERT_TRUE(m_log.Open(nullptr, nullptr, gone.c_str(), 1));
  std::filesystem::remove_all(gone);
  m_log.m_now += kDay;
  m_log.Print("lost");
  EXPECT_FALSE(m_log.IsOpen());
  ASSERT_EQ(0, mkdir(gone.c_str(), 0777));
  m_log.Print("lost too");
  EXPECT_TRUE(m_log.OpenTodaysFile());
  m_log.Print("kept");
  EXPECT_EQ("kept", m_dir.Read("gone/2024-01-03.log"));
}

TEST_F(CDailyEventLogTest, WritesToStandardOutput) {
  testing::internal::CaptureStdout();
  ASSERT_TRUE(m_log.Open("stdout", nullptr, nullptr, 1));
  m_log.Print("one ");
  m_log.m_now += 2 * kDay;
  m_log.Print("two ");
  m_log.Close();
  m_log.Print("lost ");
  ASSERT_TRUE(m_log.OpenTodaysFile());
  m_log.Print("three ");
  m_log.Close();
  puts("four");  // standard output is still open
  EXPECT_EQ("one two three four\n", testing::internal::GetCapturedStdout());
}
