#include "Platform/linux/SysfsThermalStateProvider.hpp"

#include <algorithm>
#include <array>
#include <cstddef>
#include <optional>
#include <string_view>
#include <utility>

#include "Platform/SampledThermalStateUpdates.hpp"
#include "Platform/linux/SysfsAttributes.hpp"

namespace unbulk {
namespace {

struct TripType {
    std::string_view name;
    ThermalState state;
};

// Trip types that say something about pressure; "active" (fan) trips do not.
constexpr std::array<TripType, 3> tripTypes{{
    {"critical", ThermalState::critical},
    {"hot", ThermalState::serious},
    {"passive", ThermalState::fair},
}};

std::optional<ThermalState> stateOfTripType(std::string_view type) {
    for (const TripType& trip : tripTypes) {
        if (trip.name == type) return trip.state;
    }
    return std::nullopt;
}

// "trip_point_<N>_temp" gives "trip_point_<N>"; anything else nothing.
std::optional<std::string> tripPointStem(std::string_view name) {
    constexpr std::string_view prefix = "trip_point_";
    constexpr std::string_view suffix = "_temp";
    if (name.size() <= prefix.size() + suffix.size()) return std::nullopt;
    if (!name.starts_with(prefix) || !name.ends_with(suffix)) return std::nullopt;
    const std::string_view number = name.substr(prefix.size(), name.size() - prefix.size() - suffix.size());
    if (!std::all_of(number.begin(), number.end(), [](char c) { return c >= '0' && c <= '9'; })) return std::nullopt;
    return std::string(name.substr(0, name.size() - suffix.size()));
}

ThermalState zoneState(const std::string& zone) {
    const std::optional<long long> temperature = sysfs::readInteger(zone + "/temp");
    if (!temperature) return ThermalState::nominal;
    ThermalState worst = ThermalState::nominal;
    for (const std::string& name : sysfs::sortedNames(zone)) {
        const std::optional<std::string> stem = tripPointStem(name);
        if (!stem) continue;
        const std::optional<long long> tripTemperature = sysfs::readInteger(zone + "/" + name);
        // Drivers leave unused trips at 0 or at the kernel's invalid marker
        // (-274000); no real trip point lies at or below freezing.
        if (!tripTemperature || *tripTemperature <= 0 || *temperature < *tripTemperature) continue;
        const std::optional<std::string> type = sysfs::readAttribute(zone + "/" + *stem + "_type");
        if (!type) continue;
        if (const std::optional<ThermalState> state = stateOfTripType(*type)) worst = std::max(worst, *state);
    }
    return worst;
}

ThermalState machineState(const std::string& root) {
    const std::string thermalClass = root + "/class/thermal";
    ThermalState worst = ThermalState::nominal;
    for (const std::string& name : sysfs::sortedNames(thermalClass)) {
        if (!name.starts_with("thermal_zone")) continue;
        worst = std::max(worst, zoneState(thermalClass + "/" + name));
    }
    return worst;
}

} // namespace

SysfsThermalStateProvider::SysfsThermalStateProvider(std::string sysfsRoot, std::chrono::milliseconds sampleInterval)
    : root_(std::move(sysfsRoot)), sampleInterval_(sampleInterval) {}

ThermalState SysfsThermalStateProvider::thermalState() const { return machineState(root_); }

std::unique_ptr<ThermalStateUpdates> SysfsThermalStateProvider::thermalStateUpdates() {
    return std::make_unique<SampledThermalStateUpdates>([root = root_] { return machineState(root); }, sampleInterval_);
}

std::shared_ptr<ThermalStateProviding> makeDefaultThermalStateProvider() {
    return std::make_shared<SysfsThermalStateProvider>();
}

} // namespace unbulk
