#pragma once

#include <string>

#include "Platform/VitalsSources.hpp"

namespace unbulk {

// The vitals' readings on Linux: /proc/stat, /proc/meminfo, statvfs,
// /proc/self/mounts, the power_supply class and the thermal zones. Every
// file is read below `root`, so tests hand in a fake tree; statvfs asks the
// real volume.
class ProcVitalsSources final : public VitalsSources {
public:
    explicit ProcVitalsSources(std::string root = "/");

    std::optional<CPUTicks> cpuTicks() const override;
    int activeProcessorCount() const override;
    std::optional<MemoryCounters> memoryCounters() const override;
    std::int64_t physicalMemory() const override;
    VolumeCapacity volumeCapacity(const std::string& volumePath) const override;
    std::optional<std::int64_t> volumeSpaceUsed(const std::string& volumePath) const override;
    std::optional<PowerSourceDescription> firstPowerSource() const override;
    int thermalState() const override;

private:
    std::string at(const std::string& relative) const;

    std::string root_;
};

} // namespace unbulk
