#include "common/Win32FindFiles.h"

#include "tests/unit/TempDirectory.h"

namespace {

struct Seen {
  std::set<std::string> entries;  // "name path", or "name/ path" for a directory
  unsigned stopAfter = 1000;
};

bool Note(const char* name, char* fullPath, bool isDirectory, void* context) {
  Seen* seen = static_cast<Seen*>(context);
  seen->entries.insert(std::string(name) + (isDirectory ? "/ " : " ") + fullPath);
  return seen->entries.size() < seen->stopAfter;
}

}  // namespace

TEST(Win32FindFiles, ReportsFilesAndDirectoriesOnly) {
  const TempDirectory dir;
  ASSERT_EQ(0, mkdir(dir.Path("C.LOG").c_str(), 0777));
  for (const char* name : {"a.log", "b.txt", "C.LOG/inner.log"}) dir.Write(name, "");
  ASSERT_EQ(0, symlink("a.log", dir.Path("link.log").c_str()));
  ASSERT_EQ(0, symlink("nowhere", dir.Path("dangling.log").c_str()));
  ASSERT_EQ(0, mkfifo(dir.Path("pipe.log").c_str(), 0600));
  const std::string prefix = dir.path + "//";  // the caller's slash and the one that is added
  std::set<std::string> expected = {"a.log " + prefix + "a.log", "C.LOG/ " + prefix + "C.LOG",
                                    "link.log " + prefix + "link.log"};
  Seen logs, all;
  EXPECT_TRUE(Win32FindFiles::EnumFiles((dir.path + "/").c_str(), "*.log", Note, &logs));
  EXPECT_EQ(expected, logs.entries);
  expected.insert({"./ " + prefix + ".", "../ " + prefix + "..", "b.txt " + prefix + "b.txt"});
  EXPECT_TRUE(Win32FindFiles::EnumAll((dir.path + "/").c_str(), Note, &all));
  EXPECT_EQ(expected, all.entries);
}

TEST(Win32FindFiles, FailsWithoutADirectorySkipsTooLongPathsAndStopsWhenTold) {
  const TempDirectory dir;
  for (const std::string& name : {std::string("x"), std::string(200, 'n')}) dir.Write(name, "");
  Seen seen;
  EXPECT_FALSE(Win32FindFiles::EnumAll(nullptr, Note, &seen));
  for (const std::string& path : {dir.Path("none"), dir.Path("x"), std::string(5000, '/')})
    EXPECT_FALSE(Win32FindFiles::EnumAll(path.c_str(), Note, &seen));
  EXPECT_TRUE(seen.entries.empty());
  // Extra slashes make the path longer, but it names the same directory.
  std::string directory = dir.path;
  directory.resize(Win32FindFiles::kMaxPath - 4, '/');
  EXPECT_TRUE(Win32FindFiles::EnumAll(directory.c_str(), Note, &seen));
  EXPECT_EQ(3u, seen.entries.size());  // ".", ".." and "x", but not "nnn..."
  seen = {{}, 1};
  EXPECT_FALSE(Win32FindFiles::EnumAll(dir.path.c_str(), Note, &seen));
  EXPECT_EQ(1u, seen.entries.size());
}
