#include "Scanner/DeepScanEngine.hpp"

#include <algorithm>
#include <unordered_map>
#include <unordered_set>

#include "Rules/GlobMatcher.hpp"
#include "Rules/RuleRegistry.hpp"
#include "Scanner/AnomalyDetector.hpp"
#include "Scanner/DeveloperTargets.hpp"
#include "Scanner/ItemMeasurer.hpp"
#include "Scanner/RulePathResolver.hpp"
#include "Scanner/ScanEventStream.hpp"
#include "Scanner/SystemTargets.hpp"
#include "Scanner/ThermalGovernor.hpp"
#include "Support/Cancellation.hpp"

namespace unbulk {
namespace {

CategorySet intersect(const CategorySet& stage, const CategorySet& target) {
    CategorySet out;
    std::set_intersection(stage.begin(), stage.end(), target.begin(), target.end(), std::inserter(out, out.end()));
    return out;
}

// Built-in rules whose places the developer and system targets already scan
// in their own way; the rule stage leaves them to those targets.
bool isServedNatively(const RuleDefinition& rule) {
    static const std::unordered_set<std::string> ids{"dev.uv.cache",
                                                     "dev.npm.cache",
                                                     "dev.bun.cache",
                                                     "dev.pip.cache",
                                                     "dev.cargo.cache",
                                                     "dev.homebrew.cache",
                                                     "dev.homebrew.incomplete",
                                                     "dev.pnpm.store",
                                                     "dev.gradle.cache",
                                                     "dev.git.orphaned_worktrees",
                                                     "ai.huggingface.hub",
                                                     "ai.whisper.models",
                                                     "ai.ollama.models",
                                                     "ai.lmstudio.models",
                                                     "ai.vllm.weights",
                                                     "dev.docker.orphaned_vm",
                                                     "dev.xcode.derived_data",
                                                     "dev.xcode.simulator_caches",
                                                     "dev.stray.node_modules",
                                                     "sys.user.caches",
                                                     "sys.user.logs",
                                                     "sys.crash.user_reports",
                                                     "sys.mail.downloads",
                                                     "sys.browser.safari",
                                                     "sys.browser.chrome",
                                                     "sys.browser.firefox",
                                                     "sys.browser.edge",
                                                     "sys.browser.arc",
                                                     "sys.browser.brave",
                                                     "sys.browser.other"};
    return rule.isBuiltIn && ids.contains(rule.id);
}

// Progress from the registry stages reports one item at a time.
void reportItem(const ScanProgressHandler& progress, const DiscoveredItem& item) {
    if (!progress) return;
    progress(ScanProgress{.currentCategory = item.category,
                          .currentPath = item.path,
                          .itemsFound = 1,
                          .totalAllocatedBytesScanned = item.allocatedSizeBytes,
                          .totalLogicalBytesScanned = item.logicalSizeBytes});
}

std::optional<Date> laterOf(const std::optional<Date>& a, const std::optional<Date>& b) {
    if (a && b) return std::max(*a, *b);
    return a ? a : b;
}

DiscoveredItem merge(const DiscoveredItem& existing, const DiscoveredItem& incoming) {
    bool incomingIsPrimary = false;
    if (incoming.riskTier != existing.riskTier) {
        incomingIsPrimary = incoming.riskTier > existing.riskTier;
    } else {
        incomingIsPrimary = incoming.allocatedSizeBytes > existing.allocatedSizeBytes;
    }
    const DiscoveredItem& primary = incomingIsPrimary ? incoming : existing;
    const DiscoveredItem& secondary = incomingIsPrimary ? existing : incoming;

    DiscoveredItem merged = primary;
    merged.path = primary.url.path();
    merged.riskTier = std::max(existing.riskTier, incoming.riskTier);
    merged.logicalSizeBytes = std::max(existing.logicalSizeBytes, incoming.logicalSizeBytes);
    merged.allocatedSizeBytes = std::max(existing.allocatedSizeBytes, incoming.allocatedSizeBytes);
    merged.fileCount = std::max(existing.fileCount, incoming.fileCount);
    merged.lastAccessedDate = laterOf(existing.lastAccessedDate, incoming.lastAccessedDate);
    merged.lastModifiedDate = laterOf(existing.lastModifiedDate, incoming.lastModifiedDate);
    merged.isOrphaned = existing.isOrphaned && incoming.isOrphaned;
    merged.isLocked = existing.isLocked || incoming.isLocked;
    merged.requiresFullDiskAccess = existing.requiresFullDiskAccess || incoming.requiresFullDiskAccess;
    merged.ruleId = primary.ruleId ? primary.ruleId : secondary.ruleId;
    return merged;
}

} // namespace

const CategorySet& DeepScanEngine::developerCategories() {
    static const CategorySet set{StorageCategory::developerCache, StorageCategory::aiModelWeights,
                                 StorageCategory::dockerVM, StorageCategory::xcodeArtifacts,
                                 StorageCategory::strayDependencies};
    return set;
}

const CategorySet& DeepScanEngine::systemCategories() {
    static const CategorySet set{StorageCategory::systemCaches, StorageCategory::systemLogs,
                                 StorageCategory::crashReports, StorageCategory::mailDownloads,
                                 StorageCategory::browserCaches};
    return set;
}

DeepScanEngine::DeepScanEngine(Configuration configuration) : DeepScanEngine(configuration, Stages{}) {
    auto developer =
        std::make_shared<DeveloperTargets>(homeURL_, applicationsURLs_, configuration.projectRoots, fileSystem_,
                                           configuration.ruleRegistry, configuration.isProcessRunning);
    auto system =
        std::make_shared<SystemTargets>(homeURL_, configuration.systemRoot, fileSystem_, configuration.ruleRegistry);
    stages_.developer = [developer](const CategorySet& categories, const ScanProgressHandler& progress,
                                    StopToken stop) { return developer->scan(categories, progress, stop); };
    stages_.system = [system](const CategorySet& categories, const ScanProgressHandler& progress, StopToken stop) {
        return system->scan(categories, progress, stop);
    };
}

DeepScanEngine::DeepScanEngine(Configuration configuration, Stages stages)
    : homeURL_(std::move(configuration.homeURL)),
      applicationsURLs_(configuration.applicationsURLs ? std::move(*configuration.applicationsURLs)
                                                       : defaultApplicationsURLs(homeURL_, configuration.systemRoot)),
      fileSystem_(std::move(configuration.fileSystem)), thermalGovernor_(std::move(configuration.thermalGovernor)),
      ruleRegistry_(std::move(configuration.ruleRegistry)), clock_(std::move(configuration.clock)),
      stages_(std::move(stages)) {}

ScanResult DeepScanEngine::scan(const std::optional<CategorySet>& categories, const ScanProgressHandler& progress,
                                StopToken stop) const {
    ScanResult result;
    result.startedAt = clock_();
    result.scanId = Uuid::random();
    const CategorySet targets = categories && !categories->empty() ? *categories : allStorageCategorySet();

    std::vector<DiscoveredItem> items;
    std::vector<std::string> warnings;

    thermalGovernor_->checkpoint(stop);

    // Each stage runs inside one permit. A stage's own failure becomes a
    // warning in its words; cancellation ends the scan with no result.
    auto runGuarded = [&](const char* failurePrefix, auto&& body) {
        thermalGovernor_->checkpoint(stop);
        try {
            thermalGovernor_->withPermit(body, stop);
        } catch (const CancellationError&) {
            throw CancellationError{};
        } catch (const std::exception& error) {
            warnings.push_back(std::string(failurePrefix) + error.what());
        }
    };
    auto runStage = [&](const CategorySet& stageSet, const char* failurePrefix, auto&& body) {
        const CategorySet stageCategories = intersect(stageSet, targets);
        if (stageCategories.empty()) return;
        runGuarded(failurePrefix, [&] { body(stageCategories); });
    };
    auto appendItems = [&](std::vector<DiscoveredItem> found) {
        items.insert(items.end(), std::make_move_iterator(found.begin()), std::make_move_iterator(found.end()));
    };

    runStage(developerCategories(), "Developer targets scan error: ", [&](const CategorySet& stageCategories) {
        if (!stages_.developer) return;
        auto found = stages_.developer(stageCategories, progress, stop);
        items.insert(items.end(), std::make_move_iterator(found.begin()), std::make_move_iterator(found.end()));
    });
    runStage(systemCategories(), "System targets scan error: ", [&](const CategorySet& stageCategories) {
        if (!stages_.system) return;
        auto output = stages_.system(stageCategories, progress, stop);
        items.insert(items.end(), std::make_move_iterator(output.items.begin()),
                     std::make_move_iterator(output.items.end()));
        warnings.insert(warnings.end(), output.warnings.begin(), output.warnings.end());
    });
    if (ruleRegistry_ &&
        (targets.contains(StorageCategory::unknownAnomaly) || targets.contains(StorageCategory::dynamicRule))) {
        runGuarded("Anomaly scan error: ", [&] { appendItems(scanAnomalies(progress)); });
    }
    if (ruleRegistry_) {
        runGuarded("Dynamic rules scan error: ",
                   [&] { appendItems(scanRegistryRules(*ruleRegistry_, targets, progress, stop)); });
    }

    // A stage may return normally after stop was requested (a stage that never
    // looks at its token, or a stop that came in during its last item). No
    // checkpoint follows the last stage, so look once more: a cancelled scan
    // never yields a result.
    throwIfCancelled(stop);

    result.items = deduplicate(items);
    result.summary = ScanSummary::from(result.items);
    result.completedAt = clock_();
    result.durationSeconds = std::chrono::duration<double>(result.completedAt - result.startedAt).count();
    result.warnings = std::move(warnings);
    result.scannedCategories.assign(targets.begin(), targets.end());
    std::sort(result.scannedCategories.begin(), result.scannedCategories.end(),
              [](StorageCategory a, StorageCategory b) { return rawValue(a) < rawValue(b); });
    return result;
}

std::vector<DiscoveredItem> DeepScanEngine::scanAnomalies(const ScanProgressHandler& progress) const {
    auto config = AnomalyDetectorConfiguration::make(104'857'600, 2, homeURL_);
    const AnomalyDetector detector(std::move(config), ruleRegistry_, fileSystem_, clock_);
    std::vector<DiscoveredItem> found;
    for (const auto& anomaly : detector.detectAnomalies()) {
        found.push_back(anomaly.toDiscoveredItem());
        reportItem(progress, found.back());
    }
    return found;
}

std::vector<DiscoveredItem> DeepScanEngine::scanRegistryRules(const RuleRegistry& registry,
                                                              const CategorySet& categories,
                                                              const ScanProgressHandler& progress,
                                                              StopToken stop) const {
    std::vector<DiscoveredItem> found;
    // Listing and measuring block between checkpoints, so there is one before
    // each rule, each pattern and each path.
    auto pause = [&] {
        throwIfCancelled(stop);
        thermalGovernor_->checkpoint(stop);
    };
    for (const auto& rule : registry.activeRules()) {
        pause();
        if (!categories.contains(rule.category) || isServedNatively(rule)) continue;
        for (const auto& pattern : rule.patterns) {
            pause();
            for (const auto& url : RulePathResolver::resolveMatchingPaths(pattern, homeURL_, *fileSystem_)) {
                pause();
                const bool excluded =
                    std::any_of(rule.excludedPatterns.begin(), rule.excludedPatterns.end(),
                                [&](const std::string& excludedPattern) {
                                    return GlobMatcher::matches(excludedPattern, url.path(), homeURL_);
                                });
                if (excluded) continue;
                // The developer targets' measure.
                const MeasuredMetrics metrics = ItemMeasurer::measureItem(*fileSystem_, url.path());
                if (metrics.fileCount <= 0 && metrics.logicalBytes < 1) continue;
                found.push_back(DiscoveredItem::make({
                    .url = url,
                    .category = rule.category,
                    .riskTier = rule.riskTier,
                    .logicalSizeBytes = metrics.logicalBytes,
                    .allocatedSizeBytes = metrics.allocatedBytes,
                    .fileCount = metrics.fileCount,
                    .lastAccessedDate = metrics.lastAccessedDate,
                    .lastModifiedDate = metrics.lastModifiedDate,
                    .requiresFullDiskAccess = metrics.requiresFullDiskAccess,
                    .itemDescription = rule.name,
                    .ruleId = rule.id,
                }));
                reportItem(progress, found.back());
            }
        }
    }
    return found;
}

ScanEventStream DeepScanEngine::scanStream(std::optional<CategorySet> categories) const {
    return ScanEventStream([engine = *this, categories = std::move(categories)](
                               StopToken stop, const std::function<void(ScanProgressEvent)>& yield) {
        ScanResult result = engine.scan(
            categories, [&](const ScanProgress& progress) { yield(progress); }, stop);
        for (const auto& item : result.items)
            yield(item);
        yield(std::move(result));
    });
}

std::vector<DiscoveredItem> DeepScanEngine::deduplicate(const std::vector<DiscoveredItem>& items) {
    std::vector<DiscoveredItem> kept;
    std::unordered_map<std::string, std::size_t> indexByPath;
    for (const auto& item : items) {
        std::string key = item.url.standardized().path();
        auto [it, inserted] = indexByPath.try_emplace(std::move(key), kept.size());
        if (inserted) {
            kept.push_back(item);
        } else {
            kept[it->second] = merge(kept[it->second], item);
        }
    }
    std::stable_sort(kept.begin(), kept.end(), [](const DiscoveredItem& a, const DiscoveredItem& b) {
        return a.allocatedSizeBytes > b.allocatedSizeBytes;
    });
    return kept;
}

} // namespace unbulk
