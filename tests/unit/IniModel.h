// Checks that configuration survives saving and loading.
#pragma once

#include <ctype.h>

#include "common/IniFile3.h"
#include "tests/unit/TempDirectory.h"

// Returns the content as "[section]{key|value}...", with "-" for null. Uses EnumSections() and EnumValues().
inline std::string Dump(const IniFile3& ini) {
  struct Context {
    const IniFile3* ini;
    std::string text;
  } context{&ini, {}};
  ini.EnumSections(
      [](const char* name, void* user) {
        auto* to = static_cast<Context*>(user);
        to->text += std::string("[") + (name != nullptr ? name : "-") + "]";
        return to->ini->EnumValues(
            name,
            [](const char*, const char* key, const char* value, void* out) {
              static_cast<Context*>(out)->text += std::string("{") + key + "|" + (value ? value : "-") + "}";
              return true;
            },
            user);
      },
      &context);
  return context.text;
}

// Whether the format can represent this value.
inline bool IsRepresentable(const char*, const char* key, const char* value, void*) {
  if (strchr(value, '\n') != nullptr) return false;
  const bool isQuoted = strchr(value, ' ') != nullptr;
  if (!isQuoted && (*value == '"' || isspace(static_cast<unsigned char>(*value)) != 0)) return false;
  constexpr size_t kMarks = 5;  // equals sign, quotes, line feed, NUL
  return strlen(key) + 2 * strlen(value) + kMarks <= IniFile3::kLineSize;
}

// Checks that saving and loading keeps the values, if the format can represent all. Returns whether it can.
inline bool CheckSavedAndLoaded(const TempDirectory& directory, const std::string& text) {
  const std::string path = directory.Path("f");
  directory.Write("f", text);
  IniFile3 ini;
  EXPECT_NE(0, ini.Load(path.c_str()));
  const auto finds = [](const char* section, const char* key, const char* value, void* user) {
    return strcmp(value, static_cast<const IniFile3*>(user)->GetString(section, key, "?")) == 0;
  };
  EXPECT_TRUE(ini.EnumAllValues(finds, &ini));
  const std::string content = Dump(ini);
  const bool isRepresentable = ini.EnumAllValues(IsRepresentable, nullptr);
  EXPECT_NE(0, ini.Save(path.c_str()));
  EXPECT_NE(0, ini.Load(path.c_str()));
  EXPECT_TRUE(!isRepresentable || content == Dump(ini)) << text << "\n-> " << content << "\n-> " << Dump(ini);
  return isRepresentable;
}
