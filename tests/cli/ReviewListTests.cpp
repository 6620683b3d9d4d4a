#include <chrono>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Models/ScanItem.hpp"
#include "tui/ReviewList.hpp"

namespace {

using namespace unbulk;
using namespace unbulk::cli;
using std::chrono::hours;

const Date now = std::chrono::system_clock::now();

DiscoveredItem item(const std::string& path, StorageCategory category, RiskTier tier, std::int64_t bytes,
                    std::optional<hours> age = std::nullopt, std::string description = "") {
    return DiscoveredItem::make({.url = FileURL(path, true),
                                 .category = category,
                                 .riskTier = tier,
                                 .allocatedSizeBytes = bytes,
                                 .lastModifiedDate = age ? std::optional<Date>(now - *age) : std::nullopt,
                                 .itemDescription = std::move(description)});
}

// The rows as text: "# CATEGORY" for a heading, the path for an item.
std::vector<std::string> shown(const ReviewList& list) {
    std::vector<std::string> out;
    for (const ReviewRow& row : list.rows())
        out.push_back(row.isHeading ? "# " + std::string(rawValue(row.category)) : list.entries()[row.entry].item.path);
    return out;
}

// Five items in two categories, the caches the larger in all.
ReviewList sample() {
    return ReviewList(
        {
            item("/h/Library/Logs/app", StorageCategory::systemLogs, RiskTier::safeToDelete, 500, hours(24 * 40)),
            item("/h/Library/Caches/b", StorageCategory::systemCaches, RiskTier::safeToDelete, 300, hours(2), "Bee"),
            item("/h/Library/Caches/A", StorageCategory::systemCaches, RiskTier::reviewRequired, 400),
            item("/h/Library/Caches/docs", StorageCategory::systemCaches, RiskTier::keep, 100, hours(24 * 400)),
            item("/h/Library/Caches/c", StorageCategory::systemCaches, RiskTier::safeToDelete, 50, hours(24 * 100)),
        },
        now, [](const DiscoveredItem&) { return std::string("Protected user personal directory (~/documents)."); });
}

TEST(ReviewListTest, GroupsByCategoryLargestFirstAndSortsWithin) {
    ReviewList list = sample();
    EXPECT_EQ(shown(list), (std::vector<std::string>{"# SYSTEM_CACHES", "/h/Library/Caches/A", "/h/Library/Caches/b",
                                                     "/h/Library/Caches/docs", "/h/Library/Caches/c", "# SYSTEM_LOGS",
                                                     "/h/Library/Logs/app"}));
    EXPECT_EQ(list.rows()[0].itemCount, 4);
    EXPECT_EQ(list.rows()[0].bytes, 850);

    list.cycleSort(); // age: oldest first, undated last
    EXPECT_EQ(shown(list), (std::vector<std::string>{"# SYSTEM_CACHES", "/h/Library/Caches/docs", "/h/Library/Caches/c",
                                                     "/h/Library/Caches/b", "/h/Library/Caches/A", "# SYSTEM_LOGS",
                                                     "/h/Library/Logs/app"}));
    list.cycleSort(); // name, case ignored
    EXPECT_EQ(shown(list), (std::vector<std::string>{"# SYSTEM_CACHES", "/h/Library/Caches/A", "/h/Library/Caches/b",
                                                     "/h/Library/Caches/c", "/h/Library/Caches/docs", "# SYSTEM_LOGS",
                                                     "/h/Library/Logs/app"}));
    list.cycleSort();
    EXPECT_EQ(list.sort(), ReviewSort::size);
}

TEST(ReviewListTest, TheCursorWalksOverHeadingsAndStopsAtTheEnds) {
    ReviewList list = sample();
    EXPECT_EQ(list.highlighted()->item.path, "/h/Library/Caches/A");
    list.moveCursor(-1);
    EXPECT_EQ(list.cursorRow(), 1u);
    list.moveCursor(4);
    EXPECT_EQ(list.highlighted()->item.path, "/h/Library/Logs/app");
    list.moveCursor(1);
    EXPECT_EQ(list.highlighted()->item.path, "/h/Library/Logs/app");
    list.moveCursor(-1);
    EXPECT_EQ(list.highlighted()->item.path, "/h/Library/Caches/c");
}

TEST(ReviewListTest, AProtectedItemCannotBeSelectedAndSaysWhy) {
    ReviewList list = sample();
    list.moveCursor(2);
    ASSERT_EQ(list.highlighted()->item.path, "/h/Library/Caches/docs");
    EXPECT_EQ(list.toggleHighlighted(),
              "Cannot be selected: Protected (Keep). Protected user personal directory (~/documents).");
    EXPECT_EQ(list.selection().count, 0);

    list.moveCursor(-2);
    EXPECT_EQ(list.toggleHighlighted(), std::nullopt); // a REVIEW item is chosen one by one
    EXPECT_EQ(list.selection().count, 1);
}

TEST(ReviewListTest, AllSafeTakesOnlyTheSafeItemsThatShow) {
    ReviewList list = sample();
    list.setTextFilter("LIBRARY/caches");
    list.selectAllSafe();
    std::vector<std::string> selected;
    for (const DiscoveredItem& chosen : list.selectedItems())
        selected.push_back(chosen.path);
    EXPECT_EQ(selected, (std::vector<std::string>{"/h/Library/Caches/b", "/h/Library/Caches/c"}));

    // Hidden by a filter, still selected, and said so.
    list.setTextFilter("bee");
    EXPECT_EQ(shown(list), (std::vector<std::string>{"# SYSTEM_CACHES", "/h/Library/Caches/b"}));
    EXPECT_EQ(list.selection().count, 2);
    EXPECT_EQ(list.selection().bytes, 350);
    EXPECT_EQ(list.selection().hidden, 1);

    list.clearSelection();
    EXPECT_EQ(list.selection().count, 0);
}

TEST(ReviewListTest, TheAgeFilterHidesRecentAndUndatedItems) {
    ReviewList list = sample();
    const std::vector<std::pair<AgeFilter, std::vector<std::string>>> steps{
        {AgeFilter::olderThan30Days,
         {"# SYSTEM_CACHES", "/h/Library/Caches/docs", "/h/Library/Caches/c", "# SYSTEM_LOGS", "/h/Library/Logs/app"}},
        {AgeFilter::olderThan90Days, {"# SYSTEM_CACHES", "/h/Library/Caches/docs", "/h/Library/Caches/c"}},
        {AgeFilter::olderThanOneYear, {"# SYSTEM_CACHES", "/h/Library/Caches/docs"}},
        {AgeFilter::any, shown(sample())},
    };
    for (const auto& [filter, rows] : steps) {
        list.cycleAgeFilter();
        EXPECT_EQ(list.ageFilter(), filter);
        EXPECT_EQ(shown(list), rows) << rawValue(filter);
        ASSERT_NE(list.highlighted(), nullptr);
    }
}

TEST(ReviewListTest, RemovedItemsLeaveTheListAndTheSelection) {
    ReviewList list = sample();
    list.moveToFirst();
    list.toggleHighlighted();
    list.moveToLast();
    list.toggleHighlighted();
    list.removePaths({"/h/Library/Logs/app"});
    EXPECT_EQ(shown(list), (std::vector<std::string>{"# SYSTEM_CACHES", "/h/Library/Caches/A", "/h/Library/Caches/b",
                                                     "/h/Library/Caches/docs", "/h/Library/Caches/c"}));
    EXPECT_EQ(list.selection().count, 0);
    EXPECT_EQ(list.highlighted()->item.path, "/h/Library/Caches/c");

    list.removePaths({"/h/Library/Caches/A", "/h/Library/Caches/b", "/h/Library/Caches/docs", "/h/Library/Caches/c"});
    EXPECT_TRUE(list.rows().empty());
    EXPECT_EQ(list.highlighted(), nullptr);
}

} // namespace
