// Logging layer: wildcard matching of file names.
#pragma once

namespace Velk {

// Matches text against a pattern with "*" and "?". Null counts as empty. Takes at most strlen(text) *
// strlen(pattern) steps. Differs from other matchers, and log patterns rely on it:
// - a star at the end of the pattern needs at least one character: "abc" does not match "abc*";
// - a "?" right after a star belongs to the star and needs no character;
// - caseSensitive applies to the pattern up to its first star, and to the character after that star; the rest
//   ignores case, as toupper(3) in the "C" locale.
bool DosMatch2(const char* text, const char* pattern, bool caseSensitive);

}  // namespace Velk
