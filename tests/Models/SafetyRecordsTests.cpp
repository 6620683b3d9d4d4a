#include <chrono>
#include <cstdint>
#include <limits>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "Models/SafetyModels.hpp"

namespace unbulk {
namespace {

using namespace std::chrono;

constexpr const char* sampleUuid = "e621e1f8-c36c-495a-93fc-0c247a3e6e5f";

Date at(const char* iso) { return *dates::parseISO8601(iso); }

TrashItemRecord makeRecord(std::string path, TrashItemStatus status, std::int64_t allocated, std::int64_t logical,
                           std::optional<std::string> trashPath = {}, std::optional<std::string> error = {}) {
    return TrashItemRecord::make({
        .sourceURL = FileURL(std::move(path)),
        .trashURL = trashPath ? std::optional<FileURL>(FileURL(*trashPath)) : std::nullopt,
        .allocatedBytes = allocated,
        .logicalBytes = logical,
        .fileCount = 1,
        .status = status,
        .errorMessage = std::move(error),
    });
}

TrashSummary summaryOf(std::vector<TrashItemRecord> records, bool dryRun = false) {
    return TrashSummary::make({
        .operationId = *Uuid::parse(sampleUuid),
        .isDryRun = dryRun,
        .records = std::move(records),
        .startedAt = at("2026-03-01T10:15:30.000Z"),
        .completedAt = at("2026-03-01T10:15:32.500Z"),
    });
}

std::set<std::string> keysOf(const Json& object) {
    std::set<std::string> keys;
    for (const auto& [key, value] : object.items()) keys.insert(key);
    return keys;
}

// ---- enumerations -----------------------------------------------------------

TEST(SafetyRecordsTest, RawValuesAreTheJsonForms) {
    const std::vector<std::pair<TrashItemStatus, const char*>> statuses{
        {TrashItemStatus::success, "SUCCESS"},
        {TrashItemStatus::simulated, "SIMULATED"},
        {TrashItemStatus::failed, "FAILED"},
        {TrashItemStatus::skipped, "SKIPPED"}};
    for (auto [status, raw] : statuses) {
        EXPECT_EQ(Json(status), raw);
        EXPECT_EQ(Json(raw).get<TrashItemStatus>(), status);
    }
    const std::vector<std::pair<AuditOperationType, const char*>> types{
        {AuditOperationType::scan, "scan"},
        {AuditOperationType::dryRun, "dry_run"},
        {AuditOperationType::trash, "trash"},
        {AuditOperationType::purge, "purge"},
        {AuditOperationType::restore, "restore"}};
    for (auto [type, raw] : types) {
        EXPECT_EQ(Json(type), raw);
        EXPECT_EQ(auditOperationTypeFromRawValue(raw), type);
    }
    // Exact readings only.
    EXPECT_EQ(auditOperationTypeFromRawValue("dryRun"), std::nullopt);
    EXPECT_EQ(trashItemStatusFromRawValue("success"), std::nullopt);
    EXPECT_THROW(Json("TRASH").get<AuditOperationType>(), Json::exception);
}

// ---- TrashItemRecord ---------------------------------------------------------

TEST(SafetyRecordsTest, RecordComputesPathsAndEncodesUrlsAndUpperCaseId) {
    auto record = TrashItemRecord::make({
        .id = *Uuid::parse(sampleUuid),
        .sourceURL = FileURL("/Users/me/My Cache", true),
        .trashURL = FileURL("/Users/me/.Trash/My Cache 2", true),
        .allocatedBytes = 8192,
        .logicalBytes = 5000,
        .fileCount = 3,
        .status = TrashItemStatus::success,
    });
    EXPECT_EQ(record.sourcePath, "/Users/me/My Cache");
    EXPECT_EQ(record.trashPath, "/Users/me/.Trash/My Cache 2");

    Json j = toJson(record);
    EXPECT_EQ(j["id"], "E621E1F8-C36C-495A-93FC-0C247A3E6E5F");
    EXPECT_EQ(j["sourceURL"], "file:///Users/me/My%20Cache/");
    EXPECT_EQ(j["trashURL"], "file:///Users/me/.Trash/My%20Cache%202/");
    EXPECT_EQ(j["status"], "SUCCESS");
    EXPECT_EQ(keysOf(j), (std::set<std::string>{"id", "sourceURL", "sourcePath", "trashURL", "trashPath",
                                                "allocatedBytes", "logicalBytes", "fileCount", "status"}));
    EXPECT_EQ(trashItemRecordFromJson(j), record);
}

TEST(SafetyRecordsTest, RecordWithoutTrashUrlHasNoTrashKeysAndReadsBack) {
    auto record = makeRecord("/Users/me/gone", TrashItemStatus::failed, 10, 5, {}, "No such file");
    EXPECT_EQ(record.trashURL, std::nullopt);
    EXPECT_EQ(record.trashPath, std::nullopt);
    Json j = toJson(record);
    EXPECT_FALSE(j.contains("trashURL"));
    EXPECT_FALSE(j.contains("trashPath"));
    EXPECT_EQ(j["errorMessage"], "No such file");
    EXPECT_EQ(trashItemRecordFromJson(j), record);

    auto quiet = makeRecord("/Users/me/x", TrashItemStatus::skipped, 0, 0);
    EXPECT_FALSE(toJson(quiet).contains("errorMessage"));
}

// ---- TrashSummary --------------------------------------------------------------

TEST(SafetyRecordsTest, SummaryCountsSuccessFailureAndSkipsNeither) {
    // The failed record carries measured sizes; they must not count.
    auto summary = summaryOf({makeRecord("/h/a", TrashItemStatus::success, 100, 60),
                              makeRecord("/h/b", TrashItemStatus::failed, 7000, 5000, {}, "denied"),
                              makeRecord("/h/c", TrashItemStatus::skipped, 300, 200)});
    EXPECT_EQ(summary.totalItemsCount, 3);
    EXPECT_EQ(summary.successCount, 1);
    EXPECT_EQ(summary.failureCount, 1);
    EXPECT_EQ(summary.totalAllocatedBytesUnbulked, 100);
    EXPECT_EQ(summary.totalLogicalBytesUnbulked, 60);
    EXPECT_DOUBLE_EQ(summary.durationSeconds, 2.5);
    EXPECT_EQ(summary.records[1].sourcePath, "/h/b"); // request order kept
}

TEST(SafetyRecordsTest, SimulatedRecordsCountAsSuccessWithTheirBytes) {
    auto summary = summaryOf({makeRecord("/h/a", TrashItemStatus::simulated, 4096, 4000),
                              makeRecord("/h/b", TrashItemStatus::simulated, 8192, 8000)},
                             true);
    EXPECT_EQ(summary.successCount, 2);
    EXPECT_EQ(summary.failureCount, 0);
    EXPECT_EQ(summary.totalAllocatedBytesUnbulked, 12288);
    EXPECT_EQ(summary.totalLogicalBytesUnbulked, 12000);
}

TEST(SafetyRecordsTest, ErrorsAndTrashedUrlsAreComputedFromRecords) {
    auto clean = summaryOf({makeRecord("/h/a", TrashItemStatus::success, 1, 1, "/T/a"),
                            makeRecord("/h/b", TrashItemStatus::skipped, 0, 0)});
    EXPECT_TRUE(clean.errors().empty());
    EXPECT_EQ(clean.trashedItemURLs(), (std::map<FileURL, FileURL>{{FileURL("/h/a"), FileURL("/T/a")}}));

    auto mixed = summaryOf({makeRecord("/h/a", TrashItemStatus::failed, 0, 0, {}, "first"),
                            makeRecord("/h/b", TrashItemStatus::success, 1, 1, "/T/b"),
                            makeRecord("/h/c", TrashItemStatus::skipped, 0, 0, {}, "second")});
    EXPECT_EQ(mixed.errors(), (std::vector<std::string>{"first", "second"}));
    EXPECT_EQ(mixed.trashedItemURLs().size(), 1u);
}

TEST(SafetyRecordsTest, SummaryJsonHasStoredFieldsOnlyAndRoundTripsInBothDateForms) {
    auto summary = summaryOf({makeRecord("/h/a", TrashItemStatus::success, 100, 60, "/T/a"),
                              makeRecord("/h/b", TrashItemStatus::failed, 1, 1, {}, "denied")});
    Json j = toJson(summary, DateEncoding::iso8601);
    EXPECT_EQ(keysOf(j),
              (std::set<std::string>{"operationId", "isDryRun", "isPermanentPurge", "totalItemsCount", "successCount",
                                     "failureCount", "totalAllocatedBytesUnbulked", "totalLogicalBytesUnbulked",
                                     "records", "startedAt", "completedAt", "durationSeconds"}));
    EXPECT_EQ(j["operationId"], "E621E1F8-C36C-495A-93FC-0C247A3E6E5F");
    EXPECT_EQ(j["startedAt"], "2026-03-01T10:15:30Z");
    EXPECT_EQ(trashSummaryFromJson(j).records, summary.records);

    // The default form keeps the milliseconds, so the whole value reads back.
    Json seconds = toJson(summary);
    EXPECT_TRUE(seconds["completedAt"].is_number());
    EXPECT_EQ(trashSummaryFromJson(Json::parse(seconds.dump())), summary);
}

TEST(SafetyRecordsDeathTest, SummarySumsAbortOnOverflow) {
    constexpr auto max = std::numeric_limits<std::int64_t>::max();
    EXPECT_DEATH(summaryOf({makeRecord("/h/a", TrashItemStatus::success, max, 0),
                            makeRecord("/h/b", TrashItemStatus::simulated, 1, 0)}),
                 "");
    EXPECT_DEATH(summaryOf({makeRecord("/h/a", TrashItemStatus::success, 0, max),
                            makeRecord("/h/b", TrashItemStatus::success, 0, 1)}),
                 "");
    // A failed record's bytes are not summed, so they cannot overflow.
    EXPECT_EQ(summaryOf({makeRecord("/h/a", TrashItemStatus::success, max, 0),
                         makeRecord("/h/b", TrashItemStatus::failed, 1, 0)})
                  .totalAllocatedBytesUnbulked,
              max);
}

// ---- audit records ---------------------------------------------------------------

TEST(SafetyRecordsTest, AuditItemRecordOmitsAbsentOptionalsAndRoundTrips) {
    AuditItemRecord full{.sourcePath = "/h/a",
                         .trashedPath = "/T/a",
                         .category = StorageCategory::dockerVM,
                         .riskTier = RiskTier::reviewRequired,
                         .allocatedBytes = 10,
                         .logicalBytes = 9,
                         .status = "SUCCESS",
                         .errorMessage = "odd"};
    EXPECT_EQ(auditItemRecordFromJson(toJson(full)), full);
    EXPECT_EQ(toJson(full)["category"], "DOCKER_VM");

    AuditItemRecord bare = full;
    bare.trashedPath.reset();
    bare.errorMessage.reset();
    Json j = toJson(bare);
    EXPECT_FALSE(j.contains("trashedPath"));
    EXPECT_FALSE(j.contains("errorMessage"));
    EXPECT_EQ(auditItemRecordFromJson(j), bare);
}

TEST(SafetyRecordsTest, AuditLogEntryRoundTripsAndRejectsNumbersThatAreNotInt64) {
    AuditLogEntry entry{.timestamp = "2026-03-01T10:15:30.123Z",
                        .operationId = "E621E1F8-C36C-495A-93FC-0C247A3E6E5F",
                        .operationType = AuditOperationType::dryRun,
                        .itemsCount = 2,
                        .bytesUnbulked = 4096,
                        .paths = {"/b", "/a"},
                        .client = "mcp",
                        .durationMs = std::nullopt,
                        .previousHash = "p",
                        .rollingHash = "r"};
    Json j = toJson(entry);
    EXPECT_FALSE(j.contains("durationMs"));
    EXPECT_EQ(j["operationType"], "dry_run");
    EXPECT_EQ(auditLogEntryFromJson(j), entry);
    EXPECT_EQ(auditLogEntryFromJson(j).id(), entry.operationId);

    entry.durationMs = 12.5;
    EXPECT_EQ(auditLogEntryFromJson(Json::parse(toJson(entry).dump())), entry);

    const std::vector<std::pair<const char*, Json>> bad{
        {"bytesUnbulked", 1.5},
        {"bytesUnbulked", "4096"},
        {"itemsCount", 9223372036854775808u},
        {"client", 3},
        {"operationType", "delete"},
    };
    for (const auto& [key, value] : bad) {
        Json edited = j;
        edited[key] = value;
        EXPECT_ANY_THROW(auditLogEntryFromJson(edited)) << key << " = " << value.dump();
    }
    Json missing = j;
    missing.erase("rollingHash");
    EXPECT_ANY_THROW(auditLogEntryFromJson(missing));
    EXPECT_ANY_THROW(auditLogEntryFromJson(Json::array()));
}

} // namespace
} // namespace unbulk
