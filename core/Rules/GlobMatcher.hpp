#pragma once

#include <string>
#include <string_view>

#include "Support/FileURL.hpp"

// The path pattern language of cleanup rules.
//
//   ~      the whole pattern: the user's home directory
//   ~/     as the first two characters: the home directory, then the rest
//   **     a whole segment on its own: zero or more whole path segments
//   *      inside a segment: any run of characters, also none, never a "/"
//   ?      inside a segment: exactly one character
//
// Everything else stands for itself. There are no classes, braces, negation
// or escapes; "a**b" is just two stars. Matching is case-sensitive. A
// character is a user-perceived character (grapheme cluster), and two
// characters are equal when they are canonically equivalent, so "é" and
// "e" + U+0301 are the same character.
//
// Stateless: nothing is compiled or cached, every call starts from the text.
namespace unbulk::GlobMatcher {

// The whole decision: does the pattern, expanded against the home, match the
// path once the path is normalised? Both are split on "/" with empty pieces
// dropped, so the root has no segments at all.
bool matches(std::string_view pattern, std::string_view path, const FileURL& homeURL);

// The pattern with its home marker replaced: "~" is the standardised home;
// "~/rest" is the home joined with the rest by one slash, the rest kept as
// written apart from repeated and trailing slashes ("*", "**" and ".." pass
// through); anything else is standardised as a path, "" becoming "/".
std::string expandHome(std::string_view pattern, const FileURL& homeURL);

// The path standardised (paths::standardizingPath, a leading tilde expanded
// with the home); "" becomes "/".
std::string normalizePath(std::string_view path, const FileURL& homeURL);

// One pattern segment against one name, with "*" and "?". A "*" in the
// pattern is first compared with the text as a plain character and only then
// taken as a wildcard, so it consumes a literal "*" in the text as a literal:
// "*" does not match "*abc", and "a*" does not match "a*b".
bool matchWildcard(std::string_view pattern, std::string_view text);

} // namespace unbulk::GlobMatcher
