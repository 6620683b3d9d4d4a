#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Models/Categories.hpp"
#include "Support/Dates.hpp"
#include "Support/EnumTable.hpp"
#include "Support/FileURL.hpp"
#include "Support/JsonFwd.hpp"
#include "Support/Uuid.hpp"

namespace unbulk {

// The outcome of one item of a removal.
enum class TrashItemStatus { success, simulated, failed, skipped };

struct TrashItemStatusInfo {
    TrashItemStatus value;
    std::string_view rawValue;
};

inline constexpr std::array<TrashItemStatusInfo, 4> trashItemStatusTable{{
    {TrashItemStatus::success, "SUCCESS"},     // moved to the Trash or purged
    {TrashItemStatus::simulated, "SIMULATED"}, // dry run: it would have been removed
    {TrashItemStatus::failed, "FAILED"},       // not removed; errorMessage says why
    {TrashItemStatus::skipped, "SKIPPED"},     // left alone on purpose
}};

// Kinds of audited operation. scan and restore have no writer yet; they are
// part of the log's vocabulary so that readers accept them.
enum class AuditOperationType { scan, dryRun, trash, purge, restore };

struct AuditOperationTypeInfo {
    AuditOperationType value;
    std::string_view rawValue;
};

inline constexpr std::array<AuditOperationTypeInfo, 5> auditOperationTypeTable{{
    {AuditOperationType::scan, "scan"},
    {AuditOperationType::dryRun, "dry_run"},
    {AuditOperationType::trash, "trash"},
    {AuditOperationType::purge, "purge"},
    {AuditOperationType::restore, "restore"},
}};

template <>
struct EnumTable<TrashItemStatus> {
    static constexpr std::string_view name = "TrashItemStatus";
    static constexpr const auto& rows = trashItemStatusTable;
};

template <>
struct EnumTable<AuditOperationType> {
    static constexpr std::string_view name = "AuditOperationType";
    static constexpr const auto& rows = auditOperationTypeTable;
};

// What happened to one item of a removal.
struct TrashItemRecord {
    Uuid id;
    FileURL sourceURL;
    std::string sourcePath; // always sourceURL.path(); set by make(), read back from JSON as stored
    std::optional<FileURL> trashURL;
    std::optional<std::string> trashPath; // trashURL's path when there is one
    std::int64_t allocatedBytes = 0;
    std::int64_t logicalBytes = 0;
    std::int64_t fileCount = 0;
    TrashItemStatus status = TrashItemStatus::success;
    std::optional<std::string> errorMessage;

    // The initialiser's arguments: everything but the derived paths.
    struct Fields {
        Uuid id = Uuid::random();
        FileURL sourceURL;
        std::optional<FileURL> trashURL;
        std::int64_t allocatedBytes = 0;
        std::int64_t logicalBytes = 0;
        std::int64_t fileCount = 0;
        TrashItemStatus status = TrashItemStatus::success;
        std::optional<std::string> errorMessage;
    };
    static TrashItemRecord make(Fields fields);

    friend bool operator==(const TrashItemRecord&, const TrashItemRecord&) = default;
};

// The result of one removal operation.
struct TrashSummary {
    Uuid operationId; // the same id as the operation's audit entry
    bool isDryRun = false;
    bool isPermanentPurge = false;
    std::int64_t totalItemsCount = 0;
    std::int64_t successCount = 0; // success and simulated
    std::int64_t failureCount = 0; // failed; skipped counts in neither
    std::int64_t totalAllocatedBytesUnbulked = 0; // over the records of successCount
    std::int64_t totalLogicalBytesUnbulked = 0;
    std::vector<TrashItemRecord> records; // in the order of the request
    Date startedAt{};
    Date completedAt{};
    double durationSeconds = 0;

    // The initialiser's arguments; counts, sums and duration are computed.
    struct Fields {
        Uuid operationId = Uuid::random();
        bool isDryRun = false;
        bool isPermanentPurge = false;
        std::vector<TrashItemRecord> records;
        Date startedAt{};
        Date completedAt{};
    };
    // Sums abort the process on signed overflow, as ScanSummary::from does:
    // such totals mean a broken invariant, never a number to report.
    static TrashSummary make(Fields fields);

    // sourceURL to trashURL for the records that landed somewhere; a source
    // asked for twice keeps its last landing place. Not encoded.
    std::map<FileURL, FileURL> trashedItemURLs() const;
    // The errorMessage of each record that has one, in order. Not encoded.
    std::vector<std::string> errors() const;

    friend bool operator==(const TrashSummary&, const TrashSummary&) = default;
};

// Per-item audit detail. Defined for readers and future writers; an
// AuditLogEntry does not embed it.
struct AuditItemRecord {
    std::string sourcePath;
    std::optional<std::string> trashedPath;
    StorageCategory category = StorageCategory::developerCache;
    RiskTier riskTier = RiskTier::safeToDelete;
    std::int64_t allocatedBytes = 0;
    std::int64_t logicalBytes = 0;
    std::string status;
    std::optional<std::string> errorMessage;

    friend bool operator==(const AuditItemRecord&, const AuditItemRecord&) = default;
};

// One line of the audit log.
struct AuditLogEntry {
    std::string timestamp;   // ISO 8601 with milliseconds, UTC
    std::string operationId; // canonical upper-case UUID
    AuditOperationType operationType = AuditOperationType::trash;
    std::int64_t itemsCount = 0;
    std::int64_t bytesUnbulked = 0;
    std::vector<std::string> paths; // as given; sorted only inside the hash
    std::string client;             // "cli", "mcp" or "uninstaller"
    std::optional<double> durationMs;
    std::string previousHash;
    std::string rollingHash;

    const std::string& id() const { return operationId; }

    friend bool operator==(const AuditLogEntry&, const AuditLogEntry&) = default;
};

// What verifying the log's chain found. Not encoded.
struct AuditVerificationResult {
    bool isValid = true;
    std::int64_t totalEntries = 0;
    std::optional<std::int64_t> tamperedLineIndex; // zero-based index of the first bad entry
    std::optional<std::string> failureReason;

    friend bool operator==(const AuditVerificationResult&, const AuditVerificationResult&) = default;
};

Json toJson(const TrashItemRecord& record);
Json toJson(const TrashSummary& summary, DateEncoding dates = DateEncoding::secondsSinceReferenceDate);
Json toJson(const AuditItemRecord& record);
Json toJson(const AuditLogEntry& entry);

// Readers throw nlohmann::json exceptions (or std::invalid_argument for a bad
// URL, UUID or date) on missing keys or bad values. Integers must be JSON
// integers that fit in 64 bits. Derived fields are read back as stored.
TrashItemRecord trashItemRecordFromJson(const Json& json);
TrashSummary trashSummaryFromJson(const Json& json);
AuditItemRecord auditItemRecordFromJson(const Json& json);
AuditLogEntry auditLogEntryFromJson(const Json& json);

} // namespace unbulk
