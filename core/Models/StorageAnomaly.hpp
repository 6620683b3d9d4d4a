#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "Models/Categories.hpp"
#include "Models/ScanItem.hpp"
#include "Models/RuleDefinition.hpp"
#include "Support/FileURL.hpp"
#include "Support/JsonFwd.hpp"
#include "Support/Uuid.hpp"

namespace unbulk {

// A heavy directory that no active rule covers but that looks like a cache,
// with how sure we are and a rule that could cover it from now on.
struct StorageAnomaly {
    Uuid id;
    FileURL url;
    std::string path; // always url.path(); set by make()
    std::int64_t allocatedSizeBytes = 0;
    std::int64_t logicalSizeBytes = 0;
    std::int64_t fileCount = 0;
    double confidenceScore = 0; // 0 to 1
    bool hasCacheDirTag = false;
    std::optional<std::string> tagApplicationComment;
    std::vector<std::string> matchedKeywords;
    RiskTier suggestedRiskTier = RiskTier::reviewRequired;
    StorageCategory suggestedCategory = StorageCategory::unknownAnomaly;
    std::string anomalyDescription;
    std::optional<RuleDefinition> proposedRule;

    // Sets path from url.
    static StorageAnomaly make(StorageAnomaly fields);

    // The scan item of this find: orphaned, with no dates, carrying the
    // proposed rule's id.
    DiscoveredItem toDiscoveredItem() const;

    friend bool operator==(const StorageAnomaly&, const StorageAnomaly&) = default;
};

// Every field under its own name; an absent optional writes no key.
Json toJson(const StorageAnomaly& anomaly, DateEncoding dates = DateEncoding::secondsSinceReferenceDate);

} // namespace unbulk
