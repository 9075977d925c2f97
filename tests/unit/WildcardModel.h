// A recursive model of the matcher's rules.
#pragma once

#include <ctype.h>

#include "common/DosMatch2.h"
#include "tests/unit/Test.h"

class WildcardModel {
 public:
  WildcardModel(const std::string& text, const std::string& pattern) : m_text(text), m_pattern(pattern) {}

  bool Match(size_t text, size_t pattern, bool caseSensitive) {
    if (text == m_text.size() || pattern == m_pattern.size())
      return text == m_text.size() && pattern == m_pattern.size();
    if (m_pattern[pattern] != '*')
      return IsSame(text, pattern, caseSensitive) && Match(text + 1, pattern + 1, caseSensitive);
    pattern = std::min(m_pattern.find_first_not_of("*?", pattern), m_pattern.size());
    if (pattern == m_pattern.size()) return true;
    for (; text != m_text.size(); ++text) {
      if (IsSame(text, pattern, caseSensitive) && MatchAfterStar(text, pattern)) return true;
    }
    return false;
  }

 private:
  bool IsSame(size_t text, size_t pattern, bool caseSensitive) const {
    const char a = m_text[text], b = m_pattern[pattern];
    return b == '?' || (caseSensitive ? a == b : toupper(a) == toupper(b));
  }

  // Past the first character after a star, case is ignored. Caches results: otherwise the time is exponential
  // in the number of stars.
  bool MatchAfterStar(size_t text, size_t pattern) {
    const auto [known, isNew] = m_known.try_emplace({text, pattern}, false);
    if (isNew) known->second = Match(text, pattern, false);
    return known->second;
  }

  const std::string& m_text;
  const std::string& m_pattern;
  std::map<std::pair<size_t, size_t>, bool> m_known;
};

inline bool CheckMatch(const std::string& text, const std::string& pattern, bool caseSensitive) {
  const bool matches = WildcardModel(text, pattern).Match(0, 0, caseSensitive);
  EXPECT_EQ(matches, Velk::DosMatch2(text.c_str(), pattern.c_str(), caseSensitive))
      << text << " ~ " << pattern << (caseSensitive ? " exact" : " any case");
  return matches;
}
