#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace unbulk {

// CPU time since boot, in ticks, split as the Mac's host statistics split it.
struct CPUTicks {
    std::uint64_t user = 0;
    std::uint64_t system = 0;
    std::uint64_t idle = 0;
    std::uint64_t nice = 0;
};

// Memory in use, in bytes, as the Mac's virtual memory statistics count it.
struct MemoryCounters {
    std::int64_t activeBytes = 0;
    std::int64_t inactiveBytes = 0;
    std::int64_t wiredBytes = 0;
    std::int64_t compressedBytes = 0;
};

// What the system says about a volume; any figure may be unknown.
struct VolumeCapacity {
    std::optional<std::int64_t> totalCapacity;
    std::optional<std::int64_t> availableCapacity;
    std::optional<std::int64_t> availableCapacityForImportantUsage;
    std::optional<std::string> name;
};

// The first power source's description, under the names the Mac's power
// source dictionaries use; a key the source does not give is absent.
struct PowerSourceDescription {
    std::optional<std::int64_t> currentCapacity;
    std::optional<std::int64_t> maxCapacity;
    std::optional<bool> isCharging;
    std::optional<std::string> powerSourceState; // "AC Power", "Battery Power"
    std::optional<std::int64_t> timeToEmpty;     // minutes; -1 while the system is still estimating
};

// The raw readings behind the vitals. Each answers nothing when the system
// does not tell; VitalsMonitor turns that into its fallbacks.
class VitalsSources {
public:
    virtual ~VitalsSources() = default;

    virtual std::optional<CPUTicks> cpuTicks() const = 0;
    virtual int activeProcessorCount() const = 0;
    virtual std::optional<MemoryCounters> memoryCounters() const = 0;
    virtual std::int64_t physicalMemory() const = 0;
    virtual VolumeCapacity volumeCapacity(const std::string& volumePath) const = 0;
    // The space a volume uses, where the system keeps volumes apart (the
    // Mac's sealed system volume and its helpers).
    virtual std::optional<std::int64_t> volumeSpaceUsed(const std::string& volumePath) const = 0;
    // Nothing on a machine without power sources.
    virtual std::optional<PowerSourceDescription> firstPowerSource() const = 0;
    // The platform's thermal state value: 0 nominal, 1 fair, 2 serious, 3 critical.
    virtual int thermalState() const = 0;
};

// Mach host statistics, volume resource values, getattrlist and IOKit on the
// Mac; /proc, statvfs and sysfs on Linux.
std::shared_ptr<VitalsSources> makeDefaultVitalsSources();

} // namespace unbulk
