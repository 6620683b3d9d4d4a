#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "Support/Dates.hpp"
#include "Support/FileURL.hpp"
#include "Support/JsonFwd.hpp"
#include "Support/Uuid.hpp"

// What the records' JSON readers share: the typed values that are strings on
// the wire (file URLs, UUIDs, dates) and strict numbers. Each reader throws
// a std::exception that names what was wrong.
namespace unbulk::coding {

FileURL fileURL(const Json& value);
Uuid uuid(const Json& value);
Date date(const Json& value);
std::optional<Date> optionalDate(const Json& object, const char* key);

// A JSON integer that fits in 64 signed bits; 1.5, "1" and 2^63 are refused
// rather than truncated, so that an edited number cannot slip through as
// another one.
std::int64_t int64(const Json& object, const char* key);
// The same for a value that is not under a key; `what` names it in the error.
std::int64_t int64Value(const Json& value, std::string_view what);

// A JSON string under the key, with the key named when it is something else.
std::string string(const Json& object, const char* key);

} // namespace unbulk::coding
