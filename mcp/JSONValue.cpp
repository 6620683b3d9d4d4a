#include "mcp/JSONValue.hpp"

#include "Support/Json.hpp"

#include <cmath>
#include <cstdint>

namespace unbulk {
namespace {

// Both conversions recurse, one level per level of nesting, so both stop
// at the depth the reader allows (json::maximumNestingDepth).
void checkDepth(std::size_t depth) {
    if (depth > json::maximumNestingDepth) throw JSONValueError();
}

JSONValue fromJson(const Json& json, std::size_t depth) {
    switch (json.type()) {
    case Json::value_t::null: return JSONValue(nullptr);
    case Json::value_t::boolean: return JSONValue(json.get<bool>());
    case Json::value_t::number_integer:
    case Json::value_t::number_unsigned:
    case Json::value_t::number_float: return JSONValue(json.get<double>());
    case Json::value_t::string: return JSONValue(json.get<std::string>());
    case Json::value_t::array: {
        checkDepth(depth);
        JSONValue::Array array;
        array.reserve(json.size());
        for (const auto& element : json)
            array.push_back(fromJson(element, depth + 1));
        return JSONValue(std::move(array));
    }
    case Json::value_t::object: {
        checkDepth(depth);
        JSONValue::Object object;
        for (const auto& [key, element] : json.items())
            object.emplace(key, fromJson(element, depth + 1));
        return JSONValue(std::move(object));
    }
    default: throw JSONValueError();
    }
}

Json encode(const JSONValue& value, std::size_t depth) {
    struct Encoder {
        std::size_t depth;
        Json operator()(std::nullptr_t) const { return nullptr; }
        Json operator()(bool b) const { return b; }
        Json operator()(double d) const {
            // Whole values inside the 64-bit range print as integers.
            constexpr double limit = 9223372036854775808.0; // 2^63
            if (std::isfinite(d) && std::trunc(d) == d && d >= -limit && d < limit) {
                return static_cast<std::int64_t>(d);
            }
            return d;
        }
        Json operator()(const std::string& s) const { return s; }
        Json operator()(const JSONValue::Array& array) const {
            checkDepth(depth);
            Json out = Json::array();
            for (const auto& element : array)
                out.push_back(encode(element, depth + 1));
            return out;
        }
        Json operator()(const JSONValue::Object& object) const {
            checkDepth(depth);
            Json out = Json::object();
            for (const auto& [key, element] : object)
                out[key] = encode(element, depth + 1);
            return out;
        }
    };
    return std::visit(Encoder{depth}, value.value);
}

} // namespace

JSONValue jsonValueFromJson(const Json& json) { return fromJson(json, 1); }

Json toJson(const JSONValue& value) { return encode(value, 1); }

} // namespace unbulk
