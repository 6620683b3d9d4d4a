#pragma once

#include <map>
#include <stdexcept>
#include <string>
#include <variant>
#include <vector>

#include "Support/JsonFwd.hpp"

namespace unbulk {

// A dynamic JSON value as the agent protocol carries it. Every number is a
// double: there is no integer case, so integers beyond 2^53 lose precision.
struct JSONValue {
    using Object = std::map<std::string, JSONValue>;
    using Array = std::vector<JSONValue>;
    std::variant<std::nullptr_t, bool, double, std::string, Array, Object> value;

    JSONValue() : value(nullptr) {}
    JSONValue(std::nullptr_t) : value(nullptr) {}
    JSONValue(bool b) : value(b) {}
    JSONValue(double d) : value(d) {}
    JSONValue(std::string s) : value(std::move(s)) {}
    JSONValue(const char* s) : value(std::string(s)) {}
    JSONValue(Array a) : value(std::move(a)) {}
    JSONValue(Object o) : value(std::move(o)) {}

    bool isNull() const { return std::holds_alternative<std::nullptr_t>(value); }
    const bool* boolValue() const { return std::get_if<bool>(&value); }
    const double* numberValue() const { return std::get_if<double>(&value); }
    const std::string* stringValue() const { return std::get_if<std::string>(&value); }
    const Array* arrayValue() const { return std::get_if<Array>(&value); }
    const Object* objectValue() const { return std::get_if<Object>(&value); }

    friend bool operator==(const JSONValue&, const JSONValue&) = default;
};

// A value that has no JSONValue form.
struct JSONValueError : std::runtime_error {
    JSONValueError() : std::runtime_error("Invalid JSONValue") {}
};

// Null, then boolean, then number, then string, array, object: `true` never
// reads as 1. Both conversions throw JSONValueError for nesting deeper than
// json::maximumNestingDepth.
JSONValue jsonValueFromJson(const Json& json);

// The plain JSON form. A whole-valued number is written without a fraction
// (3, not 3.0), as the protocol's other side expects of a double.
Json toJson(const JSONValue& value);

} // namespace unbulk
