#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "Models/Categories.hpp"
#include "Support/Dates.hpp"
#include "Support/FileURL.hpp"
#include "Support/JsonFwd.hpp"
#include "Support/Uuid.hpp"

namespace unbulk {

// One thing found on disk.
struct DiscoveredItem {
    Uuid id;
    FileURL url;
    std::string path; // always url.path(); set by make(), read back from JSON as stored
    StorageCategory category = StorageCategory::developerCache;
    RiskTier riskTier = RiskTier::safeToDelete;
    std::int64_t logicalSizeBytes = 0;
    std::int64_t allocatedSizeBytes = 0; // what totals and sorts use
    std::int64_t fileCount = 0;
    std::optional<Date> lastAccessedDate;
    std::optional<Date> lastModifiedDate;
    bool isOrphaned = false;
    bool isLocked = false;
    bool requiresFullDiskAccess = false;
    std::string itemDescription;
    std::optional<std::string> ruleId;

    // The initialiser's arguments: everything but the derived path.
    struct Fields {
        Uuid id = Uuid::random();
        FileURL url;
        StorageCategory category = StorageCategory::developerCache;
        RiskTier riskTier = RiskTier::safeToDelete;
        std::int64_t logicalSizeBytes = 0;
        std::int64_t allocatedSizeBytes = 0;
        std::int64_t fileCount = 0;
        std::optional<Date> lastAccessedDate;
        std::optional<Date> lastModifiedDate;
        bool isOrphaned = false;
        bool isLocked = false;
        bool requiresFullDiskAccess = false;
        std::string itemDescription;
        std::optional<std::string> ruleId;
    };
    static DiscoveredItem make(Fields fields);

    std::string formattedAllocatedSize() const;
    std::string formattedLogicalSize() const;

    friend bool operator==(const DiscoveredItem&, const DiscoveredItem&) = default;
};

struct CategorySummary {
    StorageCategory category = StorageCategory::developerCache;
    RiskTier riskTier = RiskTier::safeToDelete; // the highest tier among the category's items
    std::int64_t itemCount = 0;
    std::int64_t totalLogicalBytes = 0;
    std::int64_t totalAllocatedBytes = 0;
    std::int64_t safeToDeleteBytes = 0;
    std::int64_t reviewRequiredBytes = 0;
    bool requiresFullDiskAccess = false;

    std::string id() const { return std::string(rawValue(category)); }
    std::string formattedAllocatedBytes() const;

    friend bool operator==(const CategorySummary&, const CategorySummary&) = default;
};

struct ScanSummary {
    std::int64_t totalItems = 0;
    std::int64_t totalLogicalBytes = 0;
    std::int64_t totalAllocatedBytes = 0;
    std::int64_t safeUnbulkableBytes = 0;
    std::int64_t reviewUnbulkableBytes = 0;
    bool requiresFullDiskAccess = false;
    std::vector<CategorySummary> categoryBreakdown; // larger totalAllocatedBytes first

    // Sums abort the process on signed overflow: such totals mean a broken
    // invariant, never a number to report.
    static ScanSummary from(const std::vector<DiscoveredItem>& items);

    std::string formattedAllocatedBytes() const;
    std::string formattedSafeUnbulkableBytes() const;
    std::string formattedReviewUnbulkableBytes() const;

    friend bool operator==(const ScanSummary&, const ScanSummary&) = default;
};

struct ScanResult {
    Uuid scanId;
    Date startedAt{};
    Date completedAt{};
    double durationSeconds = 0;
    std::vector<DiscoveredItem> items;
    ScanSummary summary;
    std::vector<std::string> warnings;
    std::vector<StorageCategory> scannedCategories;

    const Uuid& id() const { return scanId; }

    friend bool operator==(const ScanResult&, const ScanResult&) = default;
};

struct ScanProgress {
    StorageCategory currentCategory = StorageCategory::developerCache;
    std::string currentPath;
    std::int64_t itemsFound = 0;
    std::int64_t totalAllocatedBytesScanned = 0;
    std::int64_t totalLogicalBytesScanned = 0;
    std::optional<double> fractionCompleted;

    friend bool operator==(const ScanProgress&, const ScanProgress&) = default;
};

// progress, itemDiscovered or completed.
using ScanProgressEvent = std::variant<ScanProgress, DiscoveredItem, ScanResult>;

Json toJson(const DiscoveredItem& item, DateEncoding dates = DateEncoding::secondsSinceReferenceDate);
Json toJson(const CategorySummary& summary);
Json toJson(const ScanSummary& summary);
Json toJson(const ScanResult& result, DateEncoding dates = DateEncoding::secondsSinceReferenceDate);
Json toJson(const ScanProgress& progress);

// Readers throw nlohmann::json exceptions on missing keys or bad values.
// Dates may be numbers or ISO 8601 strings.
DiscoveredItem discoveredItemFromJson(const Json& json);
CategorySummary categorySummaryFromJson(const Json& json);
ScanSummary scanSummaryFromJson(const Json& json);
ScanResult scanResultFromJson(const Json& json);
ScanProgress scanProgressFromJson(const Json& json);

} // namespace unbulk
