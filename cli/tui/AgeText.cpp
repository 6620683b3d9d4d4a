#include "tui/AgeText.hpp"

#include <chrono>
#include <cstdint>

#include <fmt/format.h>

namespace unbulk::cli {
namespace {

std::string counted(std::int64_t count, const char* unit) {
    return fmt::format("{} {}{}", count, unit, count == 1 ? "" : "s");
}

} // namespace

std::string ageText(Date then, Date now) {
    using namespace std::chrono;
    const std::int64_t seconds = duration_cast<std::chrono::seconds>(now - then).count();
    if (seconds < 60) return "just now";
    const std::int64_t minutes = seconds / 60;
    if (minutes < 60) return counted(minutes, "minute");
    const std::int64_t hours = minutes / 60;
    if (hours < 24) return counted(hours, "hour");
    const std::int64_t days = hours / 24;
    if (days < 30) return counted(days, "day");
    if (days < 365) return counted(days / 30, "month");
    return counted(days / 365, "year");
}

} // namespace unbulk::cli
