#include "Models/RuleDecoding.hpp"

#include "Support/Json.hpp"

#include <limits>

#include <fmt/format.h>

namespace unbulk {
namespace {

std::string where(const std::string& codingPath) { return codingPath.empty() ? "the top level" : codingPath; }

std::string messageFor(RuleDecodingError::Kind kind, const std::string& codingPath, const std::string& detail) {
    switch (kind) {
    case RuleDecodingError::Kind::keyNotFound:
        return fmt::format("Missing required key at {}.", where(codingPath));
    case RuleDecodingError::Kind::typeMismatch:
        return fmt::format("Expected {} at {}.", detail, where(codingPath));
    case RuleDecodingError::Kind::dataCorrupted:
        return fmt::format("Invalid value at {}: {}.", where(codingPath), detail);
    }
    return {};
}

[[noreturn]] void mismatch(const std::string& path, std::string_view expected, const Json& found) {
    throw RuleDecodingError(RuleDecodingError::Kind::typeMismatch, path,
                            fmt::format("{}, found {}", expected, found.type_name()));
}

std::string readString(const Json& value, const std::string& path) {
    if (!value.is_string()) mismatch(path, "a string", value);
    return value.get<std::string>();
}

// Only integer numbers that fit an int: 3.0 or "3" is not an integer here.
int readInt(const Json& value, const std::string& path) {
    if (!value.is_number_integer()) mismatch(path, "an integer", value);
    const bool fits = value.is_number_unsigned()
                          ? value.get<std::uint64_t>() <= static_cast<std::uint64_t>(std::numeric_limits<int>::max())
                          : value.get<std::int64_t>() >= std::numeric_limits<int>::min() &&
                                value.get<std::int64_t>() <= std::numeric_limits<int>::max();
    if (!fits) throw RuleDecodingError(RuleDecodingError::Kind::dataCorrupted, path, "integer out of range");
    return value.get<int>();
}

// Rule documents carry ISO 8601 strings; the fraction of a second is optional.
// A number (the default date form elsewhere) is not accepted here.
Date readDate(const Json& value, const std::string& path) {
    const std::string text = readString(value, path);
    auto date = dates::parseISO8601(text);
    if (!date) {
        throw RuleDecodingError(RuleDecodingError::Kind::dataCorrupted, path,
                                fmt::format("\"{}\" is not an ISO 8601 date", text));
    }
    return *date;
}

} // namespace

RuleDecodingError::RuleDecodingError(Kind kind_, std::string codingPath_, std::string detail_)
    : kind(kind_), codingPath(std::move(codingPath_)), detail(std::move(detail_)),
      message_(messageFor(kind, codingPath, detail)) {}

RuleJsonReader::RuleJsonReader(const Json& object, std::string codingPath)
    : object_(object), codingPath_(std::move(codingPath)) {
    if (!object_.is_object()) mismatch(codingPath_, "an object", object_);
}

std::string RuleJsonReader::pathOf(std::string_view key) const {
    return codingPath_.empty() ? std::string(key) : fmt::format("{}.{}", codingPath_, key);
}

const Json* RuleJsonReader::find(std::string_view key) const {
    auto it = object_.find(key);
    if (it == object_.end() || it->is_null()) return nullptr;
    return &*it;
}

const Json& RuleJsonReader::required(std::string_view key) const {
    auto it = object_.find(key);
    if (it == object_.end()) throw RuleDecodingError(RuleDecodingError::Kind::keyNotFound, pathOf(key));
    return *it;
}

std::string RuleJsonReader::string(std::string_view key) const { return readString(required(key), pathOf(key)); }

bool RuleJsonReader::boolean(std::string_view key) const {
    const Json& value = required(key);
    if (!value.is_boolean()) mismatch(pathOf(key), "a boolean", value);
    return value.get<bool>();
}

int RuleJsonReader::integer(std::string_view key) const { return readInt(required(key), pathOf(key)); }

Date RuleJsonReader::date(std::string_view key) const { return readDate(required(key), pathOf(key)); }

const Json& RuleJsonReader::array(std::string_view key) const {
    const Json& value = required(key);
    if (!value.is_array()) mismatch(pathOf(key), "an array", value);
    return value;
}

std::vector<std::string> RuleJsonReader::strings(std::string_view key) const {
    const Json& values = array(key);
    std::vector<std::string> out;
    out.reserve(values.size());
    for (std::size_t i = 0; i < values.size(); ++i) {
        out.push_back(readString(values[i], fmt::format("{}[{}]", pathOf(key), i)));
    }
    return out;
}

std::optional<std::string> RuleJsonReader::optionalString(std::string_view key) const {
    const Json* value = find(key);
    if (!value) return std::nullopt;
    return readString(*value, pathOf(key));
}

std::optional<int> RuleJsonReader::optionalInt(std::string_view key) const {
    const Json* value = find(key);
    if (!value) return std::nullopt;
    return readInt(*value, pathOf(key));
}

std::optional<Date> RuleJsonReader::optionalDate(std::string_view key) const {
    const Json* value = find(key);
    if (!value) return std::nullopt;
    return readDate(*value, pathOf(key));
}

} // namespace unbulk
