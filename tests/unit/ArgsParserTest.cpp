#include "common/ArgsParser.h"

#include <gtest/gtest.h>
#include <limits.h>

#include <random>
#include <string>

#include "common/ArgsBuilder2.h"
#include "common/IGenericDispatchObj.h"
#include "tests/unit/ArgsModel.h"

TEST(ArgsParser, SplitsAsListed) {
  struct {
    const char* text;
    bool ok;
    Texts args;
  } const rows[] = {
      {nullptr, true, {}},
      {"", true, {}},
      {" \t\r\n\v\f ", true, {}},
      {"a `b c` 'd~'e'", true, {"a", "b c", "d'e"}},
      {"'a'b\"\"c", true, {"a", "b\"\"c"}},
      {"``''\"~~\"", true, {"", "", "~"}},
      {"x\"y ~z~", true, {"x\"y", "~z~"}},
      {"\xA0\xFF \xE9", true, {"\xA0\xFF", "\xE9"}},  // a signed char must not become a bad table index
      {"`abc", false, {"abc"}},
      {"'ab~", false, {"ab"}},
      {"'ab~'", false, {"ab'"}},
      {"1 2 3 4", true, {"1", "2", "3", "4"}},
      {"1 2 3 4 5", false, {"1", "2", "3", "4"}},
  };
  Velk::ArgsParser parser(4);
  for (const auto& row : rows) {
    const char* shown = row.text != nullptr ? row.text : "null";
    EXPECT_EQ(row.ok, parser.ParseArgs(row.text)) << shown;
    EXPECT_EQ(row.args, TextsOf(*parser.GetArgs())) << shown;
  }
}

TEST(ArgsParser, AgreesWithAPlainParser) {
  std::mt19937 random(1);
  const std::string alphabet = "ab ~`'\" \t";
  Velk::ArgsParser parser(6);
  for (int round = 0; round < 20000; ++round) {
    // Mostly short; at times around the sizes where the buffer grows.
    std::string text(round % 50 == 0 ? 250 + random() % 300 : random() % 24, ' ');
    for (char& c : text) c = alphabet[random() % alphabet.size()];
    Texts expected;
    const bool ok = ParsePlainly(text, 6, expected);
    ASSERT_EQ(ok, parser.ParseArgs(text.c_str())) << text;
    ASSERT_EQ(expected, TextsOf(*parser.GetArgs())) << text;
  }
}

TEST(ArgsParser, ReadsNumbers) {
  struct {
    const char* text;
    long long asInt;
    double asNum;
  } const rows[] = {
      {"' -12x'", -12, -12},
      {"+", 0, 0},
      {"-", 0, 0},
      {"+7", 7, 7},
      {"0x10", 0, 16},
      {"''", 0, 0},
      {"2.5e1", 2, 25},
      {"--1", 0, 0},
      {"'- 1'", 0, 0},
      {"010", 10, 10},
      {"word", 0, 0},
      {"9223372036854775807", LLONG_MAX, 9223372036854775807.0},
      {"18446744073709551617", 1, 18446744073709551617.0},
  };
  Velk::ArgsParser parser(1);
  for (const auto& row : rows) {
    ASSERT_TRUE(parser.ParseArgs(row.text));
    const Velk::IArg* arg = parser.GetArgs()->GetItem(0);
    EXPECT_EQ(row.asInt, arg->AsInt()) << row.text;
    EXPECT_DOUBLE_EQ(row.asNum, arg->AsNum()) << row.text;
    EXPECT_EQ(static_cast<uintptr_t>(row.asInt), reinterpret_cast<uintptr_t>(arg->AsPtr())) << row.text;
  }
}

TEST(ArgsParser, ReachesOneSlotBeyondByIndexOnly) {
  Velk::ArgsParser parser(2);
  EXPECT_EQ(nullptr, parser.GetArgs()->GetItem(0));
  ASSERT_TRUE(parser.ParseArgs("one two"));
  // A text that needs another buffer must leave no slot in the old one.
  ASSERT_TRUE(parser.ParseArgs(std::string(300, 'x').c_str()));
  const Velk::IArgsList& args = *parser.GetArgs();
  EXPECT_EQ(1u, args.GetCount());
  EXPECT_EQ(nullptr, args.GetItem(1));
  ASSERT_NE(nullptr, args[1]);
  EXPECT_EQ(nullptr, args[1]->AsStr());
  EXPECT_EQ(0, args[1]->AsInt());
  EXPECT_EQ(0, args[1]->AsNum());
  EXPECT_EQ(nullptr, args[2]);
  ASSERT_TRUE(parser.ParseArgs("1 2"));
  EXPECT_NE(nullptr, (*parser.GetArgs())[2]);  // full: still a slot
}

namespace {

class CallKeeper final : public Velk::IGenericDispatchObj {
 public:
  void Call(const char* name, const char* args) override {
    m_name = name;
    m_args = args;
  }
  Velk::ArgsBuilder2 operator<<(const char* name) override { return Velk::ArgsBuilder2(name, this); }

  std::string m_name;
  std::string m_args;
};

}  // namespace

TEST(ArgsBuilder2, WritesAsListed) {
  CallKeeper keeper;
  (keeper << "Name" << -5 << 2.5).CallObj();
  EXPECT_EQ("Name", keeper.m_name);
  EXPECT_EQ(" -5 2.500000", keeper.m_args);
  (keeper << ""
          << "a~b`'c" << static_cast<const char*>(nullptr) << 0)
      .CallObj();
  EXPECT_EQ("`a~~b~`'c` `` 0", keeper.m_args);
  (keeper << "x" << INT_MIN << LLONG_MIN << ULLONG_MAX << -1e308).CallObj();
  EXPECT_EQ(0u, keeper.m_args.find(" -2147483648 -9223372036854775808 18446744073709551615 -1"));
  EXPECT_EQ(".000000", keeper.m_args.substr(keeper.m_args.size() - 7));
}

TEST(ArgsBuilder2, IsReadBackUnchanged) {
  std::mt19937_64 random(2);
  CallKeeper keeper;
  Velk::ArgsParser parser(16);
  for (int round = 0; round < 2000; ++round) {
    Velk::ArgsBuilder2 builder = keeper << "x";
    Texts expected;
    for (auto left = random() % 16; left != 0; --left) {
      std::string text(static_cast<size_t>(random() % 40), ' ');
      for (char& c : text)
        c = static_cast<char>(random() % 4 == 0 ? "~`' "[random() % 4] : 1 + random() % 255);
      const auto number = static_cast<long long>(random() >> random() % 64);
      if (random() % 2 == 0) {
        builder << text.c_str();
        expected.push_back(text);
      } else {
        builder << number;
        expected.push_back(std::to_string(number));
      }
    }
    builder.CallObj();
    ASSERT_TRUE(parser.ParseArgs(keeper.m_args.c_str())) << keeper.m_args;
    ASSERT_EQ(expected, TextsOf(*parser.GetArgs()));
  }
}
