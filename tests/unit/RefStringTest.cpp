#include "common/RefString.h"

#include "tests/unit/StringModel.h"

using Velk::RefString;

TEST(RefString, AgreesWithAPlainString) {
  StringModel<RefString>(Choices::Random(20240229, 200000)).Run();
}

TEST(RefString, CapacityFollowsTheGrowthStep) {
  // Room asked for, growth step, capacity of the empty string; and the capacity after 20 characters are
  // appended while it is shared.
  const std::tuple<unsigned long, unsigned long, unsigned, unsigned> rows[] = {
      {31, 32, 63, 31},     {30, 32, 31, 31}, {10, 0, 10, 20},
      {256, 256, 511, 255}, {0, 1, 1, 21},    {0, 0, 0, 20}};
  for (const auto& [room, growBy, capacity, capacityFor20] : rows) {
    RefString text(room, growBy);
    EXPECT_EQ(capacity, text.Capacity()) << room << " by " << growBy;
    EXPECT_TRUE(text.IsEmpty());
    const RefString other(text);
    text.Append("12345678901234567890");
    EXPECT_EQ(capacityFor20, text.Capacity()) << room << " by " << growBy;
  }
}

TEST(RefString, SharesUntilChanged) {
  RefString text("abc");
  const char* block = text.Str();
  {
    RefString copy(text);
    EXPECT_EQ(block, copy.Str());
    EXPECT_STREQ("abcd", copy.Append('d').Str());
    EXPECT_EQ(block, text.GetBuffer(3));  // unshared again: in place
    text.ReleaseBuffer(3);
    copy.Set(text);
    copy.Empty();
    EXPECT_STREQ("", copy.Str());
  }
  EXPECT_STREQ("abc", text.Str());
  EXPECT_EQ(block, text.GetBuffer(3));
  text.Empty();
  EXPECT_EQ(block, text.Str());  // kept, as it is not shared
  EXPECT_EQ(RefString().Str(), RefString("").Str());
}

TEST(RefString, NullAndEmptyAreTheSame) {
  const char* const null = nullptr;
  const RefString text("a");
  for (const RefString& empty : {RefString(), RefString(null), RefString(null, 5)}) {
    EXPECT_STREQ("", empty.Str());
    EXPECT_TRUE(empty == null && empty == "" && empty.EqNoCase(null) && empty < "a");
    EXPECT_FALSE(empty < null || empty < "" || empty > "" || empty > "a");
  }
  EXPECT_FALSE(text == null || text == "" || text.EqNoCase(null) || text < "");
  EXPECT_TRUE(text > null && text > "" && text.EqNoCase("A"));
  EXPECT_EQ(5u, RefString(null, 5).Capacity());
}

TEST(RefString, HashIsTheSameOnEveryMachine) {
  const std::tuple<const char*, unsigned long> rows[] = {
      {"", 0}, {"abcd", 0x61626364}, {"\x80", 0xFFFFFF80}, {"abcde", 0x62636404}, {"\x80\x61", 0xFFFFFF9E}};
  for (const auto& [text, hash] : rows) EXPECT_EQ(hash, static_cast<unsigned long>(RefString(text))) << text;
}

TEST(RefString, CopiesMayLiveInDifferentThreads) {
  for (int i = 0; i < 500; ++i) {
    RefString first("shared");
    const auto change = [](RefString text) {
      RefString copy(text);
      text.Empty();
      text.Append("own");
      EXPECT_STREQ("shared!", copy.Append("!").Str());
    };
    std::thread other(change, first);
    first.MakeUpper();  // in place if the other thread has released it
    EXPECT_STREQ("SHARED", first.Str());
    other.join();
  }
}
