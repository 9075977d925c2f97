#include "common/ArgsParser.h"

#include "tests/unit/ArgsModel.h"
#include "tests/unit/Choices.h"

TEST(ArgsParser, AgreesWithAPlainParserAndReadsWhatTheBuilderWrites) {
  Choices choices = Choices::Random(1, 600000);
  Velk::ArgsParser parser(6);
  while (choices.AreLeft() && !HasFailure())
    CheckArgs(parser, 6, choices.Text("ab1- ~`'\" \t\xFF", choices.Below(50) == 0 ? 600 : 24));
}

TEST(ArgsParser, ReadsNumbers) {
  const std::tuple<const char*, long long, double> rows[] = {
      {"' -12x'", -12, -12},
      {"+7", 7, 7},
      {"0x10", 0, 16},
      {"''", 0, 0},
      {"2.5e1", 2, 25},
      {"--1", 0, 0},
      {"'- 1'", 0, 0},
      {"010", 10, 10},
      {"9223372036854775807", LLONG_MAX, 9223372036854775807.0},
      {"18446744073709551617", 1, 18446744073709551617.0},
  };
  Velk::ArgsParser parser(1);
  for (const auto& [text, asInt, asNum] : rows) {
    ASSERT_TRUE(parser.ParseArgs(text));
    const Velk::IArg* arg = parser.GetArgs()->GetItem(0);
    EXPECT_EQ(asInt, arg->AsInt()) << text;
    EXPECT_DOUBLE_EQ(asNum, arg->AsNum()) << text;
    EXPECT_EQ(static_cast<uintptr_t>(asInt), reinterpret_cast<uintptr_t>(arg->AsPtr())) << text;
  }
}

TEST(ArgsParser, OnlyIndexingReachesOneSlotBeyondTheLast) {
  Velk::ArgsParser parser(2);
  EXPECT_EQ(nullptr, parser.GetArgs()->GetItem(0));
  ASSERT_TRUE(parser.ParseArgs(nullptr) && parser.ParseArgs("one two"));
  EXPECT_NE(nullptr, (*parser.GetArgs())[2]);  // even if all slots are used
  // A longer text gets another buffer. No slot may still point into the old one.
  ASSERT_TRUE(parser.ParseArgs(std::string(300, 'x').c_str()));
  const Velk::IArgsList& args = *parser.GetArgs();
  EXPECT_EQ(1u, args.GetCount());
  EXPECT_EQ(nullptr, args.GetItem(1));
  ASSERT_NE(nullptr, args[1]);
  EXPECT_TRUE(args[1]->AsStr() == nullptr && args[1]->AsInt() == 0 && args[1]->AsNum() == 0);
  EXPECT_EQ(nullptr, args[2]);
}

TEST(ArgsBuilder2, WritesAsListed) {
  CallKeeper keeper;
  (keeper << "Name" << -5 << 2.5 << static_cast<const char*>(nullptr)).CallObj();
  EXPECT_EQ("Name", keeper.m_name);
  EXPECT_EQ(" -5 2.500000 ``", keeper.m_args);
  (keeper << "" << INT_MIN << LLONG_MIN << ULLONG_MAX << -1e308).CallObj();
  EXPECT_EQ(0u, keeper.m_args.find(" -2147483648 -9223372036854775808 18446744073709551615 -1"));
  EXPECT_EQ(".000000", keeper.m_args.substr(keeper.m_args.size() - 7));
}
