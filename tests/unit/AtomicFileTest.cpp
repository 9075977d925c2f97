#include "common/AtomicFile.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/resource.h>

#include "tests/unit/TempDirectory.h"

namespace {

struct AtomicFileTest : testing::Test {
  bool Save(const std::string& name, const std::string& text) const {
    Velk::AtomicFile file;
    fputs(text.c_str(), file.Open(m_dir.Path(name).c_str()));
    return file.Commit();
  }

  bool SaveAsOwn(const std::string& name, const std::string& text) const {
    Velk::AtomicFile file;
    fputs(text.c_str(), file.Open(m_dir.Path(name).c_str()));
    return file.CommitAsOwn();
  }

  const TempDirectory m_dir;
  const std::string m_longName = std::string(NAME_MAX, 'n');  // no room for a temporary file's suffix
};

TEST_F(AtomicFileTest, ReplacesTheWholeFileOnCommitOnly) {
  for (const std::string& name : {std::string("file"), m_longName}) {
    const std::string path = m_dir.Path(name);
    m_dir.Write(name, "old text");
    ASSERT_EQ(0, chmod(path.c_str(), 0640));
    for (const char* text : {"new", "new and longer", ""}) {
      const std::string before = m_dir.Read(name);
      Velk::AtomicFile file;
      FILE* out = file.Open(path.c_str());
      ASSERT_NE(nullptr, out);
      fputs(text, out);
      fflush(out);
      EXPECT_EQ(before, m_dir.Read(name));
      EXPECT_TRUE(file.Commit());
      EXPECT_FALSE(file.Commit());
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
  EXPECT_EQ(3, m_dir.CountFiles());
}

TEST_F(AtomicFileTest, ReplacesAnyOldFileWithItsOwn) {
  m_dir.Write("victim", "keep");
  m_dir.Write("private", "old");
  const mode_t before = umask(077);
  ASSERT_EQ(0, chmod(m_dir.Path("private").c_str(), 0600));
  ASSERT_EQ(0, symlink("victim", m_dir.Path("link").c_str()));
  ASSERT_EQ(0, mkfifo(m_dir.Path("fifo").c_str(), 0600));
  for (const std::string& name : Lines{"private", "link", "fifo", "new"}) {
    EXPECT_TRUE(SaveAsOwn(name, "new text")) << name;
    struct stat status {};
    ASSERT_EQ(0, lstat(m_dir.Path(name).c_str(), &status));
    EXPECT_EQ(S_IFREG | 0644u, status.st_mode) << name;
    EXPECT_EQ("new text", m_dir.Read(name)) << name;
  }
  umask(before);
  EXPECT_EQ("keep", m_dir.Read("victim"));

  m_dir.Write(m_longName, "longer old text");  // overwritten, as it has no room for the suffix
  ASSERT_EQ(0, chmod(m_dir.Path(m_longName).c_str(), 0666));
  EXPECT_TRUE(SaveAsOwn(m_longName, "new"));
  EXPECT_EQ("new", m_dir.Read(m_longName));
  struct stat status {};
  ASSERT_EQ(0, stat(m_dir.Path(m_longName).c_str(), &status));
  EXPECT_EQ(S_IFREG | 0644u, status.st_mode);
  ASSERT_EQ(0, mkdir(m_dir.Path("dir").c_str(), 0700));
  EXPECT_FALSE(SaveAsOwn("dir", "new"));
  EXPECT_EQ(EISDIR, errno);
  EXPECT_EQ(7, m_dir.CountFiles());
}

TEST_F(AtomicFileTest, RemovesWhatAKilledProcessLeft) {
  for (const char* name : {"file", "file.unfinished-aB3xYz", "file.backup", "file.unfinished-short",
                           "file.unfinished-toolong", "file.unfinished-dot.aB", "other.unfinished-aB3xYz"})
    m_dir.Write(name, "x");
  ASSERT_EQ(0, mkdir(m_dir.Path("file.unfinished-folder").c_str(), 0700));
  ASSERT_EQ(0, symlink("file", m_dir.Path("file.unfinished-symlnk").c_str()));
  const long before = m_dir.CountFiles();
  Velk::AtomicFile::RemoveLeftovers(m_dir.Path("file").c_str());
  EXPECT_EQ(before - 1, m_dir.CountFiles());
  EXPECT_NE(0, access(m_dir.Path("file.unfinished-aB3xYz").c_str(), F_OK));
  Velk::AtomicFile::RemoveLeftovers("/none/file");
}

TEST_F(AtomicFileTest, RefusesAllButRegularFilesWithoutBlocking) {
  m_dir.Write("victim", "keep");
  ASSERT_EQ(0, symlink("victim", m_dir.Path("link").c_str()));
  for (const char* fifo : {"fifo", "fifo with reader"}) ASSERT_EQ(0, mkfifo(m_dir.Path(fifo).c_str(), 0600));
  const int reader = open(m_dir.Path("fifo with reader").c_str(), O_RDONLY | O_NONBLOCK);
  ASSERT_EQ(0, mkdir(m_dir.Path("dir").c_str(), 0700));
  ASSERT_EQ(0, link(m_dir.Path("victim").c_str(), m_dir.Path(m_longName).c_str()));  // has two links
  const long before = m_dir.CountFiles();
  for (const std::string& name : Lines{"link", "fifo", "dir", "none/file", "fifo with reader", m_longName})
    EXPECT_FALSE(Save(name, "new")) << name;
  close(reader);
  Velk::AtomicFile file;
  EXPECT_EQ(nullptr, file.Open(nullptr));
  EXPECT_FALSE(file.Commit());
  EXPECT_EQ("keep", m_dir.Read("victim"));
  EXPECT_EQ(before, m_dir.CountFiles());
}

TEST_F(AtomicFileTest, KeepsTheOldContentWhenThereIsNoRoom) {
  signal(SIGXFSZ, SIG_IGN);
  rlimit limit{};
  getrlimit(RLIMIT_FSIZE, &limit);
  for (const std::string& name : {std::string("file"), m_longName}) {
    m_dir.Write(name, "old");
    const rlimit low{5, limit.rlim_max};
    setrlimit(RLIMIT_FSIZE, &low);
    EXPECT_FALSE(Save(name, "too much"));
    setrlimit(RLIMIT_FSIZE, &limit);
    EXPECT_EQ("old", m_dir.Read(name));
  }
  EXPECT_EQ(2, m_dir.CountFiles());
}

}  // namespace
