#include "Scanner/DeveloperTargets.hpp"

#include <algorithm>

#include "Platform/Processes.hpp"
#include "Scanner/ScanParts.hpp"
#include "Support/Cancellation.hpp"
#include "Support/Paths.hpp"
#include "Support/Unicode.hpp"
#include "Support/Text.hpp"

namespace unbulk {
namespace {

std::vector<FileURL> defaultProjectRoots(const FileURL& homeURL) {
    std::vector<FileURL> roots;
    for (const char* name : {"Developer", "Projects", "Workspace", "src", "Code", "Development", "repos", "git"}) {
        roots.push_back(homeURL.appending(name, true));
    }
    return roots;
}

template <typename Items>
void append(std::vector<DiscoveredItem>& into, Items&& more) {
    into.insert(into.end(), std::make_move_iterator(more.begin()), std::make_move_iterator(more.end()));
}

} // namespace

std::vector<FileURL> defaultApplicationsURLs(const FileURL& homeURL, const std::string& systemRoot) {
    return {FileURL(paths::appending(systemRoot, "Applications"), true), homeURL.appending("Applications", true)};
}

DeveloperTargets::DeveloperTargets(FileURL homeURL, std::vector<FileURL> applicationsURLs,
                                   std::optional<std::vector<FileURL>> projectRoots,
                                   std::shared_ptr<FileSystem> fileSystem,
                                   std::shared_ptr<const RuleRegistry> ruleRegistry,
                                   ProcessRunningCheck isProcessRunning, std::optional<RiskClassifier> riskClassifier)
    : homeURL_(std::move(homeURL)),
      applicationsURLs_(std::move(applicationsURLs)),
      projectRoots_(projectRoots ? std::move(*projectRoots) : defaultProjectRoots(homeURL_)),
      fileSystem_(std::move(fileSystem)), isProcessRunning_(std::move(isProcessRunning)),
      ruleRegistry_(std::move(ruleRegistry)),
      riskClassifier_(riskClassifier ? std::move(*riskClassifier)
                                     : RiskClassifier(homeURL_, ruleRegistry_, fileSystem_)) {}

std::vector<DiscoveredItem> DeveloperTargets::scan(const CategorySet& categories, const ScanProgressHandler& progress,
                                                   StopToken stop) const {
    // The sub-scans share nothing, so they run at once; the items, the
    // reports and a stop or failure come out as in their fixed order.
    using Parts = ScanParts<std::vector<DiscoveredItem>>;
    Parts parts;
    if (categories.contains(StorageCategory::developerCache)) {
        parts.add([this](const ScanProgressHandler& reports, StopToken) { return scanUVCaches(reports); });
        parts.add([this](const ScanProgressHandler& reports, StopToken) { return scanPackageManagerCaches(reports); });
        parts.add([this](const ScanProgressHandler& reports, StopToken) { return scanHomebrewCaches(reports); });
        parts.add([this](const ScanProgressHandler& reports, StopToken) { return scanGradleCaches(reports); });
        parts.add([this](const ScanProgressHandler& reports, StopToken at) { return scanGitWorktrees(reports, at); });
    }
    if (categories.contains(StorageCategory::aiModelWeights)) {
        parts.add([this](const ScanProgressHandler& reports, StopToken) { return scanAIModelWeights(reports); });
    }
    if (categories.contains(StorageCategory::dockerVM)) {
        parts.add([this](const ScanProgressHandler& reports, StopToken) { return scanDockerVMs(reports); });
    }
    if (categories.contains(StorageCategory::xcodeArtifacts)) {
        parts.add([this](const ScanProgressHandler& reports, StopToken) { return scanXcodeArtifacts(reports); });
    }
    if (categories.contains(StorageCategory::strayDependencies)) {
        parts.add([this](const ScanProgressHandler& reports, StopToken) { return scanStrayNodeModules(reports); });
    }
    std::vector<DiscoveredItem> items;
    for (auto& found : parts.run(progress, stop))
        append(items, std::move(found));
    return items;
}

MeasuredMetrics DeveloperTargets::measureItem(const FileURL& url) const {
    return ItemMeasurer::measureItem(*fileSystem_, url.path());
}

ProcessRunningCheck DeveloperTargets::processChecker(std::shared_ptr<const Processes> processes) {
    return [processes = std::move(processes)](const std::string& name) {
        const std::string wanted = unicode::lowercased(name);
        if (wanted.empty()) return false; // as the platform's "contains" answers for an empty text
        for (const auto& running : processes->runningProcessNames()) {
            if (unicode::lowercased(running).find(wanted) != std::string::npos) return true;
        }
        return false;
    };
}

FileURL DeveloperTargets::homeChild(std::string_view relative, bool isDirectory) const {
    return homeURL_.appending(relative, isDirectory);
}

std::optional<std::vector<FileURL>> DeveloperTargets::list(const FileURL& directory, ListOptions options) const {
    PlatformError error;
    auto entries = fileSystem_->contentsOfDirectory(directory.path(), options, error);
    if (error) return std::nullopt;
    std::vector<FileURL> urls;
    urls.reserve(entries.size());
    for (const auto& entry : entries) {
        urls.push_back(directory.appending(entry.name, entry.kind == FileKind::directory));
    }
    return urls;
}

// ---- package caches

namespace {

// A download Homebrew gave up on: the extension "incomplete" in any case, or
// a name that ends in ".incomplete" exactly (which also catches a hidden
// file of that name, whose extension is empty).
bool isIncompleteDownload(const std::string& name) {
    return unicode::lowercased(paths::pathExtension(name)) == "incomplete" || name.ends_with(".incomplete");
}

void keepNewer(std::optional<Date>& newest, const std::optional<Date>& candidate) {
    if (candidate && (!newest || *candidate > *newest)) newest = candidate;
}

} // namespace

std::vector<DiscoveredItem> DeveloperTargets::scanUVCaches(const ScanProgressHandler& progress) const {
    ItemCollector collector(riskClassifier_, progress);
    for (std::string_view relative : {".cache/uv", "Library/Caches/uv"}) {
        auto base = fileSystem_->existingURL(homeChild(relative).path());
        if (!base) continue;
        auto entries = list(*base, ListOptions{.skipHiddenFiles = true});
        if (entries && !entries->empty()) {
            // One item per cache bucket; plain files at the top are uv's own
            // bookkeeping and the base gives no item of its own.
            for (const auto& entry : *entries) {
                // The listing already knows a real directory; a link is asked
                // about, since a link to a folder counts as one.
                if (!entry.isDirectory() && !fileSystem_->isDirectory(entry.path())) continue;
                const MeasuredMetrics metrics = measureItem(entry);
                if (!ItemMeasurer::passesKeepTest(metrics)) continue;
                collector.add({.url = entry,
                               .description = "uv Cache (" + entry.lastComponent() + ")",
                               .fallbackRuleId = "dev.uv.cache"},
                              metrics);
            }
            continue;
        }
        const MeasuredMetrics metrics = measureItem(*base);
        if (!ItemMeasurer::passesKeepTest(metrics)) continue;
        collector.add({.url = *base, .description = "uv Package and Wheel Archives", .fallbackRuleId = "dev.uv.cache"},
                      metrics);
    }
    return collector.take();
}

std::vector<DiscoveredItem> DeveloperTargets::scanPackageManagerCaches(const ScanProgressHandler& progress) const {
    ItemCollector collector(riskClassifier_, progress);
    // Measures a place that exists and keeps it when it passes the keep test.
    auto tryPlace = [&](std::string_view relative, std::string description, const char* ruleId,
                        std::string_view skipWhenPathHolds = {}) {
        const FileURL candidate = homeChild(relative);
        if (!skipWhenPathHolds.empty() && candidate.path().find(skipWhenPathHolds) != std::string::npos) return false;
        auto url = fileSystem_->existingURL(homeChild(relative).path());
        if (!url) return false;
        const MeasuredMetrics metrics = measureItem(*url);
        if (!ItemMeasurer::passesKeepTest(metrics)) return false;
        collector.add({.url = *url, .description = std::move(description), .fallbackRuleId = ruleId}, metrics);
        return true;
    };

    // npm: its known subfolders one by one, the whole folder only when none
    // of them gave an item.
    if (fileSystem_->fileExists(homeChild(".npm").path())) {
        bool anySubfolder = false;
        for (std::string_view sub : {"_cacache", "_npx", "_logs", "_prebuilds"}) {
            const std::string relative = ".npm/" + std::string(sub);
            if (tryPlace(relative, "npm Download Cache (" + std::string(sub) + ")", "dev.npm.cache")) {
                anySubfolder = true;
            }
        }
        if (!anySubfolder) tryPlace(".npm", "npm Package Cache", "dev.npm.cache");
    }

    tryPlace(".bun/install/cache", "Bun Package Install Cache", "dev.bun.cache");

    for (std::string_view relative : {".cache/pip", "Library/Caches/pip"}) {
        tryPlace(relative, "pip HTTP Response and Wheel Cache", "dev.pip.cache");
    }

    // Cargo's installed binaries are never a cache, whatever the home is called.
    constexpr std::string_view cargoBin = "/.cargo/bin";
    tryPlace(".cargo/registry/cache", "Cargo Crate Archive Cache (.crate)", "dev.cargo.cache", cargoBin);
    tryPlace(".cargo/registry/src", "Cargo Unpacked Crate Source Cache", "dev.cargo.cache", cargoBin);
    tryPlace(".cargo/git/db", "Cargo Bare Git Repositories", "dev.cargo.cache", cargoBin);
    tryPlace(".cargo/git/checkouts", "Cargo Git Checkout Cache", "dev.cargo.cache", cargoBin);
    tryPlace(".cargo/.package-cache", "Cargo Package Cache", "dev.cargo.cache", cargoBin);

    for (std::string_view relative : {".local/share/pnpm/store", "Library/pnpm/store", ".pnpm-store"}) {
        const std::string shown = text::replacingAll(homeChild(relative).path(), homeURL_.path(), "~");
        tryPlace(relative, "pnpm Virtual Store (" + shown + ")", "dev.pnpm.store");
    }
    return collector.take();
}

std::vector<DiscoveredItem> DeveloperTargets::scanHomebrewCaches(const ScanProgressHandler& progress) const {
    ItemCollector collector(riskClassifier_, progress);
    auto base = fileSystem_->existingURL(homeChild("Library/Caches/Homebrew").path());
    if (!base) return collector.take();
    bool foundKnownSubfolder = false;

    if (auto downloads = fileSystem_->existingURL(homeChild("Library/Caches/Homebrew/downloads").path())) {
        foundKnownSubfolder = true;
        // Hidden entries count here: a download in progress may be one.
        if (auto entries = list(*downloads, ListOptions{.skipHiddenFiles = false})) {
            MeasuredMetrics bottles;
            for (const auto& entry : *entries) {
                const std::string name = entry.lastComponent();
                const MeasuredMetrics metrics = measureItem(entry);
                if (isIncompleteDownload(name)) {
                    if (!ItemMeasurer::passesKeepTest(metrics)) continue;
                    collector.add({.url = entry,
                                   .description = "Homebrew Incomplete Download: " + name,
                                   .fallbackRuleId = "dev.homebrew.incomplete",
                                   .classifyAsOrphaned = false,
                                   .isOrphaned = true,
                                   .fileCount = 1,
                                   .ruleIdOverride = "dev.homebrew.incomplete"},
                                  metrics);
                    continue;
                }
                bottles.allocatedBytes += metrics.allocatedBytes;
                bottles.logicalBytes += metrics.logicalBytes;
                bottles.fileCount += metrics.fileCount;
                bottles.requiresFullDiskAccess = bottles.requiresFullDiskAccess || metrics.requiresFullDiskAccess;
                keepNewer(bottles.lastAccessedDate, metrics.lastAccessedDate);
                keepNewer(bottles.lastModifiedDate, metrics.lastModifiedDate);
            }
            // Stricter than the usual keep test: empty files make no item.
            if (bottles.fileCount >= 1 && (bottles.allocatedBytes > 0 || bottles.logicalBytes >= 1)) {
                collector.add({.url = *downloads,
                               .description = "Homebrew Downloaded Bottles & Packages",
                               .fallbackRuleId = "dev.homebrew.cache"},
                              bottles);
            }
        } else {
            const MeasuredMetrics metrics = measureItem(*downloads);
            if (ItemMeasurer::passesKeepTest(metrics)) {
                collector.add({.url = *downloads,
                               .description = "Homebrew Download Cache",
                               .fallbackRuleId = "dev.homebrew.cache"},
                              metrics);
            }
        }
    }

    for (auto [name, description] : {std::pair{"Cask", "Homebrew Cask Download Cache"},
                                      std::pair{"api", "Homebrew API Metadata Cache"}}) {
        auto url = fileSystem_->existingURL(homeChild(std::string("Library/Caches/Homebrew/") + name).path());
        if (!url) continue;
        foundKnownSubfolder = true;
        const MeasuredMetrics metrics = measureItem(*url);
        if (!ItemMeasurer::passesKeepTest(metrics)) continue;
        collector.add({.url = *url, .description = description, .fallbackRuleId = "dev.homebrew.cache"}, metrics);
    }

    // An older or unfamiliar layout: show the cache whole.
    if (!foundKnownSubfolder) {
        const MeasuredMetrics metrics = measureItem(*base);
        if (ItemMeasurer::passesKeepTest(metrics)) {
            collector.add({.url = *base,
                           .description = "Homebrew Formula & Cask Cache",
                           .fallbackRuleId = "dev.homebrew.cache"},
                          metrics);
        }
    }
    return collector.take();
}

std::vector<DiscoveredItem> DeveloperTargets::scanGradleCaches(const ScanProgressHandler& progress) const {
    ItemCollector collector(riskClassifier_, progress);
    if (!fileSystem_->fileExists(homeChild(".gradle").path())) return collector.take();
    for (auto [relative, description] : {std::pair{".gradle/caches", "Gradle Dependency & Transform Cache"},
                                         std::pair{".gradle/wrapper/dists", "Gradle Wrapper Distributions"},
                                         std::pair{".gradle/daemon", "Gradle Daemon Execution Logs & State"}}) {
        // The user's Gradle settings are never a cache, whatever the home is called.
        if (homeChild(relative).path().find("gradle.properties") != std::string::npos) continue;
        auto url = fileSystem_->existingURL(homeChild(relative).path());
        if (!url) continue;
        const MeasuredMetrics metrics = measureItem(*url);
        if (!ItemMeasurer::passesKeepTest(metrics)) continue;
        collector.add({.url = *url, .description = description, .fallbackRuleId = "dev.gradle.cache"}, metrics);
    }
    return collector.take();
}

} // namespace unbulk
