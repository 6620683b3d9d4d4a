#include "Models/StorageAnomaly.hpp"

#include "Support/Json.hpp"

namespace unbulk {

StorageAnomaly StorageAnomaly::make(StorageAnomaly fields) {
    fields.path = fields.url.path();
    return fields;
}

DiscoveredItem StorageAnomaly::toDiscoveredItem() const {
    return DiscoveredItem::make({
        .id = id,
        .url = url,
        .category = suggestedCategory,
        .riskTier = suggestedRiskTier,
        .logicalSizeBytes = logicalSizeBytes,
        .allocatedSizeBytes = allocatedSizeBytes,
        .fileCount = fileCount,
        .isOrphaned = true,
        .itemDescription = anomalyDescription,
        .ruleId = proposedRule ? std::optional<std::string>(proposedRule->id) : std::nullopt,
    });
}

Json toJson(const StorageAnomaly& a, DateEncoding dates) {
    Json j = Json::object();
    j["id"] = a.id.string();
    j["url"] = a.url.absoluteString();
    j["path"] = a.path;
    j["allocatedSizeBytes"] = a.allocatedSizeBytes;
    j["logicalSizeBytes"] = a.logicalSizeBytes;
    j["fileCount"] = a.fileCount;
    j["confidenceScore"] = a.confidenceScore;
    j["hasCacheDirTag"] = a.hasCacheDirTag;
    json::setOptional(j, "tagApplicationComment", a.tagApplicationComment);
    j["matchedKeywords"] = a.matchedKeywords;
    j["suggestedRiskTier"] = a.suggestedRiskTier;
    j["suggestedCategory"] = a.suggestedCategory;
    j["anomalyDescription"] = a.anomalyDescription;
    if (a.proposedRule) j["proposedRule"] = toJson(*a.proposedRule, dates);
    return j;
}

} // namespace unbulk
