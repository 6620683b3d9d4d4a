#include <filesystem>
#include <map>

#include <gtest/gtest.h>

#include "Maintenance/VitalsMonitor.hpp"
#include "Models/DiskCapacityBreakdown.hpp"
#include "Platform/linux/ProcVitalsSources.hpp"
#include "support/TempHome.hpp"

namespace unbulk {
namespace {

using testing::TempHome;

// A fake machine: /proc and /sys files below a temporary root, written as the
// kernel writes them.
struct VitalsMonitorTest : ::testing::Test {
    void meminfo(long totalKiB, long activeKiB, long inactiveKiB, long unevictableKiB = 0, long zswapKiB = -1) {
        std::string text = "MemTotal:       " + std::to_string(totalKiB) + " kB\nMemFree:         1000 kB\n" +
                           "Active:          " + std::to_string(activeKiB) +
                           " kB\nInactive:        " + std::to_string(inactiveKiB) +
                           " kB\nUnevictable:     " + std::to_string(unevictableKiB) +
                           " kB\nKernelStack:        0 kB\nPageTables:         0 kB\nSUnreclaim:         0 kB\n";
        if (zswapKiB >= 0) text += "Zswap:           " + std::to_string(zswapKiB) + " kB\n";
        root.writeFile("proc/meminfo", text);
    }
    void supply(const std::string& name, const std::map<std::string, std::string>& attributes) {
        for (const auto& [key, value] : attributes)
            root.writeFile("sys/class/power_supply/" + name + "/" + key, value + "\n");
    }
    ProcVitalsSources sources() const { return ProcVitalsSources(root.path()); }

    TempHome root;
};

TEST_F(VitalsMonitorTest, CpuSharesOfTheTickCountersSinceBoot) {
    // user nice system idle iowait irq softirq steal: interrupts count as
    // system, I/O wait as idle, nice only in the whole.
    root.writeFile("proc/stat", "cpu  600 100 150 2000 100 30 20 999\ncpu0 1 2 3 4\ncpu1 1 2 3 4\nintr 5\n");
    const CPUMetrics cpu = VitalsMonitor::getCPUMetrics(sources());
    EXPECT_EQ(cpu.coreCount, 2);
    EXPECT_DOUBLE_EQ(cpu.userPercentage, 20);
    EXPECT_DOUBLE_EQ(cpu.systemPercentage, 200.0 / 3000 * 100);
    EXPECT_DOUBLE_EQ(cpu.idlePercentage, 70);
    EXPECT_DOUBLE_EQ(cpu.totalUsagePercentage, 30);
    EXPECT_TRUE(cpu.perCoreUsage.empty());

    root.writeFile("proc/stat", "cpu  0 0 0 0\n");
    EXPECT_EQ(VitalsMonitor::getCPUMetrics(sources()).idlePercentage, 100);
    root.writeFile("proc/stat", "garbage\n");
    EXPECT_EQ(VitalsMonitor::getCPUMetrics(sources()).totalUsagePercentage, 0);
}

TEST_F(VitalsMonitorTest, MemoryCountsInactivePagesAsUsedAndGradesPressureStrictly) {
    struct Row {
        long total, active, inactive, unevictable, zswap;
        MemoryPressureStatus pressure;
        double percentage;
    };
    const std::vector<Row> rows{
        {1000, 400, 300, 0, -1, MemoryPressureStatus::normal, 70},    // exactly 70: normal
        {1000, 400, 300, 100, 50, MemoryPressureStatus::warning, 85}, // exactly 85: warning
        {1000, 900, 500, 0, -1, MemoryPressureStatus::critical, 100}, // above the total
    };
    for (const auto& row : rows) {
        meminfo(row.total, row.active, row.inactive, row.unevictable, row.zswap);
        const MemoryMetrics memory = VitalsMonitor::getMemoryMetrics(sources());
        EXPECT_EQ(memory.totalBytes, row.total * 1024);
        EXPECT_EQ(memory.appMemoryBytes, (row.active + row.inactive) * 1024);
        EXPECT_EQ(memory.wiredBytes, row.unevictable * 1024);
        EXPECT_EQ(memory.compressedBytes, std::max(0L, row.zswap) * 1024);
        EXPECT_EQ(memory.pressureStatus, row.pressure) << row.percentage;
        EXPECT_DOUBLE_EQ(memory.usedPercentage, row.percentage);
        EXPECT_LE(memory.usedBytes, memory.totalBytes);
        EXPECT_EQ(memory.freeBytes,
                  std::max(0L, row.total - row.active - row.inactive - row.unevictable - std::max(0L, row.zswap)) *
                      1024);
    }
    root.writeFile("proc/meminfo", "MemTotal: 2000 kB\n"); // no page counts: the plain guess
    const MemoryMetrics guess = VitalsMonitor::getMemoryMetrics(sources());
    EXPECT_EQ(std::tuple(guess.usedBytes, guess.freeBytes, guess.usedPercentage), std::tuple(1024000L, 1024000L, 50.0));
}

TEST_F(VitalsMonitorTest, NoBatteryButAMouseThenOneChargingOnMainsAndDischarging) {
    supply("AC", {{"type", "Mains"}, {"online", "1"}});
    supply("hidpp_battery_0", // a mouse
           {{"type", "Battery"}, {"scope", "Device"}, {"capacity", "40"}, {"status", "Discharging"}});
    EXPECT_FALSE(VitalsMonitor::getBatteryMetrics(sources()));
    EXPECT_FALSE(toJson(VitalsMonitor::getSystemVitals(sources())).contains("battery"));

    std::filesystem::remove_all(root.at("sys/class/power_supply/hidpp_battery_0"));
    supply("BAT0", {{"type", "Battery"}, {"capacity", "57"}, {"status", "Charging"}, {"energy_now", "30000000"},
                    {"power_now", "10000000"}});
    auto battery = VitalsMonitor::getBatteryMetrics(sources());
    ASSERT_TRUE(battery);
    EXPECT_DOUBLE_EQ(battery->percentage, 57);
    EXPECT_EQ(std::tuple(battery->isCharging, battery->isACPowered), std::tuple(true, true));
    EXPECT_FALSE(battery->timeRemainingMinutes);

    supply("AC", {{"online", "0"}});
    supply("BAT0", {{"status", "Discharging"}});
    battery = VitalsMonitor::getBatteryMetrics(sources());
    ASSERT_TRUE(battery);
    EXPECT_EQ(std::tuple(battery->isCharging, battery->isACPowered), std::tuple(false, false));
    EXPECT_EQ(battery->timeRemainingMinutes, 180); // 30 Wh at 10 W
    EXPECT_FALSE(battery->healthPercentage);
    const Json json = toJson(*battery);
    EXPECT_EQ(json["timeRemainingMinutes"], 180);
    EXPECT_FALSE(json.contains("cycleCount"));
}

TEST_F(VitalsMonitorTest, DiskFiguresAndTheSystemVolumeFallback) {
    const DiskMetrics disk = VitalsMonitor::getDiskMetrics(sources(), "/");
    EXPECT_GT(disk.totalBytes, 0);
    EXPECT_EQ(disk.availableBytes, disk.freeBytes); // no figure for important usage here
    EXPECT_EQ(disk.purgeableBytes, 0);
    EXPECT_EQ(disk.systemBytes, 20'000'000'000);
    EXPECT_EQ(disk.usedBytes, disk.totalBytes - disk.freeBytes);
    EXPECT_EQ(disk.volumeName, "Macintosh HD"); // the fake root has no mount table

    const DiskMetrics empty = DiskMetrics::make("/x", "X", 0, 10, 10, 0, 0);
    EXPECT_EQ(std::tuple(empty.usedBytes, empty.usedPercentage), std::tuple(0L, 0.0));
}

TEST(VitalsThermalTest, RawValuesMapAndAnythingElseIsNominal) {
    using S = SystemThermalState;
    const std::vector<std::pair<int, S>> rows{{0, S::nominal},  {1, S::fair},    {2, S::serious},
                                              {3, S::critical}, {4, S::nominal}, {-1, S::nominal}};
    for (const auto& [raw, state] : rows)
        EXPECT_EQ(VitalsMonitor::thermalState(raw), state) << raw;
}

TEST(DiskCapacityBreakdownTest, EstimatesScaleAndMeasurementsStand) {
    constexpr std::int64_t GB = 1'000'000'000;
    // Nothing measured on a small disk: 1.6 + 15 + 18 GB do not fit in 20 GB used.
    const auto small = DiskCapacityBreakdown::make(100 * GB, 80 * GB, 0, 0, 0, false, std::nullopt);
    EXPECT_DOUBLE_EQ(small.usedBytes, 20.0 * GB);
    const double scale = 20.0 / 34.6;
    EXPECT_NEAR(small.sweepableBytes, 1.6 * GB * scale, 1);
    EXPECT_NEAR(small.systemBytes, 15.0 * GB * scale, 1);
    EXPECT_NEAR(small.appsBytes, 18.0 * GB * scale, 1);
    EXPECT_NEAR(small.otherBytes, 0, 1);

    // A large disk: 8% capped at 5 GB, 15%, 18%, the rest other.
    const auto large = DiskCapacityBreakdown::make(1000 * GB, 200 * GB, 0, 0, 0, false, std::nullopt);
    EXPECT_DOUBLE_EQ(large.sweepableBytes, 5.0 * GB);
    EXPECT_DOUBLE_EQ(large.systemBytes, 120.0 * GB);
    EXPECT_DOUBLE_EQ(large.appsBytes, 144.0 * GB);
    EXPECT_DOUBLE_EQ(large.otherBytes, (800.0 - 269.0) * GB);
    EXPECT_DOUBLE_EQ(large.freeFraction(), 0.2);

    // Measurements stand: a purgeable figure, a system figure, apps measured at 0, a known sweepable 0.
    const auto measured = DiskCapacityBreakdown::make(1000 * GB, 200 * GB, 7 * GB, 11 * GB, 0, true, std::nullopt);
    EXPECT_DOUBLE_EQ(measured.sweepableBytes, 7.0 * GB);
    EXPECT_DOUBLE_EQ(measured.systemBytes, 11.0 * GB);
    EXPECT_DOUBLE_EQ(measured.appsBytes, 0);
    EXPECT_DOUBLE_EQ(DiskCapacityBreakdown::make(1000 * GB, 200 * GB, 7 * GB, 0, 0, false, 0).sweepableBytes, 0);

    // A free figure above the total, and no total at all.
    const auto overfull = DiskCapacityBreakdown::make(100 * GB, 150 * GB, 0, 0, 0, false, std::nullopt);
    EXPECT_EQ(std::tuple(overfull.usedBytes, overfull.systemBytes, overfull.appsBytes, overfull.sweepableBytes),
              std::tuple(0.0, 0.0, 0.0, 0.0));
    const auto none = DiskCapacityBreakdown::make(0, 0, 0, 0, 0, false, std::nullopt);
    EXPECT_EQ(std::tuple(none.systemFraction(), none.freeFraction(), none.otherFraction()), std::tuple(0.0, 0.0, 0.0));
}

} // namespace
} // namespace unbulk
