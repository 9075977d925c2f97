#include "common/AtomicFile.h"

#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include "tests/unit/TempDirectory.h"

namespace {

constexpr auto kDurable = Velk::AtomicFile::Durability::kSurvivesPowerCut;

class AtomicFileTest : public testing::Test {
 protected:
  bool Save(const std::string& name, const std::string& text) const {
    Velk::AtomicFile file;
    fputs(text.c_str(), file.Open(m_dir.Path(name).c_str()));
    return file.Commit(kDurable);
  }

  long CountFiles() const { return std::distance(std::filesystem::directory_iterator(m_dir.path), {}); }

  TempDirectory m_dir;
};

TEST_F(AtomicFileTest, ReplacesTheWholeFileOnCommitOnly) {
  const std::string longName(NAME_MAX, 'n');  // leaves no room for the name of a file beside it
  for (const std::string& name : {std::string("file"), longName}) {
    const std::string path = m_dir.Path(name);
    m_dir.Write(name, "old text");
    ASSERT_EQ(0, chmod(path.c_str(), 0640));
    for (const std::string& text : {std::string("new"), std::string("new and longer"), std::string()}) {
      const std::string before = m_dir.Read(name);
      Velk::AtomicFile file;
      FILE* out = file.Open(path.c_str());
      ASSERT_NE(nullptr, out);
      fputs(text.c_str(), out);
      fflush(out);
      EXPECT_EQ(before, m_dir.Read(name));
      EXPECT_TRUE(file.Commit(kDurable));
      EXPECT_FALSE(file.Commit(kDurable));
      EXPECT_EQ(text, m_dir.Read(name));
    }
    struct stat status {};
    EXPECT_EQ(0, stat(path.c_str(), &status));
    EXPECT_EQ(0640u, status.st_mode & 07777);
  }
  {
    Velk::AtomicFile dropped;
    fputs("half", dropped.Open(m_dir.Path("file").c_str()));
  }
  EXPECT_EQ("", m_dir.Read("file"));
  EXPECT_TRUE(Save("made", "text"));
  EXPECT_EQ("text", m_dir.Read("made"));
  EXPECT_EQ(3, CountFiles());
}

TEST_F(AtomicFileTest, RefusesWhatIsNoRegularFileWithoutBlocking) {
  m_dir.Write("victim", "keep");
  ASSERT_EQ(0, symlink("victim", m_dir.Path("link").c_str()));
  ASSERT_EQ(0, mkfifo(m_dir.Path("fifo").c_str(), 0600));
  ASSERT_EQ(0, mkdir(m_dir.Path("dir").c_str(), 0700));
  const std::string longName(NAME_MAX, 'n');  // would have to be written over
  ASSERT_EQ(0, link(m_dir.Path("victim").c_str(), m_dir.Path(longName).c_str()));
  const long before = CountFiles();
  for (const std::string& name : {std::string("link"), std::string("fifo"), std::string("dir"),
                                  std::string("none/file"), std::string("../../dev/null"), longName}) {
    EXPECT_FALSE(Save(name, "new")) << name;
  }
  Velk::AtomicFile file;
  EXPECT_EQ(nullptr, file.Open(nullptr));
  EXPECT_FALSE(file.Commit(kDurable));
  EXPECT_EQ("keep", m_dir.Read("victim"));
  EXPECT_EQ(before, CountFiles());
}

TEST_F(AtomicFileTest, KeepsTheOldContentWhenThereIsNoRoom) {
  const std::string longName(NAME_MAX, 'n');  // written over, not replaced
  signal(SIGXFSZ, SIG_IGN);
  rlimit limit{};
  getrlimit(RLIMIT_FSIZE, &limit);
  for (const std::string& name : {std::string("file"), longName}) {
    m_dir.Write(name, "old");
    const rlimit low{5, limit.rlim_max};
    setrlimit(RLIMIT_FSIZE, &low);
    EXPECT_FALSE(Save(name, "too much"));
    setrlimit(RLIMIT_FSIZE, &limit);
    EXPECT_EQ("old", m_dir.Read(name));
  }
  EXPECT_EQ(2, CountFiles());
}

}  // namespace
