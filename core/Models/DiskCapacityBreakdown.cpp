#include "Models/DiskCapacityBreakdown.hpp"

#include <algorithm>

namespace unbulk {

DiskCapacityBreakdown DiskCapacityBreakdown::make(std::int64_t totalBytes, std::int64_t freeBytes,
                                                  std::int64_t purgeableBytes, std::int64_t systemBytes,
                                                  std::int64_t installedAppsBytes, bool hasInstalledApps,
                                                  std::optional<std::int64_t> safeUnbulkableBytes) {
    DiskCapacityBreakdown b;
    if (totalBytes < 1) return b;
    const double total = static_cast<double>(totalBytes);
    const double free = std::clamp(static_cast<double>(freeBytes), 0.0, total);
    const double used = std::max(0.0, total - free);

    double sweepable = 0;
    if (safeUnbulkableBytes) {
        sweepable = std::clamp(static_cast<double>(*safeUnbulkableBytes), 0.0, used);
    } else if (purgeableBytes >= 1) {
        sweepable = std::min(static_cast<double>(purgeableBytes), used);
    } else {
        sweepable = std::min(used * 0.08, 5'000'000'000.0);
    }

    const double system = systemBytes >= 1 ? std::min(static_cast<double>(systemBytes), used)
                                           : std::min(std::max(used * 0.15, 15'000'000'000.0), used);

    // A measured 0 stands only when the measurement was taken.
    const double apps = !hasInstalledApps && installedAppsBytes < 1
                            ? std::min(std::max(used * 0.18, 18'000'000'000.0), used)
                            : std::clamp(static_cast<double>(installedAppsBytes), 0.0, used);

    double scale = 1;
    const double sum = sweepable + system + apps;
    if (sum > 0 && used < sum) scale = used / sum;

    b.totalBytes = total;
    b.freeBytes = free;
    b.usedBytes = used;
    b.sweepableBytes = sweepable * scale;
    b.systemBytes = system * scale;
    b.appsBytes = apps * scale;
    b.otherBytes = std::max(0.0, used - b.sweepableBytes - b.systemBytes - b.appsBytes);
    return b;
}

Json toJson(const DiskCapacityBreakdown& b) {
    return Json{{"totalBytes", b.totalBytes},         {"freeBytes", b.freeBytes}, {"usedBytes", b.usedBytes},
                {"systemBytes", b.systemBytes},       {"appsBytes", b.appsBytes}, {"sweepableBytes", b.sweepableBytes},
                {"otherBytes", b.otherBytes}};
}

} // namespace unbulk
