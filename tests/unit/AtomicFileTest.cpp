#include "common/AtomicFile.h"

#include <dirent.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <sched.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/mount.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <fstream>
#include <iterator>
#include <string>

namespace {

std::string ReadAll(const std::string& path) {
  std::ifstream in(path);
  return std::string(std::istreambuf_iterator<char>(in), {});
}

class AtomicFileTest : public testing::Test {
 protected:
  void SetUp() override { ASSERT_NE(nullptr, mkdtemp(m_dir)); }
  void TearDown() override { EXPECT_EQ(0, system(("rm -r " + std::string(m_dir)).c_str())); }

  std::string Path(const std::string& name) const { return std::string(m_dir) + "/" + name; }

  bool Save(const std::string& name, const std::string& text) const {
    Velk::AtomicFile file;
    fputs(text.c_str(), file.Open(Path(name).c_str()));
    return file.Commit();
  }

  int CountFiles() const {
    int count = -2;  // "." and ".."
    DIR* dir = opendir(m_dir);
    while (readdir(dir) != nullptr) ++count;
    closedir(dir);
    return count;
  }

  char m_dir[32] = "/tmp/atomicfile.XXXXXX";
};

TEST_F(AtomicFileTest, ReplacesTheWholeFileOnCommitOnly) {
  const std::string longName(NAME_MAX, 'n');  // leaves no room for the name of a file beside it
  for (const std::string& name : {std::string("file"), longName}) {
    const std::string path = Path(name);
    std::ofstream(path) << "old text";
    ASSERT_EQ(0, chmod(path.c_str(), 0640));
    for (const std::string& text : {std::string("new"), std::string("new and longer"), std::string()}) {
      const std::string before = ReadAll(path);
      Velk::AtomicFile file;
      FILE* out = file.Open(path.c_str());
      ASSERT_NE(nullptr, out);
      fputs(text.c_str(), out);
      fflush(out);
      EXPECT_EQ(before, ReadAll(path));
      EXPECT_TRUE(file.Commit());
      EXPECT_FALSE(file.Commit());
      EXPECT_EQ(text, ReadAll(path));
    }
    struct stat status {};
    EXPECT_EQ(0, stat(path.c_str(), &status));
    EXPECT_EQ(0640u, status.st_mode & 07777);
  }
  {
    Velk::AtomicFile dropped;
    fputs("half", dropped.Open(Path("file").c_str()));
  }
  EXPECT_EQ("", ReadAll(Path("file")));
  EXPECT_TRUE(Save("made", "text"));
  EXPECT_EQ("text", ReadAll(Path("made")));
  EXPECT_EQ(3, CountFiles());
}

TEST_F(AtomicFileTest, RefusesWhatIsNoRegularFileWithoutBlocking) {
  std::ofstream(Path("victim")) << "keep";
  ASSERT_EQ(0, symlink("victim", Path("link").c_str()));
  ASSERT_EQ(0, mkfifo(Path("fifo").c_str(), 0600));
  ASSERT_EQ(0, mkdir(Path("dir").c_str(), 0700));
  const std::string longName(NAME_MAX, 'n');  // would have to be written over
  ASSERT_EQ(0, link(Path("victim").c_str(), Path(longName).c_str()));
  const int before = CountFiles();
  for (const std::string& name : {std::string("link"), std::string("fifo"), std::string("dir"),
                                  std::string("none/file"), std::string("../../dev/null"), longName}) {
    EXPECT_FALSE(Save(name, "new")) << name;
  }
  Velk::AtomicFile file;
  EXPECT_EQ(nullptr, file.Open(nullptr));
  EXPECT_FALSE(file.Commit());
  EXPECT_EQ("keep", ReadAll(Path("victim")));
  EXPECT_EQ(before, CountFiles());
}

TEST_F(AtomicFileTest, KeepsTheOldContentWhenThereIsNoRoom) {
  const std::string longName(NAME_MAX, 'n');  // written over, not replaced
  signal(SIGXFSZ, SIG_IGN);
  rlimit limit{};
  getrlimit(RLIMIT_FSIZE, &limit);
  for (const std::string& name : {std::string("file"), longName}) {
    std::ofstream(Path(name)) << "old";
    const rlimit low{5, limit.rlim_max};
    setrlimit(RLIMIT_FSIZE, &low);
    EXPECT_FALSE(Save(name, "too much"));
    setrlimit(RLIMIT_FSIZE, &limit);
    EXPECT_EQ("old", ReadAll(Path(name)));
  }
  EXPECT_EQ(2, CountFiles());
}

// A file that is mounted on its own can't be replaced, and in a full directory nothing can be made beside it.
TEST_F(AtomicFileTest, WritesOverWhatCannotBeRenamedToButNotOnAFullDisk) {
  const pid_t child = fork();
  if (child == 0) {
    const std::string full = Path("full");
    std::ofstream(Path("source")) << "old text";
    std::ofstream(Path("mounted")) << "";
    mkdir(full.c_str(), 0700);
    if (unshare(CLONE_NEWNS) != 0 || mount(nullptr, "/", nullptr, MS_REC | MS_PRIVATE, nullptr) != 0 ||
        mount(Path("source").c_str(), Path("mounted").c_str(), nullptr, MS_BIND, nullptr) != 0 ||
        mount("full", full.c_str(), "tmpfs", 0, "nr_inodes=2") != 0) {
      _exit(2);
    }
    std::ofstream(full + "/file") << "old text";
    const bool isRight = Save("mounted", "new") && ReadAll(Path("source")) == "new" &&
                         !Save("full/file", "new") && ReadAll(full + "/file") == "old text";
    _exit(isRight ? 0 : 1);
  }
  int status = 0;
  waitpid(child, &status, 0);
  if (WEXITSTATUS(status) == 2) GTEST_SKIP() << "mounting is not permitted";
  EXPECT_EQ(0, status);
  EXPECT_EQ(3, CountFiles());
}

}  // namespace
