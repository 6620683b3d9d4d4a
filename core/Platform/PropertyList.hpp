#pragma once

#include <optional>
#include <string_view>

#include "Support/JsonFwd.hpp"

// Property lists, XML or binary, read through libplist on every platform.
namespace unbulk::PropertyList {

// The deepest nesting of dictionaries and arrays that is read (a top-level
// dictionary is depth 1). Real property lists stay within a handful of
// levels; a deeper document would exhaust the stack of libplist's own
// recursive reader, so it is refused before libplist sees it.
inline constexpr int maximumNestingDepth = 512;

// The document as JSON: dictionaries as objects, arrays, strings, booleans,
// integers and reals as themselves; dates, data and UIDs as null, so that a
// key holding one is still present and an array keeps its length, while no
// reader takes the value for a string or a number. Nothing when the bytes
// are no property list.
std::optional<Json> parse(std::string_view bytes);

// The top-level dictionary; anything else (unreadable bytes, an array at the
// top) reads as an empty one.
Json parseDictionary(std::string_view bytes);

} // namespace unbulk::PropertyList
