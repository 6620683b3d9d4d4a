#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "Models/AppModel.hpp"
#include "Platform/Clock.hpp"
#include "Platform/FileSystem.hpp"
#include "Safety/TrashPipeline.hpp"
#include "Uninstaller/AppScanner.hpp"
#include "Uninstaller/DependencyResolver.hpp"
#include "Uninstaller/ProtectedAppGuard.hpp"

namespace unbulk {

struct UninstallOptions {
    bool force = false;
    bool includeBundle = true;
    bool includeDependencies = true;
    bool permanentPurge = false;
};

// Removes one application with what belongs to it: refuses what is
// protected, deals with a running process, asks the resolver for the
// footprint and hands the chosen items to the pipeline, which sandboxes,
// moves or purges and writes the audit log under "uninstaller". It touches
// nothing itself.
class AppUninstaller {
public:
    // The file system, the pipeline, the guard and the clock are required.
    struct Configuration {
        std::shared_ptr<FileSystem> fileSystem;
        std::shared_ptr<const TrashPipeline> trashPipeline;
        std::shared_ptr<const DependencyResolver> dependencyResolver; // default: one over the same home and files
        std::shared_ptr<const AppScanner> appScanner;               // needed only to look up a bundle identifier
        ProtectedAppGuard::RunningAppsProvider runningAppsProvider; // asked besides the guard, when given
        FileURL homeURL;
        std::shared_ptr<const ProtectedAppGuard> protectedAppGuard;
        Clock clock; // the time of a summary with nothing to remove
    };

    explicit AppUninstaller(Configuration configuration);

    // A stop request ends the removal between two items (see TrashPipeline).
    UninstallSummary uninstall(const InstalledApp& app, bool dryRun, const UninstallOptions& options = {},
                               StopToken stop = {}) const;
    UninstallSummary uninstall(const std::string& bundleIdentifier, bool dryRun,
                               const UninstallOptions& options = {}) const;

private:
    void checkProtection(const InstalledApp& app) const;

    std::shared_ptr<FileSystem> fileSystem_;
    std::shared_ptr<const TrashPipeline> pipeline_;
    std::shared_ptr<const DependencyResolver> resolver_;
    std::shared_ptr<const AppScanner> scanner_;
    ProtectedAppGuard::RunningAppsProvider runningAppsProvider_;
    FileURL homeURL_;
    std::shared_ptr<const ProtectedAppGuard> guard_;
    Clock clock_;
};

} // namespace unbulk
