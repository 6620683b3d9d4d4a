#include "Uninstaller/AppUninstaller.hpp"

#include <algorithm>
#include <chrono>

#include "Uninstaller/UninstallerError.hpp"
#include "Support/Unicode.hpp"

namespace unbulk {
namespace {

bool went(const TrashItemRecord& record) {
    return record.status == TrashItemStatus::success || record.status == TrashItemStatus::simulated;
}

} // namespace

AppUninstaller::AppUninstaller(Configuration c)
    : fileSystem_(std::move(c.fileSystem)), pipeline_(std::move(c.trashPipeline)), scanner_(std::move(c.appScanner)),
      runningAppsProvider_(std::move(c.runningAppsProvider)), homeURL_(std::move(c.homeURL)),
      guard_(std::move(c.protectedAppGuard)), clock_(std::move(c.clock)) {
    resolver_ = c.dependencyResolver ? std::move(c.dependencyResolver)
                                     : std::make_shared<const DependencyResolver>(homeURL_, fileSystem_);
}

UninstallSummary AppUninstaller::uninstall(const std::string& bundleIdentifier, bool dryRun,
                                           const UninstallOptions& options) const {
    if (!scanner_) {
        throw AppUninstallerError::applicationNotFound(
            "AppScanner dependency is required to resolve bundle identifier '" + bundleIdentifier + "'.");
    }
    for (const auto& app : scanner_->listInstalledApps()) {
        if (app.bundleIdentifier == bundleIdentifier) return uninstall(app, dryRun, options);
    }
    throw AppUninstallerError::applicationNotFound("No installed application with bundle identifier '" +
                                                   bundleIdentifier + "' was found.");
}

// Protection holds for a dry run too, and force does not lift it. The guard
// reads the bundle afresh, so a stale or hand-made record gains nothing; an
// Apple identifier may go only from within the user's home.
void AppUninstaller::checkProtection(const InstalledApp& app) const {
    auto refuse = [&] { throw AppUninstallerError::systemAppProtected(app.displayName, app.bundleIdentifier); };
    if (app.isSystemApp || app.isProtected) refuse();
    if (guard_->evaluateProtection(app.bundleURL, app.bundleIdentifier, std::nullopt).isProtected) refuse();
    const std::string path = unicode::lowercased(app.bundleURL.path());
    if (path == "/system" || path.starts_with("/system/")) refuse();
    if (app.bundleIdentifier.starts_with("com.apple.") && !path.starts_with(unicode::lowercased(homeURL_.path()))) refuse();
}

UninstallSummary AppUninstaller::uninstall(const InstalledApp& app, bool dryRun, const UninstallOptions& options,
                                           StopToken stop) const {
    checkProtection(app);
    const bool running = app.isRunning || (runningAppsProvider_ && runningAppsProvider_(app.bundleIdentifier)) ||
                         guard_->isRunning(app.bundleIdentifier);
    if (running) {
        // A dry run terminates too when forced: the caller asked for it.
        if (!options.force) throw AppUninstallerError::applicationIsRunning(app.displayName, app.bundleIdentifier);
        guard_->terminate(app.bundleIdentifier, true);
    }
    const AppFootprint footprint = resolver_->resolveDependencies(app);
    if (!footprint.canUninstall && !options.force) {
        throw AppUninstallerError::uninstallationBlocked(
            footprint.blockingReason.value_or("Application cannot be uninstalled."));
    }

    std::vector<FileURL> urls;
    const bool bundleExists = fileSystem_->fileExists(app.bundleURL.path());
    if (options.includeBundle && bundleExists) urls.push_back(app.bundleURL);
    if (options.includeDependencies) {
        for (const auto& dependency : footprint.dependencies) {
            if (dependency.url.path() != app.bundleURL.path() && fileSystem_->fileExists(dependency.url.path())) {
                urls.push_back(dependency.url);
            }
        }
    }

    UninstallSummary summary;
    summary.id = Uuid::random();
    summary.appName = app.displayName;
    summary.bundleIdentifier = app.bundleIdentifier;
    summary.bundleURL = app.bundleURL;
    summary.dryRun = dryRun;
    if (urls.empty()) {
        summary.timestamp = clock_();
        return summary;
    }

    const TrashSummary result = dryRun                   ? pipeline_->trash(urls, true, "uninstaller", stop)
                                : options.permanentPurge ? pipeline_->purgePermanently(urls, true, "uninstaller", stop)
                                                         : pipeline_->trash(urls, false, "uninstaller", stop);
    if (options.includeBundle && !urls.empty() && urls.front().path() == app.bundleURL.path()) {
        for (const auto& record : result.records) {
            if (record.sourceURL.path() != app.bundleURL.path()) continue;
            if (!went(record)) {
                throw UninstallerError::deletionFailed(
                    app.bundleURL.path(), record.errorMessage.value_or("Failed to delete application bundle."));
            }
            break;
        }
    }
    for (const auto& record : result.records) {
        if (went(record)) summary.deletedURLs.push_back(record.sourceURL);
    }
    summary.unbulkedAllocatedBytes = result.totalAllocatedBytesUnbulked;
    summary.unbulkedLogicalBytes = result.totalLogicalBytesUnbulked;
    summary.records = result.records;
    summary.timestamp = result.completedAt;
    return summary;
}

} // namespace unbulk
