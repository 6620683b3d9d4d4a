#include "Support/Dates.hpp"

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <ctime>

#include <fmt/format.h>

#include "Support/Json.hpp"

namespace unbulk::dates {
namespace {

using namespace std::chrono;

// 2001-01-01T00:00:00Z in seconds since the Unix epoch.
constexpr std::int64_t referenceDateUnixSeconds = 978307200;

std::tm utcParts(std::int64_t unixSeconds) {
    std::time_t t = static_cast<std::time_t>(unixSeconds);
    std::tm parts{};
    gmtime_r(&t, &parts);
    return parts;
}

std::int64_t floorSeconds(Date date) {
    return duration_cast<seconds>(floor<seconds>(date).time_since_epoch()).count();
}

std::string formatSeconds(std::int64_t unixSeconds) {
    std::tm p = utcParts(unixSeconds);
    return fmt::format("{:04}-{:02}-{:02}T{:02}:{:02}:{:02}", p.tm_year + 1900, p.tm_mon + 1, p.tm_mday,
                       p.tm_hour, p.tm_min, p.tm_sec);
}

// The instants a Date can hold (nanoseconds in 64 bits on Linux: about the
// years 1677 to 2262). Text or numbers outside them are not dates.
constexpr double representableSeconds =
    static_cast<double>(std::numeric_limits<Date::rep>::max()) * Date::period::num / Date::period::den;

bool readDigits(std::string_view& text, std::size_t count, int& out) {
    if (text.size() < count) return false;
    int value = 0;
    for (std::size_t i = 0; i < count; ++i) {
        char c = text[i];
        if (c < '0' || c > '9') return false;
        value = value * 10 + (c - '0');
    }
    out = value;
    text.remove_prefix(count);
    return true;
}

bool expect(std::string_view& text, char c) {
    if (text.empty() || text.front() != c) return false;
    text.remove_prefix(1);
    return true;
}

} // namespace

std::string iso8601(Date date) { return formatSeconds(floorSeconds(date)) + "Z"; }

std::string iso8601Milliseconds(Date date) {
    auto ms = duration_cast<milliseconds>(floor<milliseconds>(date).time_since_epoch()).count();
    std::int64_t secs = ms >= 0 ? ms / 1000 : -((-ms + 999) / 1000);
    std::int64_t fraction = ms - secs * 1000;
    return fmt::format("{}.{:03}Z", formatSeconds(secs), fraction);
}

std::optional<Date> parseISO8601(std::string_view text) {
    int year = 0, month = 0, day = 0, hour = 0, minute = 0, second = 0;
    if (!readDigits(text, 4, year) || !expect(text, '-') || !readDigits(text, 2, month) || !expect(text, '-') ||
        !readDigits(text, 2, day) || !expect(text, 'T') || !readDigits(text, 2, hour) || !expect(text, ':') ||
        !readDigits(text, 2, minute) || !expect(text, ':') || !readDigits(text, 2, second)) {
        return std::nullopt;
    }
    if (month < 1 || month > 12 || day < 1 || day > 31 || hour > 23 || minute > 59 || second > 60) {
        return std::nullopt;
    }
    nanoseconds fraction{0};
    if (!text.empty() && text.front() == '.') {
        text.remove_prefix(1);
        std::int64_t scale = 100000000;
        std::int64_t nanos = 0;
        std::size_t digits = 0;
        while (!text.empty() && text.front() >= '0' && text.front() <= '9') {
            if (scale > 0) {
                nanos += (text.front() - '0') * scale;
                scale /= 10;
            }
            text.remove_prefix(1);
            ++digits;
        }
        if (digits == 0) return std::nullopt;
        fraction = nanoseconds(nanos);
    }
    int offsetSeconds = 0;
    if (text == "Z") {
        text.remove_prefix(1);
    } else if (!text.empty() && (text.front() == '+' || text.front() == '-')) {
        int sign = text.front() == '-' ? -1 : 1;
        text.remove_prefix(1);
        int oh = 0, om = 0;
        if (!readDigits(text, 2, oh)) return std::nullopt;
        if (!text.empty() && text.front() == ':') text.remove_prefix(1);
        if (!readDigits(text, 2, om)) return std::nullopt;
        if (oh > 23 || om > 59) return std::nullopt;
        offsetSeconds = sign * (oh * 3600 + om * 60);
    } else {
        return std::nullopt;
    }
    if (!text.empty()) return std::nullopt;
    auto ymd = year_month_day{std::chrono::year{year}, std::chrono::month{static_cast<unsigned>(month)},
                              std::chrono::day{static_cast<unsigned>(day)}};
    if (!ymd.ok()) return std::nullopt;
    // Whole seconds first, range-checked, so that a year like 2300 is refused
    // rather than wrapped round in nanoseconds.
    const auto point = sys_days{ymd} + hours{hour} + minutes{minute} + seconds{second} - seconds{offsetSeconds};
    const auto unixSeconds = point.time_since_epoch().count();
    if (std::abs(static_cast<double>(unixSeconds)) >= representableSeconds - 1) return std::nullopt;
    return Date{duration_cast<Date::duration>(seconds{unixSeconds}) + duration_cast<Date::duration>(fraction)};
}

double secondsSinceReferenceDate(Date date) {
    auto sinceEpoch = duration_cast<duration<double>>(date.time_since_epoch()).count();
    return sinceEpoch - static_cast<double>(referenceDateUnixSeconds);
}

std::optional<Date> fromSecondsSinceReferenceDate(double secondsSinceReference) {
    const double sinceEpoch = secondsSinceReference + static_cast<double>(referenceDateUnixSeconds);
    if (!std::isfinite(sinceEpoch) || std::abs(sinceEpoch) >= representableSeconds - 1) return std::nullopt;
    return Date{duration_cast<Date::duration>(duration<double>(sinceEpoch))};
}

nlohmann::json encode(Date date, DateEncoding encoding) {
    switch (encoding) {
    case DateEncoding::iso8601:
        return iso8601(date);
    case DateEncoding::secondsSinceReferenceDate:
        return secondsSinceReferenceDate(date);
    }
    return nullptr;
}

std::optional<Date> decode(const nlohmann::json& value) {
    if (value.is_number()) return fromSecondsSinceReferenceDate(value.get<double>());
    if (value.is_string()) return parseISO8601(value.get_ref<const std::string&>());
    return std::nullopt;
}

} // namespace unbulk::dates
