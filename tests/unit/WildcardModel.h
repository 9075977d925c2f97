// The matcher's rules word for word, recursive at every star.
#pragma once

#include <ctype.h>
#include <gtest/gtest.h>

#include <map>
#include <string>
#include <utility>

#include "common/DosMatch2.h"

class WildcardModel {
 public:
  static bool Match(const std::string& text, const std::string& pattern, bool caseSensitive) {
    return WildcardModel(text, pattern).Match(text.c_str(), pattern.c_str(), caseSensitive);
  }

 private:
  WildcardModel(const std::string& text, const std::string& pattern)
      : m_textEnd(text.c_str() + text.size()), m_patternEnd(pattern.c_str() + pattern.size()) {}

  static bool Same(char a, char b, bool caseSensitive) {
    return caseSensitive ? a == b : toupper(a) == toupper(b);
  }

  bool Match(const char* text, const char* pattern, bool caseSensitive) {
    for (; text != m_textEnd; ++text, ++pattern) {
      if (pattern == m_patternEnd) return false;
      if (*pattern == '*') {
        while (*pattern == '*' || *pattern == '?') ++pattern;
        if (pattern == m_patternEnd) return true;
        for (; text != m_textEnd; ++text) {
          if (Same(*text, *pattern, caseSensitive) && MatchBehindStar(text, pattern)) return true;
        }
        return false;
      }
      if (*pattern != '?' && !Same(*text, *pattern, caseSensitive)) return false;
    }
    return pattern == m_patternEnd;
  }

  // Remembers its results: without that the time is exponential in the number of stars.
  bool MatchBehindStar(const char* text, const char* pattern) {
    const auto [known, isNew] = m_known.try_emplace({text, pattern}, false);
    if (isNew) known->second = Match(text, pattern, false);
    return known->second;
  }

  const char* m_textEnd;
  const char* m_patternEnd;
  std::map<std::pair<const char*, const char*>, bool> m_known;
};

// Returns whether the rules say that text matches.
inline bool CheckMatch(const std::string& text, const std::string& pattern, bool caseSensitive) {
  const bool matches = WildcardModel::Match(text, pattern, caseSensitive);
  EXPECT_EQ(matches, Velk::DosMatch2(text.c_str(), pattern.c_str(), caseSensitive))
      << text << " ~ " << pattern << (caseSensitive ? " exact" : " any case");
  return matches;
}
