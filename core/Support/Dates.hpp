#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <string_view>

#include <nlohmann/json_fwd.hpp>

namespace unbulk {

using Date = std::chrono::system_clock::time_point;

// How a record writes its dates into JSON. Commands that promise ISO dates use
// iso8601; everything else keeps the default, seconds since 2001-01-01 UTC.
enum class DateEncoding { secondsSinceReferenceDate, iso8601 };

namespace dates {

// 2026-03-01T10:15:30Z: UTC, no fraction (the fraction is dropped, not rounded).
std::string iso8601(Date date);

// 2026-03-01T10:15:30.123Z: UTC with milliseconds, as the audit log writes.
std::string iso8601Milliseconds(Date date);

// Reads both forms above, with "Z" or a numeric offset (+01:00 / +0100).
// Nothing for an instant a Date cannot hold.
std::optional<Date> parseISO8601(std::string_view text);

// Seconds since 2001-01-01T00:00:00Z, the reference date of the default form.
double secondsSinceReferenceDate(Date date);
// Nothing for a number that is not finite or names an instant a Date cannot hold.
std::optional<Date> fromSecondsSinceReferenceDate(double seconds);

nlohmann::json encode(Date date, DateEncoding encoding);

// Accepts either encoding: a number of seconds since the reference date, or
// an ISO 8601 string.
std::optional<Date> decode(const nlohmann::json& value);

} // namespace dates
} // namespace unbulk
