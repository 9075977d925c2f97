// A temporary directory for a test, removed with its content.
#pragma once

#include <sys/stat.h>

#include <filesystem>
#include <fstream>

#include "tests/unit/Test.h"

struct TempDirectory {
  TempDirectory() {
    const char* const base = getenv("TMPDIR");
    path = std::string(base != nullptr ? base : "/tmp") + "/velk-test-XXXXXX";
    if (mkdtemp(&path[0]) == nullptr) abort();
  }
  ~TempDirectory() {
    std::error_code ignored;
    std::filesystem::remove_all(path, ignored);
  }
  TempDirectory(const TempDirectory&) = delete;
  TempDirectory& operator=(const TempDirectory&) = delete;

  std::string Path(const std::string& name) const { return path + "/" + name; }
  void Write(const std::string& name, const std::string& text) const {
    std::ofstream(Path(name), std::ios::binary) << text;
  }
  long CountFiles() const { return std::distance(std::filesystem::directory_iterator(path), {}); }
  // Returns the content, or an empty text if there is no such file.
  std::string Read(const std::string& name) const {
    std::ifstream file(Path(name), std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(file), {});
  }

  std::string path;
};
