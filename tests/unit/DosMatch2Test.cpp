#include "common/DosMatch2.h"

#include <gtest/gtest.h>

#include <random>
#include <string>

#include "tests/unit/WildcardModel.h"

TEST(DosMatch2, MatchesAsListed) {
  struct {
    const char* text;
    const char* pattern;
    bool exact;
    bool any;  // without regard to case
  } const rows[] = {
      {"2024-01-02.log", "*.log", true, true},
      {"A.LOG", "*.log", true, true},  // behind the found "." case no longer counts
      {"abc", "a?c", true, true},
      {"ac", "a?c", false, false},
      {"abc", "abc*", false, false},  // a star needs a character
      {"abcd", "abc*", true, true},
      {"", "*", false, false},
      {"", "", true, true},
      {"a", "*?", true, true},  // a "?" behind a star needs none
      {"xaBC", "*abc", true, true},
      {"xABC", "*abc", false, true},
      {"xaBxaC", "*ab*AC", true, true},
      {"\xE4", "\xC4", false, false},  // only ASCII has case
      {nullptr, nullptr, true, true},
  };
  for (const auto& row : rows) {
    const std::string what =
        std::string(row.text ? row.text : "null") + " ~ " + (row.pattern ? row.pattern : "null");
    EXPECT_EQ(row.exact, Velk::DosMatch2(row.text, row.pattern, true)) << what;
    EXPECT_EQ(row.any, Velk::DosMatch2(row.text, row.pattern, false)) << what;
  }
}

TEST(DosMatch2, AgreesWithTheRecursiveRules) {
  std::mt19937 random(7);
  const auto make = [&random](const std::string& alphabet, unsigned longest) {
    std::string text(random() % (longest + 1), ' ');
    for (char& c : text) c = alphabet[random() % alphabet.size()];
    return text;
  };
  int matches = 0;
  for (int i = 0; i < 300000; ++i) {
    const std::string text = make("aAbB", 9);
    const std::string pattern = make("aAbB**?", 8);
    const bool exact = random() % 2 == 0;
    const bool expected = WildcardModel::Match(text, pattern, exact);
    matches += expected;
    ASSERT_EQ(expected, Velk::DosMatch2(text.c_str(), pattern.c_str(), exact))
        << text << " ~ " << pattern << (exact ? " exact" : " any case");
  }
  EXPECT_GT(matches, 10000);
}

TEST(DosMatch2, ManyStarsStayCheap) {
  const std::string text(4000, 'a');
  std::string pattern;
  for (int i = 0; i < 100; ++i) pattern += "*a";
  EXPECT_FALSE(Velk::DosMatch2(text.c_str(), (pattern + "*b").c_str(), true));
  EXPECT_TRUE(Velk::DosMatch2(text.c_str(), (pattern + "*").c_str(), true));
}
