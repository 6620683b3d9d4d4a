#include "Scanner/ItemCollector.hpp"

namespace unbulk {

ItemCollector::ItemCollector(const RiskClassifier& classifier, const ScanProgressHandler& progress)
    : classifier_(classifier), progress_(progress) {}

void ItemCollector::add(const Spec& spec, const MeasuredMetrics& metrics) {
    const RiskClassificationResult verdict = classifier_.classify(spec.url, spec.category, spec.classifyAsOrphaned);
    std::optional<std::string> ruleId = spec.ruleIdOverride;
    if (!ruleId) ruleId = verdict.matchedRuleId ? verdict.matchedRuleId : std::optional(spec.fallbackRuleId);
    keep(DiscoveredItem::make({
        .url = spec.url,
        .category = spec.category,
        .riskTier = verdict.riskTier,
        .logicalSizeBytes = metrics.logicalBytes,
        .allocatedSizeBytes = metrics.allocatedBytes,
        .fileCount = spec.fileCount.value_or(metrics.fileCount),
        .lastAccessedDate = metrics.lastAccessedDate,
        .lastModifiedDate = metrics.lastModifiedDate,
        .isOrphaned = spec.isOrphaned,
        .isLocked = spec.isLocked,
        .requiresFullDiskAccess = metrics.requiresFullDiskAccess,
        .itemDescription = spec.description,
        .ruleId = std::move(ruleId),
    }));
}

void ItemCollector::addPlaceholder(const FileURL& url, StorageCategory category, RiskTier tier,
                                   std::string description, std::string ruleId) {
    keep(DiscoveredItem::make({
        .url = url,
        .category = category,
        .riskTier = tier,
        .requiresFullDiskAccess = true,
        .itemDescription = std::move(description),
        .ruleId = std::move(ruleId),
    }));
}

void ItemCollector::keep(DiscoveredItem item) {
    items_.push_back(std::move(item));
    if (!progress_) return;
    const DiscoveredItem& kept = items_.back();
    progress_(ScanProgress{
        .currentCategory = kept.category,
        .currentPath = kept.path,
        .itemsFound = 1,
        .totalAllocatedBytesScanned = kept.allocatedSizeBytes,
        .totalLogicalBytesScanned = kept.logicalSizeBytes,
        .fractionCompleted = std::nullopt,
    });
}

} // namespace unbulk
