#if defined(__linux__)

#include <filesystem>
#include <future>
#include <map>
#include <tuple>

#include <gtest/gtest.h>

#include "Platform/linux/SysfsPowerSourceProvider.hpp"
#include "Platform/linux/SysfsThermalStateProvider.hpp"
#include "support/TempHome.hpp"

namespace unbulk {
namespace {

using namespace std::chrono_literals;
// Attribute files by name, by the device's directory below the sysfs root.
using Devices = std::map<std::string, std::map<std::string, std::string>>;

// A fresh fake sysfs in `home` holding `devices`, each value followed by a
// newline as the kernel writes it; returns its root.
std::string fakeSysfs(const testing::TempHome& home, const Devices& devices) {
    std::filesystem::remove_all(home.at("sys"));
    for (const auto& [device, attributes] : devices)
        for (const auto& [name, value] : attributes) home.writeFile("sys/" + device + "/" + name, value + "\n");
    return home.at("sys");
}

// Thermal zone <number> at `temp`, with the trip points of a typical laptop
// ("active" only runs a fan).
Devices::value_type zone(int number, const std::string& temp) {
    return {"class/thermal/thermal_zone" + std::to_string(number),
            {{"temp", temp}, {"trip_point_0_temp", "100000"}, {"trip_point_0_type", "critical"},
             {"trip_point_1_temp", "90000"}, {"trip_point_1_type", "hot"}, {"trip_point_2_temp", "80000"},
             {"trip_point_2_type", "passive"}, {"trip_point_3_temp", "50000"}, {"trip_point_3_type", "active"}}};
}

// next(), with stop requested after `limit`. A stream that ignores stop
// hangs here until the test runner's timeout.
std::optional<ThermalState> nextWithin(ThermalStateUpdates& updates, std::chrono::milliseconds limit) {
    StopSource source;
    auto value = std::async(std::launch::async, [&] { return updates.next(source.token()); });
    if (value.wait_for(limit) == std::future_status::timeout) source.requestStop();
    return value.get();
}

TEST(SysfsProviders, TheHottestZoneAgainstItsTripPointsGivesTheStateAndUpdatesReportItsChanges) {
    using enum ThermalState;
    testing::TempHome home;
    const std::pair<Devices, ThermalState> cases[] = {
        {{}, nominal}, {{zone(0, "80000")}, fair}, {{zone(0, "95000")}, serious},
        {{zone(0, "100000")}, critical}, {{zone(0, "85000"), zone(1, "92000"), zone(2, "30000")}, serious}};
    for (const auto& [zones, expected] : cases)
        EXPECT_EQ(SysfsThermalStateProvider(fakeSysfs(home, zones)).thermalState(), expected);

    // The updates sample the zones and report only changes; the state they
    // start from is none.
    auto updates = SysfsThermalStateProvider(fakeSysfs(home, {zone(0, "40000")}), 2ms).thermalStateUpdates();
    const std::pair<const char*, std::optional<ThermalState>> steps[] = {
        {"40000", std::nullopt}, {"85000", fair}, {"86000", std::nullopt}, {"100000", critical}, {"30000", nominal}};
    for (const auto& [temp, expected] : steps) {
        // Replaced in one step, so that the sampler never reads a half-written file.
        home.writeFile("temp.new", std::string(temp) + "\n");
        std::filesystem::rename(home.at("temp.new"), home.at("sys/class/thermal/thermal_zone0/temp"));
        EXPECT_EQ(nextWithin(*updates, expected ? 10'000ms : 100ms), expected) << temp;
    }
    // Stop also cuts a long wait between two samples short.
    EXPECT_EQ(nextWithin(*SysfsThermalStateProvider(home.at("sys"), 1h).thermalStateUpdates(), 50ms), std::nullopt);
}

TEST(SysfsProviders, SuppliesInNameOrderAndThePlatformProfileDecideThePower) {
    testing::TempHome home;
    Devices::mapped_type online{{"type", "Mains"}, {"online", "1"}};
    Devices::mapped_type discharging{{"type", "Battery"}, {"status", "Discharging"}, {"capacity", "42"}};
    // A wireless mouse's battery says nothing about the machine.
    Devices::mapped_type mouse{{"scope", "Device"}, {"type", "Battery"}, {"status", "Discharging"}, {"capacity", "5"}};
    const std::string s = "class/power_supply/";
    auto profile = [](const char* name) { return Devices::value_type{"firmware/acpi", {{"platform_profile", name}}}; };
    // Supplies and platform profile; AC power, battery percentage, Low Power Mode.
    const std::pair<Devices, std::tuple<bool, std::optional<double>, bool>> cases[] = {
        {{{s + "AC", online}, {s + "BAT0", discharging}, profile("balanced")}, {true, 42, false}},
        {{{s + "a-bat", discharging}, {s + "b-ac", online}, profile("low-power")}, {false, 42, true}},
        {{{s + "hidpp_battery_0", mouse}, profile("low-power-plus")}, {true, std::nullopt, false}},
    };
    for (const auto& [devices, expected] : cases) {
        const SysfsPowerSourceProvider p(fakeSysfs(home, devices));
        EXPECT_EQ(std::tuple(p.isACPowered(), p.batteryPercentage(), p.isLowPowerModeEnabled()), expected);
    }
}

} // namespace
} // namespace unbulk

#endif // defined(__linux__)
