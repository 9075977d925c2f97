#include "common/SimpleString.h"

#include <gtest/gtest.h>
#include <limits.h>

#include <thread>

#include "tests/unit/StringModel.h"

using Velk::SimpleString;

TEST(SimpleString, AgreesWithAPlainString) {
  const auto bytes = RandomBytes(20240229, 200000);
  StringModel<SimpleString>(Choices(bytes.data(), bytes.size())).Run();
}

TEST(SimpleString, EmptyStringsShareOneBlock) {
  const SimpleString absent(nullptr);
  const SimpleString none("", 0);
  const SimpleString cut = SimpleString("hello").Mid(6);
  EXPECT_EQ(absent.Str(), none.Str());
  EXPECT_EQ(absent.Str(), cut.Str());
  EXPECT_EQ(absent.Str(), SimpleString(none).Str());
  EXPECT_NE(absent.Str(), SimpleString().Str());
  EXPECT_NE(absent.Str(), SimpleString("").Str());
}

TEST(SimpleString, CapacityGrowsInWholeSteps) {
  SimpleString text;
  EXPECT_EQ(0u, text.Capacity());
  text.Append('a');
  EXPECT_EQ(32u, text.Capacity());
  text.Append("12345678901234567890123456789012", 31);
  EXPECT_EQ(32u, text.Capacity());
  text.Append('b');
  EXPECT_EQ(64u, text.Capacity());
  text.Empty();
  EXPECT_EQ(64u, text.Capacity());

  SimpleString zeroStep(10, 0);
  zeroStep.Append("12345678901");
  EXPECT_EQ(42u, zeroStep.Capacity());

  SimpleString tens(5, 10);
  tens.Append("123456");
  EXPECT_EQ(15u, tens.Capacity());
  tens.GrowStringBy(11);
  EXPECT_EQ(35u, tens.Capacity());
  tens.GetBuffer(36);
  EXPECT_EQ(45u, tens.Capacity());
  tens.ReleaseBuffer(INT_MAX);
  EXPECT_EQ(45u, tens.Length());
  tens.Append2('x', 21);
  EXPECT_EQ(75u, tens.Capacity());
  EXPECT_EQ(46u, tens.Length());
  // The copy starts with the step that it was given, not with the capacity.
  EXPECT_EQ(50u, SimpleString(tens).Capacity());
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
  // No room asked for is still room for the character.
  for (int i = 0; i < 100; ++i) text.Append2('x', 0);
  EXPECT_EQ(104u, text.Length());
  EXPECT_LE(104u, text.Capacity());
}

TEST(SimpleString, SetGrowByOfAnEmptyStringTakesANewBlock) {
  SimpleString text(nullptr);  // owns no block that could be left behind
  const char* before = text.Str();
  text.SetGrowBy(100);
  EXPECT_NE(before, text.Str());
  text.Append('a');
  EXPECT_EQ(100u, text.Capacity());
  text.SetGrowBy(7);
  text.GrowStringBy(1);
  EXPECT_EQ(107u, text.Capacity());
}

TEST(SimpleString, SetReplacesButNotWithItself) {
  SimpleString text("hello");
  text.Set(text);
  text.Set(text.Str(), 2);
  EXPECT_STREQ("hello", text.Str());
  text.Set(text.Str() + 2);
  EXPECT_STREQ("llo", text.Str());
  text.Set("abc", 2);
  EXPECT_STREQ("ab", text.Str());
  text.Set(static_cast<const char*>(nullptr));
  EXPECT_STREQ("", text.Str());
  EXPECT_FALSE(text == static_cast<const char*>(nullptr));
}

TEST(SimpleString, ComparesAsFarAsTheShorterText) {
  struct {
    const char* a;
    const char* b;
    int sign;
  } const rows[] = {
      {"abc", "ABCDEF", 0}, {"", "x", 0},      {"abd", "ABC", 1},     {"ABC", "abd", -1},
      {nullptr, "a", -1},   {"a", nullptr, 1}, {nullptr, nullptr, 0}, {"\x80", "a", 1},
  };
  for (const auto& row : rows) {
    const int result = SimpleString::cmpni(row.a, row.b);
    EXPECT_EQ(row.sign, (result > 0) - (result < 0)) << (row.a != nullptr ? row.a : "null");
  }
}

TEST(SimpleStringDeathTest, EndsTheProcessRatherThanWrapRound) {
  EXPECT_DEATH(SimpleString("text").GrowStringBy(UINT_MAX - 2), "");
  EXPECT_DEATH(SimpleString(UINT_MAX, 0), "");
}

TEST(SimpleString, OneThreadsCopiesDoNotDisturbAnothers) {
  const auto copyMany = [](unsigned growBy) {
    const SimpleString source(0u, growBy);
    for (int i = 0; i < 1000; ++i) {
      SimpleString copy(source);
      EXPECT_STREQ("", copy.Str());
      copy.ReleaseBuffer(-1);
      copy.Trim();
      copy.Append("text");
      EXPECT_STREQ("text", copy.Str());
    }
  };
  std::thread other(copyMany, 16);
  copyMany(48);
  other.join();
}
