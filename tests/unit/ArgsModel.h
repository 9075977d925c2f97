// The grammar of argument texts once more, on strings that grow.
#pragma once

#include <algorithm>
#include <string>
#include <vector>

#include "common/IArgsList.h"

using Texts = std::vector<std::string>;

inline Texts TextsOf(const Velk::IArgsList& args) {
  Texts texts;
  for (unsigned i = 0; i < args.GetCount(); ++i) texts.emplace_back(args.GetItem(i)->AsStr());
  return texts;
}

inline bool ParsePlainly(const std::string& text, size_t maxArgs, Texts& args) {
  const std::string space = " \t\n\v\f\r";
  for (size_t i = 0; (i = text.find_first_not_of(space, i)) != std::string::npos;) {
    if (args.size() == maxArgs) return false;
    args.emplace_back();
    const char quote = text[i];
    if (std::string("'`\"").find(quote) == std::string::npos) {
      const size_t end = std::min(text.find_first_of(space, i), text.size());
      args.back() = text.substr(i, end - i);
      i = end;
      continue;
    }
    for (++i; i < text.size() && text[i] != quote; ++i) {
      if (text[i] == '~') ++i;
      if (i < text.size()) args.back() += text[i];
    }
    if (i >= text.size()) return false;
    ++i;
  }
  return true;
}
