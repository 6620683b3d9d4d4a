#include "Uninstaller/LeftoversHunter.hpp"

#include <algorithm>

#include "Support/CheckedMath.hpp"
#include "Support/Paths.hpp"
#include "Uninstaller/InstalledAppsIndex.hpp"
#include "Uninstaller/LeftoversWhitelist.hpp"
#include "Platform/TreeMeasure.hpp"
#include "Support/Text.hpp"

namespace unbulk {
namespace {

struct Orphan {
    double confidence;
    RiskTier tier;
    std::string reason;
};

std::string dropSuffix(const std::string& text, std::string_view suffix) {
    return text.ends_with(suffix) ? text.substr(0, text.size() - suffix.size()) : text;
}

// Any dotted name without a space reads as a bundle identifier, report.txt
// included.
std::pair<std::string, std::optional<std::string>> parseIdentifier(const std::string& fileName,
                                                                   DependencyLocation location) {
    std::string name = fileName;
    if (location == DependencyLocation::preferences) {
        name = name.ends_with(".plist") ? dropSuffix(name, ".plist") : dropSuffix(name, ".plist.lockfile");
    } else if (location == DependencyLocation::savedApplicationState) {
        name = dropSuffix(name, ".savedState");
    }
    const std::size_t parts = text::splitNonEmpty(name, '.').size();
    if (parts >= 2 && name.find(' ') == std::string::npos) return {name, name};
    return {name, std::nullopt};
}

Orphan evaluateOrphan(DependencyLocation location, const std::string& name, const std::optional<std::string>& bundleID,
                      bool isDirectory) {
    using L = DependencyLocation;
    using R = RiskTier;
    if (bundleID) {
        const std::string& id = *bundleID;
        switch (location) {
        case L::caches:
        case L::savedApplicationState:
        case L::webKit:
        case L::httpStorages:
            return {1.0, R::safeToDelete, "Cache or state directory for uninstalled bundle identifier '" + id + "'."};
        case L::preferences:
            return {1.0, R::safeToDelete, "Preferences plist belongs to uninstalled bundle identifier '" + id + "'."};
        case L::containers:
        case L::applicationScripts:
            return {0.95, R::safeToDelete, "Sandbox container for uninstalled bundle identifier '" + id + "'."};
        case L::groupContainers:
            return {0.85, R::reviewRequired, "App Group container for uninstalled bundle identifier '" + id + "'."};
        case L::launchAgents:
            return {0.85, R::reviewRequired, "Orphaned LaunchAgent plist for uninstalled application '" + id + "'."};
        default:
            return {0.9, R::safeToDelete, "Orphaned dependency item for uninstalled bundle identifier '" + id + "'."};
        }
    }
    const std::string kind = isDirectory ? "directory" : "item";
    if (location == L::applicationSupport) {
        return {0.9, R::safeToDelete,
                "Application Support " + kind + " '" + name + "' has no corresponding installed application."};
    }
    if (location == L::caches) {
        return {0.9, R::safeToDelete, "Cache " + kind + " '" + name + "' has no corresponding installed application."};
    }
    return {0.75, R::reviewRequired, "Item '" + name + "' has no corresponding installed application."};
}

} // namespace

LeftoversHunterError LeftoversHunterError::directoryAccessDenied(const std::string& path) {
    return {Kind::directoryAccessDenied, "Permission denied accessing candidate directory: " + path};
}
LeftoversHunterError LeftoversHunterError::underlyingError(const std::string& text) {
    return {Kind::underlyingError, "LeftoversHunter error: " + text};
}
LeftoversHunterError LeftoversHunterError::scanCancelled() {
    return {Kind::scanCancelled, "Leftovers scan was cancelled."};
}

LeftoversHunter::LeftoversHunter(FileURL homeURL, std::shared_ptr<FileSystem> fileSystem,
                                 std::shared_ptr<const AppScanner> appScanner, AppsProvider appsProvider)
    : homeURL_(std::move(homeURL)), fileSystem_(std::move(fileSystem)), appScanner_(std::move(appScanner)),
      appsProvider_(std::move(appsProvider)) {}

std::vector<AppLeftover>
LeftoversHunter::scanForLeftovers(const std::optional<std::vector<InstalledApp>>& installedApps,
                                  const Progress& progress, StopToken stop) const {
    throwIfCancelled(stop);
    std::vector<InstalledApp> apps;
    if (installedApps) {
        apps = *installedApps; // an empty list stands as it is
    } else if (appsProvider_) {
        apps = appsProvider_();
    } else if (appScanner_) {
        apps = appScanner_->scanInstalledApps(false, stop);
    }
    const InstalledAppsIndex index(apps);

    using L = DependencyLocation;
    const std::vector<std::pair<const char*, L>> directories{
        {"Library/Application Support", L::applicationSupport},
        {"Library/Caches", L::caches},
        {"Library/Preferences", L::preferences},
        {"Library/Containers", L::containers},
        {"Library/Saved Application State", L::savedApplicationState},
        {"Library/WebKit", L::webKit},
        {"Library/HTTPStorages", L::httpStorages},
        {"Library/Application Scripts", L::applicationScripts},
        {"Library/LaunchAgents", L::launchAgents},
        {"Library/Group Containers", L::groupContainers}};

    std::vector<AppLeftover> leftovers;
    for (std::size_t i = 0; i < directories.size(); ++i) {
        throwIfCancelled(stop);
        const auto& [relative, location] = directories[i];
        if (progress) {
            progress(static_cast<double>(i) / 10.0, "Scanning " + std::string(info(location).displayName) + "...");
        }
        const std::string directory = paths::appending(homeURL_.path(), relative);
        if (!fileSystem_->fileExists(directory)) continue;
        PlatformError error;
        const auto entries = fileSystem_->contentsOfDirectory(directory, {.skipHiddenFiles = true}, error);
        if (error) continue;
        for (const auto& entry : entries) {
            const auto [name, bundleID] = parseIdentifier(entry.name, location);
            if (Whitelist::isProtected(name, bundleID)) continue;
            if (index.matchesInstalledApp(bundleID.value_or(name)) || index.matchesInstalledApp(name)) continue;
            const std::string path = paths::appending(directory, entry.name);
            const bool isDirectory = fileSystem_->isDirectory(path);
            const Orphan orphan = evaluateOrphan(location, name, bundleID, isDirectory);
            if (orphan.confidence < 0.7) continue;
            const Measure m = measure(path);
            if (m.allocated < 1 && m.logical < 1 && !fileSystem_->fileExists(path)) continue;
            leftovers.push_back(AppLeftover::make({.id = Uuid::random(),
                                                   .candidateAppName = name,
                                                   .bundleIdentifier = bundleID,
                                                   .url = fileSystem_->fileURL(path),
                                                   .location = location,
                                                   .allocatedSizeBytes = m.allocated,
                                                   .logicalSizeBytes = m.logical,
                                                   .lastModifiedDate = m.modified,
                                                   .confidence = orphan.confidence,
                                                   .orphanReason = orphan.reason,
                                                   .suggestedRiskTier = orphan.tier}));
        }
    }
    if (progress) progress(1.0, "Complete");
    return leftovers;
}

// Every regular file, each name counted (no inode set), links not followed.
LeftoversHunter::Measure LeftoversHunter::measure(const std::string& path) const {
    Measure m;
    const ItemTree item =
        measureItemTree(*fileSystem_, path, LinkAtItem::asTarget, {.status = WalkStatus::regularFiles});
    if (!item.exists()) return m;
    if (!item.tree) {
        m.logical = item.followed->size;
        m.allocated = item.followed->allocatedSize;
        m.modified = item.followed->modificationDate;
        return m;
    }
    m.logical = item.tree->files.logicalBytes;
    m.allocated = item.tree->files.allocatedBytes;
    m.modified = item.tree->files.newestModification;
    return m;
}

} // namespace unbulk
