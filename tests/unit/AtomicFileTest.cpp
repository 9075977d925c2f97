#include "common/AtomicFile.h"

#include <dirent.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <limits.h>
#include <stdlib.h>
#include <sys/stat.h>
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
    std::ofstream(path) << "a longer old text";
    ASSERT_EQ(0, chmod(path.c_str(), 0640));

    Velk::AtomicFile file;
    FILE* out = file.Open(path.c_str());
    ASSERT_NE(nullptr, out);
    fputs("new", out);
    fflush(out);
    EXPECT_EQ(name == longName ? "new" : "a longer old text", ReadAll(path));
    EXPECT_TRUE(file.Commit());
    EXPECT_FALSE(file.Commit());

    struct stat status {};
    EXPECT_EQ("new", ReadAll(path));
    EXPECT_EQ(0, stat(path.c_str(), &status));
    EXPECT_EQ(0640u, status.st_mode & 07777);
  }
  {
    Velk::AtomicFile dropped;
    fputs("half", dropped.Open(Path("file").c_str()));
  }
  EXPECT_EQ("new", ReadAll(Path("file")));
  EXPECT_EQ(2, CountFiles());
}

TEST_F(AtomicFileTest, RefusesWhatIsNoRegularFileWithoutBlocking) {
  std::ofstream(Path("victim")) << "keep";
  ASSERT_EQ(0, symlink("victim", Path("link").c_str()));
  ASSERT_EQ(0, mkfifo(Path("fifo").c_str(), 0600));
  ASSERT_EQ(0, mkdir(Path("dir").c_str(), 0700));
  const int before = CountFiles();
  Velk::AtomicFile file;
  for (const std::string& path : {Path("link"), Path("fifo"), Path("dir"), Path("none/file"),
                                  std::string("/dev/null"), std::string()}) {
    EXPECT_EQ(nullptr, file.Open(path.c_str())) << path;
    EXPECT_FALSE(file.Commit());
  }
  EXPECT_EQ(nullptr, file.Open(nullptr));
  EXPECT_EQ("keep", ReadAll(Path("victim")));
  EXPECT_EQ(before, CountFiles());
}

// A full disk: what the stream writes to is exchanged for a device without room.
TEST_F(AtomicFileTest, KeepsTheOldContentWhenWritingFails) {
  std::ofstream(Path("file")) << "old";
  Velk::AtomicFile file;
  FILE* out = file.Open(Path("file").c_str());
  ASSERT_NE(nullptr, out);
  const int full = open("/dev/full", O_WRONLY | O_CLOEXEC);
  ASSERT_EQ(fileno(out), dup2(full, fileno(out)));
  close(full);
  fputs("new", out);
  EXPECT_FALSE(file.Commit());
  EXPECT_EQ("old", ReadAll(Path("file")));
  EXPECT_EQ(1, CountFiles());
}

}  // namespace
