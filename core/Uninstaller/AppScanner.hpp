#pragma once

#include <memory>
#include <optional>
#include <vector>

#include "Models/AppModel.hpp"
#include "Platform/FileSystem.hpp"
#include "Support/Cancellation.hpp"
#include "Uninstaller/ProtectedAppGuard.hpp"
#include "Support/ItemProgress.hpp"

namespace unbulk {

// Finds the application bundles on the machine and reads each: its
// Info.plist, the architecture of its executable, its signature and
// protection, whether it runs, its icon, and its size on disk with hard
// links counted once. Bundles are inspected in parallel, one task each.
class AppScanner {
public:
    // The file system and the guard are required; the roots default to
    // places below the system root ("/" on a real machine).
    struct Configuration {
        std::optional<std::vector<FileURL>> applicationsURLs;       // default: <root>/Applications, ~/Applications
        std::optional<std::vector<FileURL>> systemApplicationsURLs; // default: the three system roots below <root>
        std::shared_ptr<FileSystem> fileSystem;
        FileURL homeURL;
        // Decides protection, and whether an application runs.
        std::shared_ptr<const ProtectedAppGuard> protectedAppGuard;
        std::string systemRoot = "/";
    };

    explicit AppScanner(Configuration configuration);

    std::vector<InstalledApp> listInstalledApps(StopToken stop = {}) const;
    // Sorted by display name without regard to case; equal names keep the
    // order their inspections finished in. `progress` hears of each bundle
    // once it is inspected.
    std::vector<InstalledApp> scanInstalledApps(bool includeSystemApps, StopToken stop = {},
                                                const ItemProgress& progress = {}) const;
    // Nothing when nothing is at the path; a bundle without a readable
    // Info.plist is still reported.
    std::optional<InstalledApp> inspectBundle(const FileURL& bundleURL) const;
    AppArchitecture detectArchitecture(const std::optional<FileURL>& executableURL) const;

    // Bundles directly in the roots and up to maxDepth directories below,
    // links to a bundle once, never into a bundle or through a linked folder.
    std::vector<FileURL> discoverBundles(const std::vector<FileURL>& roots, int maxDepth) const;

    const std::vector<FileURL>& applicationsURLs() const { return applicationsURLs_; }
    const std::shared_ptr<const ProtectedAppGuard>& protectedAppGuard() const { return guard_; }

private:
    std::optional<FileURL> iconURL(const FileURL& bundleURL, const Json& info) const;
    std::pair<std::int64_t, std::int64_t> measureBundle(const FileURL& bundleURL) const;

    std::vector<FileURL> applicationsURLs_;
    std::vector<FileURL> systemApplicationsURLs_;
    std::shared_ptr<FileSystem> fileSystem_;
    std::shared_ptr<const ProtectedAppGuard> guard_;
};

} // namespace unbulk
