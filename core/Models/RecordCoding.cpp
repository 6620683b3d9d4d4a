#include "Models/RecordCoding.hpp"

#include "Support/Json.hpp"

#include <limits>
#include <stdexcept>

namespace unbulk::coding {

FileURL fileURL(const Json& value) {
    auto url = FileURL::parse(value.get<std::string>());
    if (!url) throw std::invalid_argument("not a file URL: " + value.get<std::string>());
    return *url;
}

Uuid uuid(const Json& value) {
    auto parsed = Uuid::parse(value.get<std::string>());
    if (!parsed) throw std::invalid_argument("not a UUID: " + value.get<std::string>());
    return *parsed;
}

Date date(const Json& value) {
    auto parsed = dates::decode(value);
    if (!parsed) throw std::invalid_argument("not a date: " + value.dump());
    return *parsed;
}

std::optional<Date> optionalDate(const Json& object, const char* key) {
    auto it = object.find(key);
    if (it == object.end() || it->is_null()) return std::nullopt;
    return date(*it);
}

std::int64_t int64Value(const Json& value, std::string_view what) {
    if (value.is_number_unsigned()) {
        auto unsignedValue = value.get<std::uint64_t>();
        if (unsignedValue > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) {
            throw std::out_of_range("number out of range for " + std::string(what));
        }
        return static_cast<std::int64_t>(unsignedValue);
    }
    if (value.is_number_integer()) return value.get<std::int64_t>();
    throw std::invalid_argument("expected an integer for " + std::string(what) + ", found " + value.dump());
}

std::int64_t int64(const Json& object, const char* key) {
    return int64Value(object.at(key), std::string("key '") + key + "'");
}

std::string string(const Json& object, const char* key) {
    const Json& value = object.at(key);
    if (!value.is_string()) {
        throw std::invalid_argument(std::string("expected a string for key '") + key + "', found " + value.dump());
    }
    return value.get<std::string>();
}

} // namespace unbulk::coding
