#include "common/DosMatch2.h"

#include <ctype.h>

#include "common/TextOps.h"

namespace Velk {
namespace {

bool SameChar(char a, char b, bool caseSensitive) {
  if (a == b) return true;
  return !caseSensitive && toupper(static_cast<unsigned char>(a)) == toupper(static_cast<unsigned char>(b));
}

// Returns the first c in text, or the end of text.
const char* Find(const char* text, char c, bool caseSensitive) {
  while (*text != '\0' && !SameChar(*text, c, caseSensitive)) ++text;
  return text;
}

}  // namespace

// Backtracks only to the last star: a longer match of an earlier star never helps, since the last star can
// match the same characters.
bool DosMatch2(const char* text, const char* pattern, bool caseSensitive) {
  text = TextOps::OrEmpty(text);
  pattern = TextOps::OrEmpty(pattern);
  const char* afterStar = nullptr;  // the pattern after the last star; null: no star yet
  const char* tried = nullptr;      // where its first character was last found in text
  bool exactFind = caseSensitive;   // whether that search is case-sensitive
  bool exact = caseSensitive;
  // Stops at the end of text, so a star at the end of the pattern needs a character.
  while (*text != '\0') {
    if (*pattern == '*') {
      while (*pattern == '*' || *pattern == '?') ++pattern;
      if (*pattern == '\0') return true;
      exactFind = afterStar == nullptr && caseSensitive;
      exact = false;
      afterStar = pattern;
      tried = text = Find(text, *pattern, exactFind);
    } else if (*pattern != '\0' && (*pattern == '?' || SameChar(*text, *pattern, exact))) {
      ++text;
      ++pattern;
    } else {
      if (afterStar == nullptr) return false;
      pattern = afterStar;
      tried = text = Find(tried + 1, *pattern, exactFind);
    }
  }
  return *pattern == '\0';
}

}  // namespace Velk
