#include "MCP/JSONValue.hpp"

#include "Support/Json.hpp"

#include <cmath>
#include <cstdint>

namespace unbulk {

JSONValue jsonValueFromJson(const Json& json) {
    switch (json.type()) {
    case Json::value_t::null: return JSONValue(nullptr);
    case Json::value_t::boolean: return JSONValue(json.get<bool>());
    case Json::value_t::number_integer:
    case Json::value_t::number_unsigned:
    case Json::value_t::number_float: return JSONValue(json.get<double>());
    case Json::value_t::string: return JSONValue(json.get<std::string>());
    case Json::value_t::array: {
        JSONValue::Array array;
        array.reserve(json.size());
        for (const auto& element : json)
            array.push_back(jsonValueFromJson(element));
        return JSONValue(std::move(array));
    }
    case Json::value_t::object: {
        JSONValue::Object object;
        for (const auto& [key, element] : json.items())
            object.emplace(key, jsonValueFromJson(element));
        return JSONValue(std::move(object));
    }
    default: throw JSONValueError();
    }
}

Json toJson(const JSONValue& value) {
    struct Encoder {
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
            Json out = Json::array();
            for (const auto& element : array)
                out.push_back(toJson(element));
            return out;
        }
        Json operator()(const JSONValue::Object& object) const {
            Json out = Json::object();
            for (const auto& [key, element] : object)
                out[key] = toJson(element);
            return out;
        }
    };
    return std::visit(Encoder{}, value.value);
}

} // namespace unbulk
