#include "Models/ScanItem.hpp"

#include <algorithm>
#include <map>

#include "Models/RecordCoding.hpp"
#include "Platform/ByteCountFormatter.hpp"
#include "Support/CheckedMath.hpp"
#include "Support/Json.hpp"

namespace unbulk {
namespace {

struct Totals {
    std::int64_t count = 0;
    std::int64_t logical = 0;
    std::int64_t allocated = 0;
    std::int64_t safe = 0;
    std::int64_t review = 0;
    bool requiresFullDiskAccess = false;
    std::optional<RiskTier> highestTier;

    void add(const DiscoveredItem& item) {
        count = checkedAdd(count, 1);
        logical = checkedAdd(logical, item.logicalSizeBytes);
        allocated = checkedAdd(allocated, item.allocatedSizeBytes);
        if (item.riskTier == RiskTier::safeToDelete) safe = checkedAdd(safe, item.allocatedSizeBytes);
        if (item.riskTier == RiskTier::reviewRequired) review = checkedAdd(review, item.allocatedSizeBytes);
        requiresFullDiskAccess = requiresFullDiskAccess || item.requiresFullDiskAccess;
        highestTier = highestTier ? std::max(*highestTier, item.riskTier) : item.riskTier;
    }
};

} // namespace

DiscoveredItem DiscoveredItem::make(Fields f) {
    DiscoveredItem item;
    item.id = f.id;
    item.path = f.url.path();
    item.url = std::move(f.url);
    item.category = f.category;
    item.riskTier = f.riskTier;
    item.logicalSizeBytes = f.logicalSizeBytes;
    item.allocatedSizeBytes = f.allocatedSizeBytes;
    item.fileCount = f.fileCount;
    item.lastAccessedDate = f.lastAccessedDate;
    item.lastModifiedDate = f.lastModifiedDate;
    item.isOrphaned = f.isOrphaned;
    item.isLocked = f.isLocked;
    item.requiresFullDiskAccess = f.requiresFullDiskAccess;
    item.itemDescription = std::move(f.itemDescription);
    item.ruleId = std::move(f.ruleId);
    return item;
}

std::string DiscoveredItem::formattedAllocatedSize() const { return formatByteCount(allocatedSizeBytes); }
std::string DiscoveredItem::formattedLogicalSize() const { return formatByteCount(logicalSizeBytes); }
std::string CategorySummary::formattedAllocatedBytes() const { return formatByteCount(totalAllocatedBytes); }
std::string ScanSummary::formattedAllocatedBytes() const { return formatByteCount(totalAllocatedBytes); }
std::string ScanSummary::formattedSafeUnbulkableBytes() const { return formatByteCount(safeUnbulkableBytes); }
std::string ScanSummary::formattedReviewUnbulkableBytes() const { return formatByteCount(reviewUnbulkableBytes); }

ScanSummary ScanSummary::from(const std::vector<DiscoveredItem>& items) {
    std::map<StorageCategory, Totals> byCategory;
    Totals overall;
    for (const auto& item : items) {
        byCategory[item.category].add(item);
        overall.add(item);
    }

    ScanSummary summary;
    for (const auto& [category, totals] : byCategory) {
        summary.categoryBreakdown.push_back(CategorySummary{
            .category = category,
            .riskTier = totals.highestTier.value_or(defaultRiskTier(category)),
            .itemCount = totals.count,
            .totalLogicalBytes = totals.logical,
            .totalAllocatedBytes = totals.allocated,
            .safeToDeleteBytes = totals.safe,
            .reviewRequiredBytes = totals.review,
            .requiresFullDiskAccess = totals.requiresFullDiskAccess,
        });
    }
    std::stable_sort(summary.categoryBreakdown.begin(), summary.categoryBreakdown.end(),
                     [](const CategorySummary& a, const CategorySummary& b) {
                         return a.totalAllocatedBytes > b.totalAllocatedBytes;
                     });
    summary.totalItems = overall.count;
    summary.totalLogicalBytes = overall.logical;
    summary.totalAllocatedBytes = overall.allocated;
    summary.safeUnbulkableBytes = overall.safe;
    summary.reviewUnbulkableBytes = overall.review;
    summary.requiresFullDiskAccess = overall.requiresFullDiskAccess;
    return summary;
}

Json toJson(const DiscoveredItem& item, DateEncoding dates) {
    Json j = Json::object();
    j["id"] = item.id.string();
    j["url"] = item.url.absoluteString();
    j["path"] = item.path;
    j["category"] = item.category;
    j["riskTier"] = item.riskTier;
    j["logicalSizeBytes"] = item.logicalSizeBytes;
    j["allocatedSizeBytes"] = item.allocatedSizeBytes;
    j["fileCount"] = item.fileCount;
    json::setOptional(j, "lastAccessedDate", item.lastAccessedDate, [&](Date d) { return dates::encode(d, dates); });
    json::setOptional(j, "lastModifiedDate", item.lastModifiedDate, [&](Date d) { return dates::encode(d, dates); });
    j["isOrphaned"] = item.isOrphaned;
    j["isLocked"] = item.isLocked;
    j["requiresFullDiskAccess"] = item.requiresFullDiskAccess;
    j["itemDescription"] = item.itemDescription;
    json::setOptional(j, "ruleId", item.ruleId);
    return j;
}

Json toJson(const CategorySummary& s) {
    return Json{{"category", s.category},
                {"riskTier", s.riskTier},
                {"itemCount", s.itemCount},
                {"totalLogicalBytes", s.totalLogicalBytes},
                {"totalAllocatedBytes", s.totalAllocatedBytes},
                {"safeToDeleteBytes", s.safeToDeleteBytes},
                {"reviewRequiredBytes", s.reviewRequiredBytes},
                {"requiresFullDiskAccess", s.requiresFullDiskAccess}};
}

Json toJson(const ScanSummary& s) {
    Json breakdown = Json::array();
    for (const auto& c : s.categoryBreakdown) breakdown.push_back(toJson(c));
    return Json{{"totalItems", s.totalItems},
                {"totalLogicalBytes", s.totalLogicalBytes},
                {"totalAllocatedBytes", s.totalAllocatedBytes},
                {"safeUnbulkableBytes", s.safeUnbulkableBytes},
                {"reviewUnbulkableBytes", s.reviewUnbulkableBytes},
                {"requiresFullDiskAccess", s.requiresFullDiskAccess},
                {"categoryBreakdown", std::move(breakdown)}};
}

Json toJson(const ScanResult& r, DateEncoding dates) {
    Json items = Json::array();
    for (const auto& item : r.items) items.push_back(toJson(item, dates));
    Json categories = Json::array();
    for (auto c : r.scannedCategories) categories.push_back(c);
    return Json{{"scanId", r.scanId.string()},
                {"startedAt", dates::encode(r.startedAt, dates)},
                {"completedAt", dates::encode(r.completedAt, dates)},
                {"durationSeconds", r.durationSeconds},
                {"items", std::move(items)},
                {"summary", toJson(r.summary)},
                {"warnings", r.warnings},
                {"scannedCategories", std::move(categories)}};
}

Json toJson(const ScanProgress& p) {
    Json j{{"currentCategory", p.currentCategory},
           {"currentPath", p.currentPath},
           {"itemsFound", p.itemsFound},
           {"totalAllocatedBytesScanned", p.totalAllocatedBytesScanned},
           {"totalLogicalBytesScanned", p.totalLogicalBytesScanned}};
    json::setOptional(j, "fractionCompleted", p.fractionCompleted);
    return j;
}

DiscoveredItem discoveredItemFromJson(const Json& j) {
    DiscoveredItem item;
    item.id = coding::uuid(j.at("id"));
    item.url = coding::fileURL(j.at("url"));
    item.path = coding::string(j, "path");
    item.category = j.at("category").get<StorageCategory>();
    item.riskTier = j.at("riskTier").get<RiskTier>();
    item.logicalSizeBytes = coding::int64(j, "logicalSizeBytes");
    item.allocatedSizeBytes = coding::int64(j, "allocatedSizeBytes");
    item.fileCount = coding::int64(j, "fileCount");
    item.lastAccessedDate = coding::optionalDate(j, "lastAccessedDate");
    item.lastModifiedDate = coding::optionalDate(j, "lastModifiedDate");
    item.isOrphaned = j.at("isOrphaned").get<bool>();
    item.isLocked = j.at("isLocked").get<bool>();
    item.requiresFullDiskAccess = j.at("requiresFullDiskAccess").get<bool>();
    item.itemDescription = coding::string(j, "itemDescription");
    item.ruleId = json::getOptional<std::string>(j, "ruleId");
    return item;
}

CategorySummary categorySummaryFromJson(const Json& j) {
    return CategorySummary{
        .category = j.at("category").get<StorageCategory>(),
        .riskTier = j.at("riskTier").get<RiskTier>(),
        .itemCount = coding::int64(j, "itemCount"),
        .totalLogicalBytes = coding::int64(j, "totalLogicalBytes"),
        .totalAllocatedBytes = coding::int64(j, "totalAllocatedBytes"),
        .safeToDeleteBytes = coding::int64(j, "safeToDeleteBytes"),
        .reviewRequiredBytes = coding::int64(j, "reviewRequiredBytes"),
        .requiresFullDiskAccess = j.at("requiresFullDiskAccess").get<bool>(),
    };
}

ScanSummary scanSummaryFromJson(const Json& j) {
    ScanSummary s;
    s.totalItems = coding::int64(j, "totalItems");
    s.totalLogicalBytes = coding::int64(j, "totalLogicalBytes");
    s.totalAllocatedBytes = coding::int64(j, "totalAllocatedBytes");
    s.safeUnbulkableBytes = coding::int64(j, "safeUnbulkableBytes");
    s.reviewUnbulkableBytes = coding::int64(j, "reviewUnbulkableBytes");
    s.requiresFullDiskAccess = j.at("requiresFullDiskAccess").get<bool>();
    for (const auto& c : j.at("categoryBreakdown")) s.categoryBreakdown.push_back(categorySummaryFromJson(c));
    return s;
}

ScanResult scanResultFromJson(const Json& j) {
    ScanResult r;
    r.scanId = coding::uuid(j.at("scanId"));
    r.startedAt = coding::date(j.at("startedAt"));
    r.completedAt = coding::date(j.at("completedAt"));
    r.durationSeconds = j.at("durationSeconds").get<double>();
    for (const auto& item : j.at("items")) r.items.push_back(discoveredItemFromJson(item));
    r.summary = scanSummaryFromJson(j.at("summary"));
    r.warnings = j.at("warnings").get<std::vector<std::string>>();
    r.scannedCategories = j.at("scannedCategories").get<std::vector<StorageCategory>>();
    return r;
}

ScanProgress scanProgressFromJson(const Json& j) {
    return ScanProgress{
        .currentCategory = j.at("currentCategory").get<StorageCategory>(),
        .currentPath = coding::string(j, "currentPath"),
        .itemsFound = coding::int64(j, "itemsFound"),
        .totalAllocatedBytesScanned = coding::int64(j, "totalAllocatedBytesScanned"),
        .totalLogicalBytesScanned = coding::int64(j, "totalLogicalBytesScanned"),
        .fractionCompleted = json::getOptional<double>(j, "fractionCompleted"),
    };
}

} // namespace unbulk
