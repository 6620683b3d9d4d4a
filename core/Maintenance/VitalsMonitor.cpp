#include "Maintenance/VitalsMonitor.hpp"

#include <algorithm>
#include <chrono>

namespace unbulk::VitalsMonitor {

SystemThermalState thermalState(int rawValue) {
    switch (rawValue) {
    case 1: return SystemThermalState::fair;
    case 2: return SystemThermalState::serious;
    case 3: return SystemThermalState::critical;
    default: return SystemThermalState::nominal;
    }
}

SystemVitals getSystemVitals(const VitalsSources& sources, Date now) {
    SystemVitals vitals;
    vitals.cpu = getCPUMetrics(sources);
    vitals.memory = getMemoryMetrics(sources);
    vitals.disk = getDiskMetrics(sources, "/");
    vitals.battery = getBatteryMetrics(sources);
    vitals.thermalState = thermalState(sources.thermalState());
    vitals.timestamp = now;
    return vitals;
}

CPUMetrics getCPUMetrics(const VitalsSources& sources) {
    CPUMetrics cpu;
    cpu.coreCount = sources.activeProcessorCount();
    const auto ticks = sources.cpuTicks();
    const double sum = ticks ? static_cast<double>(ticks->user) + static_cast<double>(ticks->system) +
                                   static_cast<double>(ticks->idle) + static_cast<double>(ticks->nice)
                             : 0;
    if (!ticks || sum == 0) return cpu; // 0 busy, 100 idle
    // Nice ticks count in the whole and are shown in no field.
    cpu.userPercentage = std::min(static_cast<double>(ticks->user) / sum * 100, 100.0);
    cpu.systemPercentage = std::min(static_cast<double>(ticks->system) / sum * 100, 100.0);
    cpu.idlePercentage = std::min(static_cast<double>(ticks->idle) / sum * 100, 100.0);
    cpu.totalUsagePercentage = std::clamp(100 - cpu.idlePercentage, 0.0, 100.0);
    return cpu;
}

MemoryMetrics getMemoryMetrics(const VitalsSources& sources) {
    MemoryMetrics memory;
    memory.totalBytes = sources.physicalMemory();
    const auto counters = sources.memoryCounters();
    if (!counters) {
        // A plain guess rather than nothing.
        memory.usedBytes = memory.totalBytes / 2;
        memory.freeBytes = memory.totalBytes / 2;
        memory.usedPercentage = 50;
        return memory;
    }
    memory.appMemoryBytes = counters->activeBytes + counters->inactiveBytes;
    memory.wiredBytes = counters->wiredBytes;
    memory.compressedBytes = counters->compressedBytes;
    // Inactive pages count as used, not as free.
    const std::int64_t used = memory.appMemoryBytes + memory.wiredBytes + memory.compressedBytes;
    const double percentage =
        memory.totalBytes == 0 ? 0 : static_cast<double>(used) / static_cast<double>(memory.totalBytes) * 100;
    memory.pressureStatus = percentage > 85   ? MemoryPressureStatus::critical
                            : percentage > 70 ? MemoryPressureStatus::warning
                                              : MemoryPressureStatus::normal;
    memory.usedBytes = std::min(used, memory.totalBytes);
    memory.freeBytes = std::max<std::int64_t>(0, memory.totalBytes - used);
    memory.usedPercentage = std::clamp(percentage, 0.0, 100.0);
    return memory;
}

DiskMetrics getDiskMetrics(const VitalsSources& sources, const std::string& volumePath) {
    const VolumeCapacity capacity = sources.volumeCapacity(volumePath);
    const std::int64_t total = capacity.totalCapacity.value_or(0);
    const std::int64_t free = capacity.availableCapacity.value_or(0);
    const std::int64_t available = capacity.availableCapacityForImportantUsage.value_or(free);
    // What the system could purge: the difference between its two figures.
    const std::int64_t purgeable = std::max<std::int64_t>(0, available - free);
    return DiskMetrics::make(volumePath, capacity.name.value_or("Macintosh HD"), total, free, available, purgeable,
                             getSystemVolumeBytes(sources));
}

std::int64_t getSystemVolumeBytes(const VitalsSources& sources) {
    std::int64_t sum = 0;
    for (const char* volume : {"/", "/System/Volumes/VM", "/System/Volumes/Preboot"}) {
        sum += sources.volumeSpaceUsed(volume).value_or(0);
    }
    return sum < 1 ? 20'000'000'000 : sum;
}

std::optional<BatteryMetrics> getBatteryMetrics(const VitalsSources& sources) {
    const auto source = sources.firstPowerSource();
    if (!source) return std::nullopt;
    const auto current = static_cast<double>(source->currentCapacity.value_or(100));
    const auto max = static_cast<double>(source->maxCapacity.value_or(100));
    BatteryMetrics battery;
    battery.percentage = max >= 1 ? current / max * 100 : 100;
    battery.isCharging = source->isCharging.value_or(false);
    battery.isACPowered = source->powerSourceState == "AC Power";
    if (source->timeToEmpty && *source->timeToEmpty != -1) {
        battery.timeRemainingMinutes = static_cast<int>(*source->timeToEmpty);
    }
    return battery;
}

} // namespace unbulk::VitalsMonitor
