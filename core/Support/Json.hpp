#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

#include "Support/JsonFwd.hpp"

namespace unbulk {

// nlohmann::json keeps object keys in a std::map, so every document comes out
// with sorted keys.

namespace json {

// Both writers share one encoding rule: "/" is written "\/" (the platform
// encoder's default), and DEL, the C1 controls, LINE SEPARATOR and PARAGRAPH
// SEPARATOR are escaped as well, so that no line-oriented reader breaks a
// line inside a string.

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

// One whole JSON text. A NUL byte anywhere is refused, as bytes that are not
// JSON: the reader would otherwise take it for the end of the input and
// quietly ignore whatever follows it. Throws nlohmann::json::parse_error, or
// std::invalid_argument for a NUL.
Json parse(std::string_view text);

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
