#pragma once

#include <cstdint>
#include <optional>

#include "Support/Json.hpp"

namespace unbulk {

// A disk's capacity split into the shares a person cares about: free, the
// system, applications, what could be swept, and the rest. Missing
// measurements are estimated with plain constants, and the three estimated
// shares are scaled down together when they would not fit in what is used.
struct DiskCapacityBreakdown {
    double totalBytes = 0;
    double freeBytes = 0;
    double usedBytes = 0;
    double systemBytes = 0;
    double appsBytes = 0;
    double sweepableBytes = 0;
    double otherBytes = 0;

    // `installedAppsBytes` counts only when `hasInstalledApps` says it was
    // measured, or when it is above 0; `safeUnbulkableBytes`, when known,
    // replaces the purgeable estimate.
    static DiskCapacityBreakdown make(std::int64_t totalBytes, std::int64_t freeBytes, std::int64_t purgeableBytes,
                                      std::int64_t systemBytes, std::int64_t installedAppsBytes, bool hasInstalledApps,
                                      std::optional<std::int64_t> safeUnbulkableBytes);

    // Each share over the total; 0 when the total is not above 0.
    double systemFraction() const { return fraction(systemBytes); }
    double appsFraction() const { return fraction(appsBytes); }
    double sweepableFraction() const { return fraction(sweepableBytes); }
    double otherFraction() const { return fraction(otherBytes); }
    double freeFraction() const { return fraction(freeBytes); }

    friend bool operator==(const DiskCapacityBreakdown&, const DiskCapacityBreakdown&) = default;

private:
    double fraction(double share) const { return totalBytes > 0 ? share / totalBytes : 0; }
};

// The seven shares under their field names; the fractions are computed, not stored.
Json toJson(const DiskCapacityBreakdown& breakdown);

} // namespace unbulk
