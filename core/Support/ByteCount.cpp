#include "Support/ByteCount.hpp"

#include <array>
#include <cstdio>
#include <cstdlib>
#include <string_view>

namespace unbulk {
namespace {

struct Unit {
    std::string_view name;
    int fractionDigits;
};

constexpr std::array<Unit, 6> units{{{"KB", 0}, {"MB", 1}, {"GB", 1}, {"TB", 1}, {"PB", 1}, {"EB", 1}}};

std::string trimFraction(std::string text) {
    if (text.find('.') == std::string::npos) return text;
    while (text.back() == '0') text.pop_back();
    if (text.back() == '.') text.pop_back();
    return text;
}

std::string formatValue(double value, int digits) {
    char buffer[64];
    std::snprintf(buffer, sizeof buffer, "%.*f", digits, value);
    return trimFraction(buffer);
}

} // namespace

std::string decimalByteCount(std::int64_t bytes) {
    if (bytes == 0) return "Zero KB";
    const bool negative = bytes < 0;
    // Magnitude as unsigned so that INT64_MIN has one too.
    const std::uint64_t magnitude =
        negative ? static_cast<std::uint64_t>(-(bytes + 1)) + 1 : static_cast<std::uint64_t>(bytes);
    const std::string sign = negative ? "-" : "";
    if (magnitude == 1) return sign + "1 byte";
    if (magnitude < 1000) return sign + std::to_string(magnitude) + " bytes";

    double value = static_cast<double>(magnitude) / 1000.0;
    std::size_t index = 0;
    while (index + 1 < units.size()) {
        // Move up a unit when the value, as it would be printed, reaches 1,000.
        const Unit& unit = units[index];
        char buffer[64];
        std::snprintf(buffer, sizeof buffer, "%.*f", unit.fractionDigits, value);
        if (std::strtod(buffer, nullptr) < 1000.0) break;
        value /= 1000.0;
        ++index;
    }
    return sign + formatValue(value, units[index].fractionDigits) + " " + std::string(units[index].name);
}

} // namespace unbulk
