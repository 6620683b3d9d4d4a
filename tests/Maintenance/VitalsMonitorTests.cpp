#include <filesystem>
#include <map>

#include <gtest/gtest.h>

#include "Maintenance/VitalsMonitor.hpp"
#include "Platform/linux/ProcVitalsSources.hpp"
#include "Support/Json.hpp"
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
    root.writeFile("proc/stat", "cpu  0 0 0 0\n"); // no ticks yet: idle, not a division by zero
    EXPECT_EQ(VitalsMonitor::getCPUMetrics(sources()).idlePercentage, 100);
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
}

TEST_F(VitalsMonitorTest, NoBatteryButAMouseThenOneChargingOnMainsAndDischarging) {
    supply("AC", {{"type", "Mains"}, {"online", "1"}});
    supply("hidpp_battery_0", // a mouse
           {{"type", "Battery"}, {"scope", "Device"}, {"capacity", "40"}, {"status", "Discharging"}});
    EXPECT_FALSE(VitalsMonitor::getBatteryMetrics(sources()));
    EXPECT_FALSE(toJson(VitalsMonitor::getSystemVitals(sources(), Date{})).contains("battery"));

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
    EXPECT_FALSE(toJson(*battery).contains("cycleCount"));
}

TEST_F(VitalsMonitorTest, DiskFiguresAndTheSystemVolumeFallback) {
    const DiskMetrics disk = VitalsMonitor::getDiskMetrics(sources(), "/");
    EXPECT_GT(disk.totalBytes, 0);
    EXPECT_EQ(disk.availableBytes, disk.freeBytes); // no figure for important usage here
    EXPECT_EQ(disk.purgeableBytes, 0);
    EXPECT_EQ(disk.systemBytes, 20'000'000'000);
    EXPECT_EQ(disk.usedBytes, disk.totalBytes - disk.freeBytes);
    EXPECT_EQ(disk.volumeName, "Macintosh HD"); // the fake root has no mount table
}

TEST(VitalsThermalTest, RawValuesMapAndAnythingElseIsNominal) {
    using S = SystemThermalState;
    const std::vector<std::pair<int, S>> rows{{1, S::fair}, {3, S::critical}, {4, S::nominal}, {-1, S::nominal}};
    for (const auto& [raw, state] : rows)
        EXPECT_EQ(VitalsMonitor::thermalState(raw), state) << raw;
}

} // namespace
} // namespace unbulk
