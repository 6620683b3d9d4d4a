#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "Models/Categories.hpp"
#include "Models/ScanItem.hpp"
#include "Support/Dates.hpp"
#include "Support/EnumTable.hpp"

namespace unbulk::cli {

// The order of the items within each category.
enum class ReviewSort { size, age, name };

struct ReviewSortInfo {
    ReviewSort value;
    std::string_view rawValue;
};

inline constexpr std::array<ReviewSortInfo, 3> reviewSortTable{{
    {ReviewSort::size, "size"}, // largest first
    {ReviewSort::age, "age"},   // longest unmodified first
    {ReviewSort::name, "name"}, // by the item's own name
}};

// Which items show, by the time since they were last modified. An item
// without a date shows only under `any`: nothing says it is old.
enum class AgeFilter { any, olderThan30Days, olderThan90Days, olderThanOneYear };

struct AgeFilterInfo {
    AgeFilter value;
    std::string_view rawValue;
    std::string_view displayName;
    int minimumDays;
};

inline constexpr std::array<AgeFilterInfo, 4> ageFilterTable{{
    {AgeFilter::any, "any", "any age", 0},
    {AgeFilter::olderThan30Days, "30d", "older than 30 days", 30},
    {AgeFilter::olderThan90Days, "90d", "older than 90 days", 90},
    {AgeFilter::olderThanOneYear, "1y", "older than 1 year", 365},
}};

} // namespace unbulk::cli

template <> struct unbulk::EnumTable<unbulk::cli::ReviewSort> {
    static constexpr std::string_view name = "ReviewSort";
    static constexpr const auto& rows = cli::reviewSortTable;
};

template <> struct unbulk::EnumTable<unbulk::cli::AgeFilter> {
    static constexpr std::string_view name = "AgeFilter";
    static constexpr const auto& rows = cli::ageFilterTable;
};

namespace unbulk::cli {

struct ReviewEntry {
    DiscoveredItem item;
    bool selected = false;
    // Why the item can never be selected; absent when it can.
    std::optional<std::string> refusal;
};

// One line of the list: a category's heading, or one of its items.
struct ReviewRow {
    bool isHeading = false;
    StorageCategory category = StorageCategory::developerCache;
    std::int64_t itemCount = 0; // a heading: the items it shows
    std::int64_t bytes = 0;     // a heading: their allocated bytes
    std::size_t entry = 0;      // an item: its index in entries()
};

// What a scan found, as a person goes through it to choose what goes: the
// items grouped by category (the largest category first), sorted, filtered
// by text and by age, and a selection that starts empty. Items whose tier
// forbids removal can never be selected. No terminal in here: the screen
// draws rows() and sends the keys' meanings back.
class ReviewList {
public:
    // Why an item whose tier forbids removal is kept; asked once for each.
    using RefusalReason = std::function<std::string(const DiscoveredItem&)>;

    ReviewList(std::vector<DiscoveredItem> items, Date now, const RefusalReason& reason = {});

    const std::vector<ReviewEntry>& entries() const { return entries_; }
    // What shows under the current filters and sort.
    const std::vector<ReviewRow>& rows() const { return rows_; }
    // The row of the highlighted item; none when no item shows.
    std::optional<std::size_t> cursorRow() const { return cursorRow_; }
    const ReviewEntry* highlighted() const;
    Date now() const { return now_; }

    // By items, over the headings, stopping at either end.
    void moveCursor(int items);
    void moveToFirst();
    void moveToLast();

    // Selects or unselects the highlighted item. An item that may not go is
    // left as it is, and the answer says why.
    std::optional<std::string> toggleHighlighted();
    // Every item that shows and whose tier is SAFE_TO_DELETE.
    void selectAllSafe();
    // All of the selection, also what the filters hide.
    void clearSelection();

    ReviewSort sort() const { return sort_; }
    void cycleSort();
    AgeFilter ageFilter() const { return ageFilter_; }
    void cycleAgeFilter();
    const std::string& textFilter() const { return textFilter_; }
    // Items whose path, description or category name holds the text, case
    // ignored; an empty text hides nothing.
    void setTextFilter(std::string text);

    struct Totals {
        std::int64_t count = 0;
        std::int64_t bytes = 0;
        std::int64_t hidden = 0; // of count, how many the filters hide
    };
    Totals selection() const;
    Totals shown() const;
    // The selected items, in the order of the scan.
    std::vector<DiscoveredItem> selectedItems() const;

    // Takes the items at these paths out of the list (they went), and clears
    // the selection.
    void removePaths(const std::set<std::string>& paths);

private:
    bool isShown(const ReviewEntry& entry) const;
    void rebuild();
    std::optional<std::size_t> itemRowAtOrAfter(std::size_t row) const;
    std::optional<std::size_t> itemRowAtOrBefore(std::size_t row) const;

    std::vector<ReviewEntry> entries_;
    std::vector<ReviewRow> rows_;
    std::optional<std::size_t> cursorRow_;
    Date now_;
    ReviewSort sort_ = ReviewSort::size;
    AgeFilter ageFilter_ = AgeFilter::any;
    std::string textFilter_;
    std::string foldedFilter_;
};

} // namespace unbulk::cli
