#include "Models/VitalsModel.hpp"

#include <algorithm>

#include "Platform/ByteCountFormatter.hpp"
#include "Support/Json.hpp"

namespace unbulk {

std::string MemoryMetrics::formattedUsedBytes() const { return formatByteCount(usedBytes); }
std::string MemoryMetrics::formattedTotalBytes() const { return formatByteCount(totalBytes); }

DiskMetrics DiskMetrics::make(std::string volumePath, std::string volumeName, std::int64_t totalBytes,
                              std::int64_t freeBytes, std::int64_t availableBytes, std::int64_t purgeableBytes,
                              std::int64_t systemBytes) {
    DiskMetrics disk;
    disk.volumePath = std::move(volumePath);
    disk.volumeName = std::move(volumeName);
    disk.totalBytes = totalBytes;
    disk.freeBytes = freeBytes;
    disk.availableBytes = availableBytes;
    disk.purgeableBytes = purgeableBytes;
    disk.systemBytes = systemBytes;
    disk.usedBytes = std::max<std::int64_t>(0, totalBytes - freeBytes);
    disk.usedPercentage =
        totalBytes < 1 ? 0 : static_cast<double>(disk.usedBytes) / static_cast<double>(totalBytes) * 100;
    return disk;
}

std::string DiskMetrics::formattedFreeBytes() const { return formatByteCount(freeBytes); }

Json toJson(const CPUMetrics& cpu) {
    return Json{{"totalUsagePercentage", cpu.totalUsagePercentage},
                {"userPercentage", cpu.userPercentage},
                {"systemPercentage", cpu.systemPercentage},
                {"idlePercentage", cpu.idlePercentage},
                {"coreCount", cpu.coreCount},
                {"perCoreUsage", cpu.perCoreUsage}};
}

Json toJson(const MemoryMetrics& m) {
    return Json{{"totalBytes", m.totalBytes},         {"usedBytes", m.usedBytes},
                {"freeBytes", m.freeBytes},           {"appMemoryBytes", m.appMemoryBytes},
                {"wiredBytes", m.wiredBytes},         {"compressedBytes", m.compressedBytes},
                {"pressureStatus", m.pressureStatus}, {"usedPercentage", m.usedPercentage}};
}

Json toJson(const DiskMetrics& d) {
    return Json{
        {"volumePath", d.volumePath},   {"volumeName", d.volumeName},         {"totalBytes", d.totalBytes},
        {"freeBytes", d.freeBytes},     {"availableBytes", d.availableBytes}, {"purgeableBytes", d.purgeableBytes},
        {"systemBytes", d.systemBytes}, {"usedBytes", d.usedBytes},           {"usedPercentage", d.usedPercentage}};
}

Json toJson(const BatteryMetrics& b) {
    Json j{{"percentage", b.percentage}, {"isCharging", b.isCharging}, {"isACPowered", b.isACPowered}};
    json::setOptional(j, "timeRemainingMinutes", b.timeRemainingMinutes);
    json::setOptional(j, "healthPercentage", b.healthPercentage);
    json::setOptional(j, "cycleCount", b.cycleCount);
    return j;
}

Json toJson(const SystemVitals& v, DateEncoding dates) {
    Json j{{"timestamp", dates::encode(v.timestamp, dates)},
           {"cpu", toJson(v.cpu)},
           {"memory", toJson(v.memory)},
           {"disk", toJson(v.disk)},
           {"thermalState", v.thermalState}};
    if (v.battery) j["battery"] = toJson(*v.battery);
    return j;
}

} // namespace unbulk
