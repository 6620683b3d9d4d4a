#include "Models/SafetyModels.hpp"

#include "Models/RecordCoding.hpp"
#include "Support/CheckedMath.hpp"
#include "Support/Json.hpp"

#include <chrono>
#include <stdexcept>

namespace unbulk {

TrashItemRecord TrashItemRecord::make(Fields f) {
    TrashItemRecord record;
    record.id = f.id;
    record.sourcePath = f.sourceURL.path();
    record.sourceURL = std::move(f.sourceURL);
    if (f.trashURL) record.trashPath = f.trashURL->path();
    record.trashURL = std::move(f.trashURL);
    record.allocatedBytes = f.allocatedBytes;
    record.logicalBytes = f.logicalBytes;
    record.fileCount = f.fileCount;
    record.status = f.status;
    record.errorMessage = std::move(f.errorMessage);
    return record;
}

TrashSummary TrashSummary::make(Fields f) {
    TrashSummary summary;
    summary.operationId = f.operationId;
    summary.isDryRun = f.isDryRun;
    summary.isPermanentPurge = f.isPermanentPurge;
    for (const auto& record : f.records) {
        summary.totalItemsCount = checkedAdd(summary.totalItemsCount, 1);
        switch (record.status) {
        case TrashItemStatus::success:
        case TrashItemStatus::simulated:
            summary.successCount = checkedAdd(summary.successCount, 1);
            summary.totalAllocatedBytesUnbulked =
                checkedAdd(summary.totalAllocatedBytesUnbulked, record.allocatedBytes);
            summary.totalLogicalBytesUnbulked = checkedAdd(summary.totalLogicalBytesUnbulked, record.logicalBytes);
            break;
        case TrashItemStatus::failed:
            summary.failureCount = checkedAdd(summary.failureCount, 1);
            break;
        case TrashItemStatus::skipped:
            break;
        }
    }
    summary.records = std::move(f.records);
    summary.startedAt = f.startedAt;
    summary.completedAt = f.completedAt;
    summary.durationSeconds = std::chrono::duration<double>(f.completedAt - f.startedAt).count();
    return summary;
}

std::map<FileURL, FileURL> TrashSummary::trashedItemURLs() const {
    std::map<FileURL, FileURL> urls;
    for (const auto& record : records) {
        if (record.trashURL) urls.insert_or_assign(record.sourceURL, *record.trashURL);
    }
    return urls;
}

std::vector<std::string> TrashSummary::errors() const {
    std::vector<std::string> messages;
    for (const auto& record : records) {
        if (record.errorMessage) messages.push_back(*record.errorMessage);
    }
    return messages;
}

Json toJson(const TrashItemRecord& r) {
    Json j = Json::object();
    j["id"] = r.id.string();
    j["sourceURL"] = r.sourceURL.absoluteString();
    j["sourcePath"] = r.sourcePath;
    json::setOptional(j, "trashURL", r.trashURL, [](const FileURL& url) { return url.absoluteString(); });
    json::setOptional(j, "trashPath", r.trashPath);
    j["allocatedBytes"] = r.allocatedBytes;
    j["logicalBytes"] = r.logicalBytes;
    j["fileCount"] = r.fileCount;
    j["status"] = r.status;
    json::setOptional(j, "errorMessage", r.errorMessage);
    return j;
}

Json toJson(const TrashSummary& s, DateEncoding dates) {
    Json records = Json::array();
    for (const auto& record : s.records) records.push_back(toJson(record));
    return Json{{"operationId", s.operationId.string()},
                {"isDryRun", s.isDryRun},
                {"isPermanentPurge", s.isPermanentPurge},
                {"totalItemsCount", s.totalItemsCount},
                {"successCount", s.successCount},
                {"failureCount", s.failureCount},
                {"totalAllocatedBytesUnbulked", s.totalAllocatedBytesUnbulked},
                {"totalLogicalBytesUnbulked", s.totalLogicalBytesUnbulked},
                {"records", std::move(records)},
                {"startedAt", dates::encode(s.startedAt, dates)},
                {"completedAt", dates::encode(s.completedAt, dates)},
                {"durationSeconds", s.durationSeconds}};
}

Json toJson(const AuditItemRecord& r) {
    Json j = Json::object();
    j["sourcePath"] = r.sourcePath;
    json::setOptional(j, "trashedPath", r.trashedPath);
    j["category"] = r.category;
    j["riskTier"] = r.riskTier;
    j["allocatedBytes"] = r.allocatedBytes;
    j["logicalBytes"] = r.logicalBytes;
    j["status"] = r.status;
    json::setOptional(j, "errorMessage", r.errorMessage);
    return j;
}

Json toJson(const AuditLogEntry& e) {
    Json j = Json::object();
    j["timestamp"] = e.timestamp;
    j["operationId"] = e.operationId;
    j["operationType"] = e.operationType;
    j["itemsCount"] = e.itemsCount;
    j["bytesUnbulked"] = e.bytesUnbulked;
    j["paths"] = e.paths;
    j["client"] = e.client;
    json::setOptional(j, "durationMs", e.durationMs);
    j["previousHash"] = e.previousHash;
    j["rollingHash"] = e.rollingHash;
    return j;
}

TrashItemRecord trashItemRecordFromJson(const Json& j) {
    TrashItemRecord r;
    r.id = coding::uuid(j.at("id"));
    r.sourceURL = coding::fileURL(j.at("sourceURL"));
    r.sourcePath = coding::string(j, "sourcePath");
    if (auto it = j.find("trashURL"); it != j.end() && !it->is_null()) r.trashURL = coding::fileURL(*it);
    r.trashPath = json::getOptional<std::string>(j, "trashPath");
    r.allocatedBytes = coding::int64(j, "allocatedBytes");
    r.logicalBytes = coding::int64(j, "logicalBytes");
    r.fileCount = coding::int64(j, "fileCount");
    r.status = j.at("status").get<TrashItemStatus>();
    r.errorMessage = json::getOptional<std::string>(j, "errorMessage");
    return r;
}

TrashSummary trashSummaryFromJson(const Json& j) {
    TrashSummary s;
    s.operationId = coding::uuid(j.at("operationId"));
    s.isDryRun = j.at("isDryRun").get<bool>();
    s.isPermanentPurge = j.at("isPermanentPurge").get<bool>();
    s.totalItemsCount = coding::int64(j, "totalItemsCount");
    s.successCount = coding::int64(j, "successCount");
    s.failureCount = coding::int64(j, "failureCount");
    s.totalAllocatedBytesUnbulked = coding::int64(j, "totalAllocatedBytesUnbulked");
    s.totalLogicalBytesUnbulked = coding::int64(j, "totalLogicalBytesUnbulked");
    for (const auto& record : j.at("records")) s.records.push_back(trashItemRecordFromJson(record));
    s.startedAt = coding::date(j.at("startedAt"));
    s.completedAt = coding::date(j.at("completedAt"));
    s.durationSeconds = j.at("durationSeconds").get<double>();
    return s;
}

AuditItemRecord auditItemRecordFromJson(const Json& j) {
    return AuditItemRecord{
        .sourcePath = coding::string(j, "sourcePath"),
        .trashedPath = json::getOptional<std::string>(j, "trashedPath"),
        .category = j.at("category").get<StorageCategory>(),
        .riskTier = j.at("riskTier").get<RiskTier>(),
        .allocatedBytes = coding::int64(j, "allocatedBytes"),
        .logicalBytes = coding::int64(j, "logicalBytes"),
        .status = coding::string(j, "status"),
        .errorMessage = json::getOptional<std::string>(j, "errorMessage"),
    };
}

AuditLogEntry auditLogEntryFromJson(const Json& j) {
    if (!j.is_object()) throw std::invalid_argument("expected a JSON object, found " + j.dump());
    AuditLogEntry e;
    e.timestamp = coding::string(j, "timestamp");
    e.operationId = coding::string(j, "operationId");
    e.operationType = j.at("operationType").get<AuditOperationType>();
    e.itemsCount = coding::int64(j, "itemsCount");
    e.bytesUnbulked = coding::int64(j, "bytesUnbulked");
    e.paths = j.at("paths").get<std::vector<std::string>>();
    e.client = coding::string(j, "client");
    e.durationMs = json::getOptional<double>(j, "durationMs");
    e.previousHash = coding::string(j, "previousHash");
    e.rollingHash = coding::string(j, "rollingHash");
    return e;
}

} // namespace unbulk
