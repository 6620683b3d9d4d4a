#include <gtest/gtest.h>

#include "Models/Categories.hpp"
#include "Models/ScanItem.hpp"
#include "Support/Json.hpp"

namespace unbulk {
namespace {

using namespace std::chrono;
using C = StorageCategory;

Date at(sys_days day, Date::duration time) { return Date{day.time_since_epoch() + time}; }

// Fields in declaration order: id, url, category, tier, logical, allocated, files, accessed, modified, orphaned,
// locked, full disk access, description, rule.
DiscoveredItem makeItem(std::string path, StorageCategory category, RiskTier tier, std::int64_t allocated,
                        std::int64_t logical = 0, bool fullDiskAccess = false) {
    return DiscoveredItem::make({Uuid::random(), FileURL(std::move(path)), category, tier, logical, allocated, 1,
                                 std::nullopt, std::nullopt, false, false, fullDiskAccess, "item", std::nullopt});
}

// Every optional present, a directory URL that needs percent-encoding, a date with milliseconds.
DiscoveredItem fullItem() {
    return DiscoveredItem::make(
        {*Uuid::parse("e621e1f8-c36c-495a-93fc-0c247a3e6e5f"), FileURL("/Users/me/My Caches/caf\xC3\xA9", true),
         C::dockerVM, RiskTier::keep, 2048, 4096, 3, at(sys_days{2026y / March / 1}, 10h + 15min + 30s + 789ms),
         at(sys_days{2001y / January / 1}, 10s), true, false, true, "Docker VM disk image", "dev.docker.vm"});
}

TEST(ScanSummaryTest, TotalsTiersBreakdownOrderAndFullDiskAccess) {
    const ScanSummary summary = ScanSummary::from({
        makeItem("/h/pip", C::developerCache, RiskTier::keep, 50, 70),
        makeItem("/h/npm", C::developerCache, RiskTier::safeToDelete, 100, 150),
        makeItem("/h/docker", C::dockerVM, RiskTier::reviewRequired, 1'500'000, 1'000, true),
        makeItem("/h/logs", C::systemLogs, RiskTier::keep, 10, 5),
        makeItem("/h/mail", C::mailDownloads, RiskTier::safeToDelete, 400, 400),
    });
    // keep items count in the totals but in neither of the two cleanable sums. Larger allocated totals come
    // first, whatever the declaration order; a tier is the items' maximum, not the category's default.
    // category, tier, items, logical, allocated, safe, review, full disk access
    const std::vector<CategorySummary> breakdown{
        {C::dockerVM, RiskTier::reviewRequired, 1, 1'000, 1'500'000, 0, 1'500'000, true},
        {C::mailDownloads, RiskTier::safeToDelete, 1, 400, 400, 400, 0, false},
        {C::developerCache, RiskTier::keep, 2, 220, 150, 100, 0, false},
        {C::systemLogs, RiskTier::keep, 1, 5, 10, 0, 0, false}};
    // items, logical, allocated, safe, review, full disk access, breakdown
    EXPECT_EQ(summary, (ScanSummary{5, 1'625, 1'500'560, 500, 1'500'000, true, breakdown}));
}

TEST(ScanSummaryDeathTest, OverflowingSumAborts) {
    const std::int64_t max = std::numeric_limits<std::int64_t>::max();
    const DiscoveredItem one = makeItem("/h/a", C::largeFiles, RiskTier::keep, 1, 1);
    EXPECT_DEATH(ScanSummary::from({makeItem("/h/b", C::largeFiles, RiskTier::keep, max), one}), "");
    EXPECT_DEATH(ScanSummary::from({makeItem("/h/b", C::leftovers, RiskTier::keep, 0, max), one}), "");
}

TEST(ScanRecordsJsonTest, AResultRoundTripsInBothDateForms) {
    ScanResult result{.scanId = Uuid::random(),
                      .startedAt = at(sys_days{2000y / December / 31}, 23h + 59min + 59s),
                      .completedAt = at(sys_days{2026y / March / 1}, 10h + 2s),
                      .durationSeconds = 2.125,
                      .items = {fullItem(), makeItem("/h/app.log", C::systemLogs, RiskTier::safeToDelete, 8192)},
                      .warnings = {"System targets scan error: boom"},
                      .scannedCategories = {C::dockerVM, C::systemLogs}};
    result.items[0].lastAccessedDate = at(sys_days{2026y / March / 1}, 10h); // whole seconds: ISO loses nothing
    result.summary = ScanSummary::from(result.items);
    EXPECT_EQ(toJson(result)["startedAt"], -1.0);
    for (auto encoding : {DateEncoding::secondsSinceReferenceDate, DateEncoding::iso8601})
        EXPECT_EQ(scanResultFromJson(Json::parse(json::pretty(toJson(result, encoding)))), result);
}

} // namespace
} // namespace unbulk
