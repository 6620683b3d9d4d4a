#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

#include "Support/JsonFwd.hpp"

namespace unbulk {

// nlohmann::json keeps object keys in a std::map, so every document comes out
// with sorted keys.

namespace json {

// The deepest nesting of arrays and objects that is read (a top-level
// container is depth 1). Far beyond any document of ours, and far below what
// would exhaust a stack in code that walks a document recursively.
inline constexpr std::size_t maximumNestingDepth = 512;

struct NestingTooDeepError : std::runtime_error {
    NestingTooDeepError() : std::runtime_error("JSON nested deeper than 512 levels") {}
};

// One whole JSON text, read by Json::parse with two refusals:
// - a NUL byte anywhere, as bytes that are not JSON: the reader would
//   otherwise take it for the end of the input and quietly ignore whatever
//   follows it (std::invalid_argument);
// - nesting beyond maximumNestingDepth, refused while reading, before
//   anything deeper is built (NestingTooDeepError).
// Text that is no JSON throws what Json::parse throws.
Json parse(std::string_view text);

// Both writers share one encoding rule: "/" is written "\/" (the platform
// encoder's default), and DEL, the C1 controls, LINE SEPARATOR and PARAGRAPH
// SEPARATOR are escaped as well, so that no line-oriented reader breaks a
// line inside a string. A whole Double is written without its fraction.

// Pretty-printed (two-space indent), sorted keys: command output, tool
// results and the rule file.
std::string pretty(const Json& value);

// One line, sorted keys: MCP messages and audit lines.
std::string compact(const Json& value);

// The pieces of a document written one after the other, without a document
// in memory, in the same encoding as the two writers above. A string's
// content must be whole characters: a text cut anywhere else could come out
// otherwise than in one piece.
void appendString(std::string& out, std::string_view text);   // with its quotes
void appendStringContent(std::string& out, std::string_view text); // without them
void appendNumber(std::string& out, double value);       // as a Double is written
void appendNumber(std::string& out, std::int64_t value);

// Text the writers copy into a string as it stands but for "/": printable
// ASCII without the quote and the backslash. Its content is the same
// written in pieces as written whole, wherever it is cut.
bool isPlain(std::string_view text);

// Writes the key only when the optional holds a value; an absent optional
// never becomes null.
template <typename T, typename Encode>
void setOptional(Json& object, const char* key, const std::optional<T>& value, Encode&& encode) {
    if (value) object[key] = encode(*value);
}

template <typename T>
void setOptional(Json& object, const char* key, const std::optional<T>& value) {
    if (value) object[key] = *value;
}

// Reads an optional key: missing or null gives nothing.
template <typename T>
std::optional<T> getOptional(const Json& object, const char* key) {
    auto it = object.find(key);
    if (it == object.end() || it->is_null()) return std::nullopt;
    return it->get<T>();
}

} // namespace json
} // namespace unbulk
