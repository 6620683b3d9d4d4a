#if defined(__linux__)

#include <chrono>
#include <filesystem>
#include <future>
#include <map>
#include <optional>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "Platform/linux/SysfsPowerSourceProvider.hpp"
#include "Platform/linux/SysfsThermalStateProvider.hpp"
#include "support/TempHome.hpp"

namespace unbulk {
namespace {

using namespace std::chrono_literals;
using testing::TempHome;

// Attribute files as the kernel writes them: a value and a newline.
using Attributes = std::map<std::string, std::string>;

class SysfsTest : public ::testing::Test {
protected:
    // Writes the attributes of one zone below <root>/class/thermal/<zone>/.
    void writeZone(const std::string& zone, const Attributes& attributes) {
        for (const auto& [name, value] : attributes) {
            home.writeFile("sys/class/thermal/" + zone + "/" + name, value + "\n");
        }
    }

    // Replaces a zone's temperature in one step, so the sampler never reads a half-written file.
    void setTemperature(const std::string& zone, const std::string& temp) {
        const std::string path = "sys/class/thermal/" + zone + "/temp";
        home.writeFile(path + ".new", temp + "\n");
        std::filesystem::rename(home.at(path + ".new"), home.at(path));
    }

    TempHome home;
    std::string root = home.at("sys");
};

// ---------------------------------------------------------------------------
// Thermal zones

struct Zone {
    std::string name;
    Attributes attributes;
};

struct ThermalCase {
    const char* name;
    std::vector<Zone> zones;
    ThermalState expected;
};

Attributes trips(std::string temp, std::vector<std::pair<std::string, std::string>> tripPoints) {
    Attributes attributes{{"temp", std::move(temp)}};
    for (std::size_t i = 0; i < tripPoints.size(); ++i) {
        attributes["trip_point_" + std::to_string(i) + "_temp"] = tripPoints[i].first;
        attributes["trip_point_" + std::to_string(i) + "_type"] = tripPoints[i].second;
    }
    return attributes;
}

TEST_F(SysfsTest, TheHottestZoneAgainstItsTripPointsGivesTheState) {
    const std::vector<std::pair<std::string, std::string>> laptopTrips{
        {"100000", "critical"}, {"90000", "hot"}, {"80000", "passive"}, {"50000", "active"}};
    const ThermalCase cases[] = {
        {"no zones at all", {}, ThermalState::nominal},
        {"below every trip but a fan trip", {{"thermal_zone0", trips("60000", laptopTrips)}}, ThermalState::nominal},
        {"at a passive trip", {{"thermal_zone0", trips("80000", laptopTrips)}}, ThermalState::fair},
        {"past a hot trip", {{"thermal_zone0", trips("95000", laptopTrips)}}, ThermalState::serious},
        {"at the critical trip", {{"thermal_zone0", trips("100000", laptopTrips)}}, ThermalState::critical},
        {"the worst zone wins",
         {{"thermal_zone0", trips("85000", laptopTrips)}, {"thermal_zone1", trips("92000", laptopTrips)},
          {"thermal_zone2", trips("30000", laptopTrips)}},
         ThermalState::serious},
        {"an unreadable temperature counts as nominal",
         {{"thermal_zone0", trips("not a number", laptopTrips)}, {"thermal_zone1", trips("81000", laptopTrips)}},
         ThermalState::fair},
        {"a zone without a temperature",
         {{"thermal_zone0", {{"trip_point_0_temp", "1000"}, {"trip_point_0_type", "critical"}}}},
         ThermalState::nominal},
        {"a trip point without a type is ignored",
         {{"thermal_zone0", {{"temp", "95000"}, {"trip_point_0_temp", "90000"}}}},
         ThermalState::nominal},
        {"unset trip points at 0 are ignored",
         {{"thermal_zone0", trips("45000", {{"0", "critical"}, {"-274000", "hot"}})}}, ThermalState::nominal},
        {"trip numbers need not start at 0",
         {{"thermal_zone0", {{"temp", "70000"}, {"trip_point_3_temp", "65000"}, {"trip_point_3_type", "hot"}}}},
         ThermalState::serious},
        {"cooling devices are not zones",
         {{"cooling_device0", trips("99000", laptopTrips)}, {"thermal_zone0", trips("20000", laptopTrips)}},
         ThermalState::nominal},
    };
    for (const ThermalCase& c : cases) {
        SCOPED_TRACE(c.name);
        TempHome caseHome;
        const std::string caseRoot = caseHome.at("sys");
        caseHome.makeDirectory("sys/class/thermal");
        for (const Zone& zone : c.zones) {
            for (const auto& [name, value] : zone.attributes) {
                caseHome.writeFile("sys/class/thermal/" + zone.name + "/" + name, value + "\n");
            }
        }
        EXPECT_EQ(SysfsThermalStateProvider(caseRoot).thermalState(), c.expected);
    }
}

TEST_F(SysfsTest, AMissingSysfsIsNominal) {
    EXPECT_EQ(SysfsThermalStateProvider(home.at("nothing-here")).thermalState(), ThermalState::nominal);
}

TEST_F(SysfsTest, DevicesAreFoundThroughTheClassLinks) {
    // As on a real system: the class directories hold links into the device tree.
    home.writeFile("sys/devices/virtual/thermal/thermal_zone0/temp", "91000\n");
    home.writeFile("sys/devices/virtual/thermal/thermal_zone0/trip_point_0_temp", "90000\n");
    home.writeFile("sys/devices/virtual/thermal/thermal_zone0/trip_point_0_type", "hot\n");
    home.makeSymlink("sys/class/thermal/thermal_zone0", "../../devices/virtual/thermal/thermal_zone0");
    home.writeFile("sys/devices/LNXSYSTM:00/PNP0C0A:00/power_supply/BAT0/type", "Battery\n");
    home.writeFile("sys/devices/LNXSYSTM:00/PNP0C0A:00/power_supply/BAT0/status", "Discharging\n");
    home.writeFile("sys/devices/LNXSYSTM:00/PNP0C0A:00/power_supply/BAT0/capacity", "18\n");
    home.makeSymlink("sys/class/power_supply/BAT0", "../../devices/LNXSYSTM:00/PNP0C0A:00/power_supply/BAT0");

    EXPECT_EQ(SysfsThermalStateProvider(root).thermalState(), ThermalState::serious);
    const SysfsPowerSourceProvider power(root);
    EXPECT_FALSE(power.isACPowered());
    EXPECT_EQ(power.batteryPercentage(), 18.0);
}

// next() on another thread, so that a stream that never answers fails the test instead of hanging it.
std::optional<ThermalState> nextWithin(ThermalStateUpdates& updates, std::chrono::milliseconds limit) {
    std::stop_source source;
    std::future<std::optional<ThermalState>> value =
        std::async(std::launch::async, [&] { return updates.next(source.get_token()); });
    if (value.wait_for(limit) == std::future_status::timeout) {
        source.request_stop();
        EXPECT_EQ(value.wait_for(10s), std::future_status::ready) << "next() ignores stop";
        return std::nullopt;
    }
    return value.get();
}

TEST_F(SysfsTest, UpdatesReportEachChangeOnce) {
    const std::vector<std::pair<std::string, std::string>> zoneTrips{{"100000", "critical"}, {"80000", "passive"}};
    writeZone("thermal_zone0", trips("40000", zoneTrips));
    SysfsThermalStateProvider provider(root, 2ms);
    auto updates = provider.thermalStateUpdates();

    // The state it starts from is not a change.
    EXPECT_EQ(nextWithin(*updates, 100ms), std::nullopt);

    setTemperature("thermal_zone0", "85000");
    EXPECT_EQ(nextWithin(*updates, 10s), ThermalState::fair);
    // The zone stays hot: nothing new to report.
    EXPECT_EQ(nextWithin(*updates, 100ms), std::nullopt);

    setTemperature("thermal_zone0", "100000");
    EXPECT_EQ(nextWithin(*updates, 10s), ThermalState::critical);
    setTemperature("thermal_zone0", "30000");
    EXPECT_EQ(nextWithin(*updates, 10s), ThermalState::nominal);
}

TEST_F(SysfsTest, UpdatesEndPromptlyOnStop) {
    SysfsThermalStateProvider provider(root, std::chrono::hours(1));
    auto updates = provider.thermalStateUpdates();

    std::stop_source stopped;
    stopped.request_stop();
    EXPECT_EQ(updates->next(stopped.get_token()), std::nullopt);

    // Stop while next() is waiting out a long interval.
    std::stop_source source;
    std::future<std::optional<ThermalState>> value =
        std::async(std::launch::async, [&] { return updates->next(source.get_token()); });
    EXPECT_EQ(value.wait_for(50ms), std::future_status::timeout);
    source.request_stop();
    ASSERT_EQ(value.wait_for(10s), std::future_status::ready);
    EXPECT_EQ(value.get(), std::nullopt);
}

// ---------------------------------------------------------------------------
// Power supplies and Low Power Mode

struct Supply {
    std::string name;
    Attributes attributes;
};

struct PowerCase {
    const char* name;
    std::vector<Supply> supplies;
    bool onAC;
    std::optional<double> battery;
};

TEST_F(SysfsTest, SuppliesInNameOrderDecideThePowerSource) {
    const Attributes mainsOnline{{"type", "Mains"}, {"online", "1"}};
    const Attributes mainsOffline{{"type", "Mains"}, {"online", "0"}};
    const PowerCase cases[] = {
        {"a desktop without supplies", {}, true, std::nullopt},
        {"mains online, battery charging",
         {{"AC", mainsOnline}, {"BAT0", {{"type", "Battery"}, {"status", "Charging"}, {"capacity", "64"}}}},
         true,
         64.0},
        {"mains offline, battery discharging",
         {{"AC", mainsOffline}, {"BAT0", {{"type", "Battery"}, {"status", "Discharging"}, {"capacity", "42"}}}},
         false,
         42.0},
        {"a battery that is full or not charging decides nothing",
         {{"AC", mainsOffline}, {"BAT0", {{"type", "Battery"}, {"status", "Not charging"}, {"capacity", "80"}}}},
         true,
         80.0},
        {"USB power counts as AC", {{"ucsi-source-psy", {{"type", "USB"}, {"online", "1"}}}}, true, std::nullopt},
        {"a discharging battery named first decides",
         {{"a-battery", {{"type", "Battery"}, {"status", "Discharging"}}}, {"b-mains", mainsOnline}},
         false,
         std::nullopt},
        {"online mains named first decides",
         {{"a-mains", mainsOnline}, {"b-battery", {{"type", "Battery"}, {"status", "Discharging"}}}},
         true,
         std::nullopt},
        {"the first battery with a whole-number capacity",
         {{"BAT0", {{"type", "Battery"}, {"status", "Discharging"}, {"capacity", "55.5"}}},
          {"BAT1", {{"type", "Battery"}, {"status", "Discharging"}}},
          {"BAT2", {{"type", "Battery"}, {"status", "Discharging"}, {"capacity", "37"}}},
          {"BAT3", {{"type", "Battery"}, {"capacity", "90"}}}},
         false,
         37.0},
        {"capacity of something that is not a battery",
         {{"AC", {{"type", "Mains"}, {"online", "0"}, {"capacity", "12"}}}},
         true,
         std::nullopt},
        {"a peripheral's battery is passed over",
         {{"hidpp_battery_0", {{"type", "Battery"}, {"scope", "Device"}, {"status", "Discharging"}, {"capacity", "5"}}}},
         true,
         std::nullopt},
    };
    for (const PowerCase& c : cases) {
        SCOPED_TRACE(c.name);
        TempHome caseHome;
        caseHome.makeDirectory("sys/class/power_supply");
        for (const Supply& supply : c.supplies) {
            for (const auto& [name, value] : supply.attributes) {
                caseHome.writeFile("sys/class/power_supply/" + supply.name + "/" + name, value + "\n");
            }
        }
        const SysfsPowerSourceProvider provider(caseHome.at("sys"));
        EXPECT_EQ(provider.isACPowered(), c.onAC);
        EXPECT_EQ(provider.batteryPercentage(), c.battery);
    }
}

TEST_F(SysfsTest, LowPowerModeIsTheLowPowerPlatformProfile) {
    const SysfsPowerSourceProvider provider(root);
    EXPECT_FALSE(provider.isLowPowerModeEnabled()); // no profile file

    const std::pair<const char*, bool> profiles[] = {
        {"low-power\n", true}, {"  low-power \n", true}, {"balanced\n", false},
        {"performance\n", false}, {"low-power-plus\n", false}, {"", false},
    };
    for (const auto& [contents, expected] : profiles) {
        SCOPED_TRACE(contents);
        home.writeFile("sys/firmware/acpi/platform_profile", contents);
        EXPECT_EQ(provider.isLowPowerModeEnabled(), expected);
    }
}

} // namespace
} // namespace unbulk

#endif // defined(__linux__)
