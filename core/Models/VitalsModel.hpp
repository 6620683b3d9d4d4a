#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Support/Dates.hpp"
#include "Support/EnumTable.hpp"
#include "Support/JsonFwd.hpp"

// One snapshot of the machine's health: CPU, memory, the system volume, the
// battery and the thermal state. Filled by VitalsMonitor, printed as it stands.
namespace unbulk {

enum class MemoryPressureStatus { normal, warning, critical };

struct MemoryPressureStatusInfo {
    MemoryPressureStatus value;
    std::string_view rawValue;
};

inline constexpr std::array<MemoryPressureStatusInfo, 3> memoryPressureStatusTable{{
    {MemoryPressureStatus::normal, "NORMAL"},
    {MemoryPressureStatus::warning, "WARNING"},
    {MemoryPressureStatus::critical, "CRITICAL"},
}};

template <> struct EnumTable<MemoryPressureStatus> {
    static constexpr std::string_view name = "MemoryPressureStatus";
    static constexpr const auto& rows = memoryPressureStatusTable;
};

enum class SystemThermalState { nominal, fair, serious, critical };

struct SystemThermalStateInfo {
    SystemThermalState value;
    std::string_view rawValue;
};

inline constexpr std::array<SystemThermalStateInfo, 4> systemThermalStateTable{{
    {SystemThermalState::nominal, "NOMINAL"},
    {SystemThermalState::fair, "FAIR"},
    {SystemThermalState::serious, "SERIOUS"},
    {SystemThermalState::critical, "CRITICAL"},
}};

template <> struct EnumTable<SystemThermalState> {
    static constexpr std::string_view name = "SystemThermalState";
    static constexpr const auto& rows = systemThermalStateTable;
};

struct CPUMetrics {
    double totalUsagePercentage = 0;
    double userPercentage = 0;
    double systemPercentage = 0;
    double idlePercentage = 100;
    int coreCount = 0;
    std::vector<double> perCoreUsage; // left empty by the monitor

    friend bool operator==(const CPUMetrics&, const CPUMetrics&) = default;
};

struct MemoryMetrics {
    std::int64_t totalBytes = 0;
    std::int64_t usedBytes = 0;
    std::int64_t freeBytes = 0;
    std::int64_t appMemoryBytes = 0;
    std::int64_t wiredBytes = 0;
    std::int64_t compressedBytes = 0;
    MemoryPressureStatus pressureStatus = MemoryPressureStatus::normal;
    double usedPercentage = 0;

    std::string formattedUsedBytes() const;
    std::string formattedTotalBytes() const;

    friend bool operator==(const MemoryMetrics&, const MemoryMetrics&) = default;
};

struct DiskMetrics {
    std::string volumePath;
    std::string volumeName;
    std::int64_t totalBytes = 0;
    std::int64_t freeBytes = 0;
    std::int64_t availableBytes = 0;
    std::int64_t purgeableBytes = 0;
    std::int64_t systemBytes = 0;
    std::int64_t usedBytes = 0; // total - free, at least 0
    double usedPercentage = 0;  // of the total; 0 for a total below 1

    // Computes usedBytes and usedPercentage from the rest.
    static DiskMetrics make(std::string volumePath, std::string volumeName, std::int64_t totalBytes,
                            std::int64_t freeBytes, std::int64_t availableBytes, std::int64_t purgeableBytes,
                            std::int64_t systemBytes);

    std::string formattedFreeBytes() const;

    friend bool operator==(const DiskMetrics&, const DiskMetrics&) = default;
};

struct BatteryMetrics {
    double percentage = 0;
    bool isCharging = false;
    bool isACPowered = false;
    std::optional<int> timeRemainingMinutes;
    std::optional<double> healthPercentage; // left absent by the monitor
    std::optional<int> cycleCount;          // left absent by the monitor

    friend bool operator==(const BatteryMetrics&, const BatteryMetrics&) = default;
};

struct SystemVitals {
    Date timestamp{};
    CPUMetrics cpu;
    MemoryMetrics memory;
    DiskMetrics disk;
    std::optional<BatteryMetrics> battery;
    SystemThermalState thermalState = SystemThermalState::nominal;

    friend bool operator==(const SystemVitals&, const SystemVitals&) = default;
};

// Every field under its own name; an absent optional writes no key.
Json toJson(const CPUMetrics& cpu);
Json toJson(const MemoryMetrics& memory);
Json toJson(const DiskMetrics& disk);
Json toJson(const BatteryMetrics& battery);
Json toJson(const SystemVitals& vitals, DateEncoding dates = DateEncoding::secondsSinceReferenceDate);

} // namespace unbulk
