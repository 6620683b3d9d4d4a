#include "Models/SafetyModels.hpp"

#include <chrono>
#include <cstdlib>
#include <limits>
#include <stdexcept>

namespace unbulk {
namespace {

template <typename Table, typename Member>
constexpr bool inDeclarationOrder(const Table& table, Member member) {
    for (std::size_t i = 0; i < table.size(); ++i) {
        if (static_cast<std::size_t>(table[i].*member) != i) return false;
    }
    return true;
}
static_assert(inDeclarationOrder(trashItemStatusTable, &TrashItemStatusInfo::status));
static_assert(inDeclarationOrder(auditOperationTypeTable, &AuditOperationTypeInfo::type));

[[noreturn]] void badRawValue(std::string_view what, std::string_view raw) {
    throw nlohmann::json::other_error::create(
        501, "Cannot initialize " + std::string(what) + " from invalid raw value " + std::string(raw), nullptr);
}

std::int64_t checkedAdd(std::int64_t a, std::int64_t b) {
    std::int64_t sum = 0;
    if (__builtin_add_overflow(a, b, &sum)) std::abort();
    return sum;
}

FileURL urlFromJson(const Json& value) {
    auto url = FileURL::parse(value.get<std::string>());
    if (!url) throw std::invalid_argument("not a file URL: " + value.get<std::string>());
    return *url;
}

Uuid uuidFromJson(const Json& value) {
    auto uuid = Uuid::parse(value.get<std::string>());
    if (!uuid) throw std::invalid_argument("not a UUID: " + value.get<std::string>());
    return *uuid;
}

Date dateFromJson(const Json& value) {
    auto date = dates::decode(value);
    if (!date) throw std::invalid_argument("not a date: " + value.dump());
    return *date;
}

// A JSON integer that fits in 64 signed bits; 1.5, "1" and 2^63 are refused
// rather than truncated, so that an edited number cannot slip through as
// another one.
std::int64_t int64FromJson(const Json& object, const char* key) {
    const Json& value = object.at(key);
    if (value.is_number_unsigned()) {
        auto unsignedValue = value.get<std::uint64_t>();
        if (unsignedValue > static_cast<std::uint64_t>(std::numeric_limits<std::int64_t>::max())) {
            throw std::out_of_range(std::string("number out of range for key '") + key + "'");
        }
        return static_cast<std::int64_t>(unsignedValue);
    }
    if (value.is_number_integer()) return value.get<std::int64_t>();
    throw std::invalid_argument(std::string("expected an integer for key '") + key + "', found " + value.dump());
}

// Strings must be strings: nlohmann would otherwise throw type_error anyway,
// this only names the key.
std::string stringFromJson(const Json& object, const char* key) {
    const Json& value = object.at(key);
    if (!value.is_string()) {
        throw std::invalid_argument(std::string("expected a string for key '") + key + "', found " + value.dump());
    }
    return value.get<std::string>();
}

} // namespace

std::string_view rawValue(TrashItemStatus status) {
    return trashItemStatusTable[static_cast<std::size_t>(status)].rawValue;
}

std::string_view rawValue(AuditOperationType type) {
    return auditOperationTypeTable[static_cast<std::size_t>(type)].rawValue;
}

std::optional<TrashItemStatus> trashItemStatusFromRawValue(std::string_view raw) {
    for (const auto& row : trashItemStatusTable) {
        if (row.rawValue == raw) return row.status;
    }
    return std::nullopt;
}

std::optional<AuditOperationType> auditOperationTypeFromRawValue(std::string_view raw) {
    for (const auto& row : auditOperationTypeTable) {
        if (row.rawValue == raw) return row.type;
    }
    return std::nullopt;
}

void to_json(nlohmann::json& j, TrashItemStatus status) { j = std::string(rawValue(status)); }
void from_json(const nlohmann::json& j, TrashItemStatus& status) {
    auto raw = j.get<std::string>();
    auto parsed = trashItemStatusFromRawValue(raw);
    if (!parsed) badRawValue("TrashItemStatus", raw);
    status = *parsed;
}

void to_json(nlohmann::json& j, AuditOperationType type) { j = std::string(rawValue(type)); }
void from_json(const nlohmann::json& j, AuditOperationType& type) {
    auto raw = j.get<std::string>();
    auto parsed = auditOperationTypeFromRawValue(raw);
    if (!parsed) badRawValue("AuditOperationType", raw);
    type = *parsed;
}

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
    r.id = uuidFromJson(j.at("id"));
    r.sourceURL = urlFromJson(j.at("sourceURL"));
    r.sourcePath = stringFromJson(j, "sourcePath");
    if (auto it = j.find("trashURL"); it != j.end() && !it->is_null()) r.trashURL = urlFromJson(*it);
    r.trashPath = json::getOptional<std::string>(j, "trashPath");
    r.allocatedBytes = int64FromJson(j, "allocatedBytes");
    r.logicalBytes = int64FromJson(j, "logicalBytes");
    r.fileCount = int64FromJson(j, "fileCount");
    r.status = j.at("status").get<TrashItemStatus>();
    r.errorMessage = json::getOptional<std::string>(j, "errorMessage");
    return r;
}

TrashSummary trashSummaryFromJson(const Json& j) {
    TrashSummary s;
    s.operationId = uuidFromJson(j.at("operationId"));
    s.isDryRun = j.at("isDryRun").get<bool>();
    s.isPermanentPurge = j.at("isPermanentPurge").get<bool>();
    s.totalItemsCount = int64FromJson(j, "totalItemsCount");
    s.successCount = int64FromJson(j, "successCount");
    s.failureCount = int64FromJson(j, "failureCount");
    s.totalAllocatedBytesUnbulked = int64FromJson(j, "totalAllocatedBytesUnbulked");
    s.totalLogicalBytesUnbulked = int64FromJson(j, "totalLogicalBytesUnbulked");
    for (const auto& record : j.at("records")) s.records.push_back(trashItemRecordFromJson(record));
    s.startedAt = dateFromJson(j.at("startedAt"));
    s.completedAt = dateFromJson(j.at("completedAt"));
    s.durationSeconds = j.at("durationSeconds").get<double>();
    return s;
}

AuditItemRecord auditItemRecordFromJson(const Json& j) {
    return AuditItemRecord{
        .sourcePath = stringFromJson(j, "sourcePath"),
        .trashedPath = json::getOptional<std::string>(j, "trashedPath"),
        .category = j.at("category").get<StorageCategory>(),
        .riskTier = j.at("riskTier").get<RiskTier>(),
        .allocatedBytes = int64FromJson(j, "allocatedBytes"),
        .logicalBytes = int64FromJson(j, "logicalBytes"),
        .status = stringFromJson(j, "status"),
        .errorMessage = json::getOptional<std::string>(j, "errorMessage"),
    };
}

AuditLogEntry auditLogEntryFromJson(const Json& j) {
    if (!j.is_object()) throw std::invalid_argument("expected a JSON object, found " + j.dump());
    AuditLogEntry e;
    e.timestamp = stringFromJson(j, "timestamp");
    e.operationId = stringFromJson(j, "operationId");
    e.operationType = j.at("operationType").get<AuditOperationType>();
    e.itemsCount = int64FromJson(j, "itemsCount");
    e.bytesUnbulked = int64FromJson(j, "bytesUnbulked");
    e.paths = j.at("paths").get<std::vector<std::string>>();
    e.client = stringFromJson(j, "client");
    e.durationMs = json::getOptional<double>(j, "durationMs");
    e.previousHash = stringFromJson(j, "previousHash");
    e.rollingHash = stringFromJson(j, "rollingHash");
    return e;
}

} // namespace unbulk
