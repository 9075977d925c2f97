// Configuration files: what was loaded is the same after it was saved and loaded again, where the format can
// tell it at all.
#include <ctype.h>
#include <gtest/gtest.h>
#include <stdint.h>
#include <string.h>

#include "tests/unit/IniDump.h"
#include "tests/unit/TempDirectory.h"

extern "C" int fsync(int) {
  return 0;  // keeps the disk out of it
}

namespace {

bool Survives(const char*, const char* key, const char* value, void*) {
  if (strchr(value, '\n') != nullptr) return false;
  const bool isQuoted = strchr(value, ' ') != nullptr;
  if (!isQuoted && (*value == '"' || isspace(static_cast<unsigned char>(*value)) != 0)) return false;
  constexpr size_t kMarks = 5;  // equals sign, quotes, line feed, NUL
  return strlen(key) + 2 * strlen(value) + kMarks <= IniFile3::kLineSize;
}

bool ReadAll(const char* section, const char* key, const char*, void* user) {
  const auto& ini = *static_cast<const IniFile3*>(user);
  char text[8];
  EXPECT_NE(nullptr, ini.GetString(section, key, text, sizeof text, nullptr));
  ini.GetInt(section, key, 0);
  ini.GetBool(section, key, false);
  ini.GetDb(section, key, 0);
  return true;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  static const TempDirectory directory;
  static const std::string path = directory.path + "/f";
  directory.Write("f", std::string(data, data + size));
  IniFile3 ini;
  EXPECT_EQ(size <= IniFile3::kMaxFileSize ? 1 : 0, ini.Load(path.c_str()));
  ini.EnumAllValues(ReadAll, &ini);
  const std::string content = Dump(ini);
  const bool isTold = ini.EnumAllValues(Survives, nullptr);
  EXPECT_NE(0, ini.Save(path.c_str()));
  EXPECT_NE(0, ini.Load(path.c_str()));
  if (isTold) {
    EXPECT_EQ(content, Dump(ini));
  }
  return 0;
}
