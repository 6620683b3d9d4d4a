#include <gtest/gtest.h>

#include "Models/SafetyModels.hpp"
#include "Support/Json.hpp"

namespace unbulk {
namespace {

TrashItemRecord makeRecord(std::string path, TrashItemStatus status, std::int64_t allocated,
                           std::optional<std::string> trashPath = {}, std::optional<std::string> error = {}) {
    return TrashItemRecord::make({.sourceURL = FileURL(std::move(path)),
                                  .trashURL = trashPath ? std::optional(FileURL(*trashPath)) : std::nullopt,
                                  .allocatedBytes = allocated, .logicalBytes = allocated / 2, .fileCount = 1,
                                  .status = status, .errorMessage = std::move(error)});
}

TrashSummary summaryOf(std::vector<TrashItemRecord> records, bool dryRun = false) {
    return TrashSummary::make({.isDryRun = dryRun, .records = std::move(records),
                               .startedAt = *dates::parseISO8601("2026-03-01T10:15:30.000Z"),
                               .completedAt = *dates::parseISO8601("2026-03-01T10:15:32.500Z")});
}

TEST(SafetyRecordsTest, SummaryCountsSuccessAndFailureAndSumsOnlyWhatWasMoved) {
    // The failed record carries measured sizes; they must not count.
    auto summary = summaryOf({makeRecord("/h/a", TrashItemStatus::success, 100, "/T/a"),
                              makeRecord("/h/b", TrashItemStatus::failed, 7000, {}, "denied"),
                              makeRecord("/h/c", TrashItemStatus::skipped, 300)});
    // items, successes, failures, allocated and logical bytes moved
    EXPECT_EQ(std::tuple(summary.totalItemsCount, summary.successCount, summary.failureCount,
                         summary.totalAllocatedBytesUnbulked, summary.totalLogicalBytesUnbulked),
              std::tuple(3L, 1L, 1L, 100L, 50L));
    EXPECT_EQ(summary.errors(), std::vector<std::string>{"denied"});

    // Round trip through text, with the milliseconds of the default date form.
    EXPECT_EQ(trashSummaryFromJson(Json::parse(toJson(summary).dump())), summary);
}

} // namespace
} // namespace unbulk
