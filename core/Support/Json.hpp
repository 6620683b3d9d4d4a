#pragma once

#include <optional>
#include <string>

#include <nlohmann/json.hpp>

#include "Support/JsonFwd.hpp"

namespace unbulk {

// nlohmann::json keeps object keys in a std::map, so every document comes out
// with sorted keys.

namespace json {

// Pretty-printed (two-space indent), sorted keys: command output and tool results.
std::string pretty(const Json& value);

// One line, sorted keys: MCP messages and audit lines.
std::string compact(const Json& value);

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
