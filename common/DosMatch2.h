// Logging layer: wildcard matching of file names.
#pragma once

namespace Velk {

// Matches text against a pattern of "*" and "?". Null counts as empty. Takes at most length of text times
// length of pattern steps. What differs from other matchers, and log patterns rely on:
// - a star that ends the pattern needs at least one character: "abc" does not match "abc*";
// - a "?" right after a star is part of the star and needs no character of its own;
// - caseSensitive holds up to the first star and for finding the first character after it; everything
//   further is compared as toupper(3) of the "C" locale sees it.
bool DosMatch2(const char* text, const char* pattern, bool caseSensitive);

}  // namespace Velk
