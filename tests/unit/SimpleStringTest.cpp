#include "common/SimpleString.h"

#include "tests/unit/StringModel.h"

using Velk::SimpleString;

static const char* const kNull = nullptr;

TEST(SimpleString, AgreesWithAPlainString) {
  StringModel<SimpleString>(Choices::Random(20240229, 200000)).Run();
}

TEST(SimpleString, SomeEmptyStringsShareOneBlock) {
  const SimpleString absent(kNull);
  EXPECT_EQ(absent.Str(), SimpleString("", 0).Str());
  EXPECT_EQ(absent.Str(), SimpleString("hello").Mid(6).Str());
  EXPECT_EQ(absent.Str(), SimpleString(absent).Str());
  EXPECT_NE(absent.Str(), SimpleString().Str());
  EXPECT_NE(absent.Str(), SimpleString("").Str());
}

TEST(SimpleString, CapacityGrowsInWholeSteps) {
  const char* const x = "xxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxxx";
  EXPECT_EQ(0u, SimpleString().Capacity());
  EXPECT_EQ(32u, SimpleString().Append('x').Capacity());
  EXPECT_EQ(32u, SimpleString().Append(x, 32).Capacity());
  EXPECT_EQ(64u, SimpleString().Append(x, 33).Capacity());
  EXPECT_EQ(42u, SimpleString(10, 0).Append(x, 11).Capacity());
  EXPECT_EQ(15u, SimpleString(5, 10).Append(x, 6).Capacity());
  EXPECT_EQ(35u, SimpleString(5, 10).Append(x, 5).Append2('x', 21).Capacity());
  SimpleString tens(x, 5);
  tens.SetGrowBy(10);
  tens.GrowStringBy(11);
  EXPECT_EQ(25u, tens.Capacity());
  tens.GetBuffer(26);
  EXPECT_EQ(35u, tens.Capacity());
  tens.ReleaseBuffer(INT_MAX);
  EXPECT_EQ(35u, tens.Length());
  // The copy has the original's growth step, not its capacity.
  EXPECT_EQ(40u, SimpleString(tens).Capacity());
  tens.Empty();
  EXPECT_EQ(35u, tens.Capacity());
  SimpleString absent(kNull);
  absent.SetGrowBy(100);  // allocates a block although it is empty
  EXPECT_EQ(100u, absent.Append('x').Capacity());
}

TEST(SimpleString, ExactFitMovesToABlockOfTheSameCapacity) {
  SimpleString text("abcd");
  const char* before = text.Str();
  EXPECT_NE(before, text.GetBuffer(4));
  text.ReleaseBuffer(-1);
  EXPECT_EQ(4u, text.Capacity());
  text.Format("%s", "1234");
  EXPECT_EQ(4u, text.Capacity());
  EXPECT_STREQ("1234", text.Str());
  // Append2() makes room for its character even if asked for none.
  for (int i = 0; i < 100; ++i) text.Append2('x', 0);
  EXPECT_EQ(104u, text.Length());
  EXPECT_LE(104u, text.Capacity());
}

TEST(SimpleString, SetReplacesButNotWithItself) {
  SimpleString text("hello");
  text.Set(text).Set(text.Str(), 2);
  EXPECT_STREQ("hello", text.Str());
  EXPECT_STREQ("llo", text.Set(text.Str() + 2).Str());
  EXPECT_STREQ("ab", text.Set("abc", 2).Str());
  EXPECT_STREQ("c", text.Set('c').Str());
  EXPECT_STREQ("", text.Set(kNull).Str());
  EXPECT_FALSE(text == kNull || text.EqNoCase(kNull));
}

TEST(SimpleString, ComparesAsFarAsTheShorterText) {
  const std::tuple<const char*, const char*, int> rows[] = {
      {"abc", "ABCDEF", 0}, {"", "x", 0},    {"abd", "ABC", 1}, {"ABC", "abd", -1},
      {kNull, "a", -1},     {"a", kNull, 1}, {kNull, kNull, 0}, {"\x80", "a", 1},
  };
  for (const auto& [a, b, sign] : rows) {
    const int result = SimpleString::cmpni(a, b);
    EXPECT_EQ(sign, (result > 0) - (result < 0)) << (a != nullptr ? a : "null");
  }
}

TEST(SimpleStringDeathTest, EndsTheProcessRatherThanWrapRound) {
  EXPECT_DEATH(SimpleString("text").GrowStringBy(UINT_MAX - 2), "");
  EXPECT_DEATH(SimpleString(UINT_MAX, 0), "");
}

TEST(SimpleString, OneThreadsCopiesDoNotDisturbAnothers) {
  InThreads(2, [](unsigned id) {
    const SimpleString source(0u, 16 + 32 * id);
    for (int i = 0; i < 1000; ++i) {
      SimpleString copy(source);
      copy.ReleaseBuffer(-1);
      copy.Trim();
      EXPECT_STREQ("text", copy.Append("text").Str());
    }
  });
}
