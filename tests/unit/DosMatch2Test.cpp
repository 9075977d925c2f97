#include "common/DosMatch2.h"

#include "tests/unit/Choices.h"
#include "tests/unit/WildcardModel.h"

TEST(DosMatch2, MatchesAsListed) {
  const std::tuple<const char*, const char*, bool, bool> rows[] = {
      // text, pattern, match, match if case is ignored
      {"A.LOG", "*.log", true, true},  // past the first character after a star, case is ignored
      {"", "*", false, false},         // a star at the end needs a character
      {"a", "*?", true, true},         // a "?" after a star needs none
      {"\xE4", "\xC4", false, false},  // only ASCII has case
      {nullptr, nullptr, true, true},
  };
  for (const auto& [text, pattern, exact, any] : rows) {
    const std::string what = std::string(text ? text : "null") + " ~ " + (pattern ? pattern : "null");
    EXPECT_EQ(exact, Velk::DosMatch2(text, pattern, true)) << what;
    EXPECT_EQ(any, Velk::DosMatch2(text, pattern, false)) << what;
  }
}

TEST(DosMatch2, AgreesWithTheRecursiveRules) {
  Choices choices = Choices::Random(7, 1000000);
  unsigned matches = 0;
  while (choices.AreLeft() && !HasFailure())
    matches += CheckMatch(choices.Text("aAbB", 9), choices.Text("aAbB**?", 8), choices.Below(2) == 0);
  EXPECT_GT(matches, 3000u);
}

TEST(DosMatch2, ManyStarsStayCheap) {
  const std::string text(4000, 'a');
  std::string pattern;
  for (int i = 0; i < 100; ++i) pattern += "*a";
  EXPECT_FALSE(Velk::DosMatch2(text.c_str(), (pattern + "*b").c_str(), true));
  EXPECT_TRUE(Velk::DosMatch2(text.c_str(), (pattern + "*").c_str(), true));
}
