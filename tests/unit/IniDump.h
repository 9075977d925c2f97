// A configuration file's content as one text.
#pragma once

#include <string>

#include "common/IniFile3.h"

// All content as "[section]{key|value}...", "-" for null, from both kinds of enumeration.
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
