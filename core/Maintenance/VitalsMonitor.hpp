#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "Models/VitalsModel.hpp"
#include "Platform/VitalsSources.hpp"

// One snapshot of the machine's health, taken fresh on every call; nothing
// is kept. The CPU figures are shares of the tick counters since boot, not a
// rate over an interval. Nothing here fails: what the system does not tell
// gives the fallbacks below.
namespace unbulk::VitalsMonitor {

// Everything, for the volume at "/", stamped `now`.
SystemVitals getSystemVitals(const VitalsSources& sources, Date now);

CPUMetrics getCPUMetrics(const VitalsSources& sources);
MemoryMetrics getMemoryMetrics(const VitalsSources& sources);
DiskMetrics getDiskMetrics(const VitalsSources& sources, const std::string& volumePath);
std::optional<BatteryMetrics> getBatteryMetrics(const VitalsSources& sources);
// The space of the system's own volumes; 20 GB when none can be read.
std::int64_t getSystemVolumeBytes(const VitalsSources& sources);

SystemThermalState thermalState(int rawValue);

} // namespace unbulk::VitalsMonitor
