// A simple second parser for argument texts.
#pragma once

#include "common/ArgsBuilder2.h"
#include "common/ArgsParser.h"
#include "common/IGenericDispatchObj.h"
#include "tests/unit/Test.h"

inline Lines TextsOf(const Velk::IArgsList& args) {
  Lines texts;
  for (unsigned i = 0; i < args.GetCount(); ++i) texts.emplace_back(args.GetItem(i)->AsStr());
  return texts;
}

inline bool ParsePlainly(const std::string& text, size_t maxArgs, Lines& args) {
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

struct CallKeeper final : Velk::IGenericDispatchObj {
  void Call(const char* name, const char* args) override {
    m_name = name;
    m_args = args;
  }
  Velk::ArgsBuilder2 operator<<(const char* name) override { return Velk::ArgsBuilder2(name, this); }

  std::string m_name;
  std::string m_args;
};

// Compares the parsers on a text, then builds a text from the arguments and parses it.
inline void CheckArgs(Velk::ArgsParser& parser, unsigned maxArgs, const std::string& text) {
  SCOPED_TRACE(text);
  Lines expected;
  const bool isGood = ParsePlainly(text, maxArgs, expected);
  ASSERT_EQ(isGood, parser.ParseArgs(std::string(text).c_str()));  // a copy of exact size, for sanitizers
  const Velk::IArgsList& args = *parser.GetArgs();
  ASSERT_EQ(expected, TextsOf(args));

  CallKeeper keeper;
  Velk::ArgsBuilder2 builder = keeper << "x";
  Lines written;
  for (unsigned i = 0; i < args.GetCount(); ++i) {
    args.GetItem(i)->AsNum();  // for the sanitizers
    builder << args[i]->AsStr() << args[i]->AsInt();
    written.insert(written.end(), {args[i]->AsStr(), std::to_string(args[i]->AsInt())});
  }
  builder.CallObj();
  Velk::ArgsParser second(2 * maxArgs);
  ASSERT_TRUE(second.ParseArgs(keeper.m_args.c_str()));
  ASSERT_EQ(written, TextsOf(*second.GetArgs()));
}
