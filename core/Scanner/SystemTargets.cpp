#include "Scanner/SystemTargets.hpp"

#include "Support/Cancellation.hpp"

namespace unbulk {

SystemTargets::SystemTargets(FileURL homeURL, std::shared_ptr<FileSystem> fileSystem)
    : homeURL_(std::move(homeURL)), fileSystem_(std::move(fileSystem)) {}

SystemScanOutput SystemTargets::scan(const CategorySet& categories, const ScanProgressHandler& progress,
                                     std::stop_token stop) const {
    (void)categories;
    (void)progress;
    throwIfCancelled(stop);
    // The probes of the user's library are not built yet; until they are,
    // the stage finds nothing and warns of nothing.
    return {};
}

} // namespace unbulk
