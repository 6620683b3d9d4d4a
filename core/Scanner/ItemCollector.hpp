#pragma once

#include <optional>
#include <string>
#include <vector>

#include "Models/ScanItem.hpp"
#include "Scanner/ItemMeasurer.hpp"
#include "Scanner/RiskClassifier.hpp"
#include "Scanner/ScanTypes.hpp"

namespace unbulk {

// How every scan target turns a measured place into an item: classify it,
// build the DiscoveredItem, keep it, and report it by itself through the
// progress handler (itemsFound 1, the item's own bytes).
class ItemCollector {
public:
    struct Spec {
        FileURL url;
        StorageCategory category = StorageCategory::developerCache;
        std::string description;
        std::string fallbackRuleId;          // when the classification names no rule
        bool classifyAsOrphaned = false;     // what the classifier is told
        bool isOrphaned = false;             // what the item says
        bool isLocked = false;
        std::optional<std::int64_t> fileCount;      // in place of the measured count
        std::optional<std::string> ruleIdOverride; // in place of the classification's rule
    };

    ItemCollector(const RiskClassifier& classifier, const ScanProgressHandler& progress);

    void add(const Spec& spec, const MeasuredMetrics& metrics);

    // A place that could not be read: no sizes, no classification.
    void addPlaceholder(const FileURL& url, StorageCategory category, RiskTier tier, std::string description,
                        std::string ruleId);

    std::vector<DiscoveredItem> take() { return std::move(items_); }

private:
    void keep(DiscoveredItem item);

    const RiskClassifier& classifier_;
    const ScanProgressHandler& progress_;
    std::vector<DiscoveredItem> items_;
};

} // namespace unbulk
