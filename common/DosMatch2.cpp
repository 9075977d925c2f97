#include "common/DosMatch2.h"

#include <ctype.h>

#include "common/TextOps.h"

namespace Velk {
namespace {

bool SameChar(char a, char b, bool caseSensitive) {
  if (a == b) return true;
  return !caseSensitive && toupper(static_cast<unsigned char>(a)) == toupper(static_cast<unsigned char>(b));
}

// The first c at or after text, or the end of text.
const char* Find(const char* text, char c, bool caseSensitive) {
  while (*text != '\0' && !SameChar(*text, c, caseSensitive)) ++text;
  return text;
}

}  // namespace

// Only the place of the last star is ever tried again: what an earlier star could give up, the last one can
// take as well.
bool DosMatch2(const char* text, const char* pattern, bool caseSensitive) {
  text = TextOps::OrEmpty(text);
  pattern = TextOps::OrEmpty(pattern);
  const char* afterStar = nullptr;  // the pattern after the last star, null: no star yet
  const char* tried = nullptr;      // where in text that literal was last found
  bool exactFind = caseSensitive;   // how that literal is found
  bool exact = caseSensitive;
  // The end of the text comes first: a pattern that still holds a star does not match the empty rest.
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
