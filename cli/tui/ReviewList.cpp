#include "tui/ReviewList.hpp"

#include <algorithm>
#include <chrono>
#include <map>

#include "Support/Paths.hpp"
#include "Support/Unicode.hpp"

namespace unbulk::cli {
namespace {

template <typename E> E nextCase(E value) {
    const auto cases = allCases<E>();
    return cases[(static_cast<std::size_t>(value) + 1) % cases.size()];
}

bool contains(const std::string& folded, std::string_view text) {
    return unicode::caseFolded(text).find(folded) != std::string::npos;
}

} // namespace

ReviewList::ReviewList(std::vector<DiscoveredItem> items, Date now, const RefusalReason& reason) : now_(now) {
    entries_.reserve(items.size());
    for (DiscoveredItem& item : items) {
        ReviewEntry entry{.item = std::move(item)};
        if (!info(entry.item.riskTier).canBeCleaned) {
            std::string why = "Cannot be selected: " + std::string(displayName(entry.item.riskTier)) + ".";
            if (reason) why += " " + reason(entry.item);
            entry.refusal = std::move(why);
        }
        entries_.push_back(std::move(entry));
    }
    rebuild();
    moveToFirst();
}

const ReviewEntry* ReviewList::highlighted() const {
    if (!cursorRow_) return nullptr;
    return &entries_[rows_[*cursorRow_].entry];
}

void ReviewList::moveCursor(int items) {
    if (!cursorRow_) return;
    for (; items > 0; --items) {
        if (*cursorRow_ + 1 >= rows_.size()) break;
        const auto next = itemRowAtOrAfter(*cursorRow_ + 1);
        if (!next) break;
        cursorRow_ = next;
    }
    for (; items < 0; ++items) {
        if (*cursorRow_ == 0) break;
        const auto previous = itemRowAtOrBefore(*cursorRow_ - 1);
        if (!previous) break;
        cursorRow_ = previous;
    }
}

void ReviewList::moveToFirst() { cursorRow_ = itemRowAtOrAfter(0); }

void ReviewList::moveToLast() { cursorRow_ = rows_.empty() ? std::nullopt : itemRowAtOrBefore(rows_.size() - 1); }

std::optional<std::string> ReviewList::toggleHighlighted() {
    if (!cursorRow_) return std::nullopt;
    ReviewEntry& entry = entries_[rows_[*cursorRow_].entry];
    if (entry.refusal) return entry.refusal;
    entry.selected = !entry.selected;
    return std::nullopt;
}

void ReviewList::selectAllSafe() {
    for (const ReviewRow& row : rows_) {
        if (row.isHeading) continue;
        ReviewEntry& entry = entries_[row.entry];
        if (entry.item.riskTier == RiskTier::safeToDelete && !entry.refusal) entry.selected = true;
    }
}

void ReviewList::clearSelection() {
    for (ReviewEntry& entry : entries_)
        entry.selected = false;
}

void ReviewList::cycleSort() {
    sort_ = nextCase(sort_);
    rebuild();
}

void ReviewList::cycleAgeFilter() {
    ageFilter_ = nextCase(ageFilter_);
    rebuild();
}

void ReviewList::setTextFilter(std::string text) {
    textFilter_ = std::move(text);
    foldedFilter_ = unicode::caseFolded(textFilter_);
    rebuild();
}

ReviewList::Totals ReviewList::selection() const {
    Totals totals;
    for (const ReviewEntry& entry : entries_) {
        if (!entry.selected) continue;
        ++totals.count;
        totals.bytes += entry.item.allocatedSizeBytes;
        if (!isShown(entry)) ++totals.hidden;
    }
    return totals;
}

ReviewList::Totals ReviewList::shown() const {
    Totals totals;
    for (const ReviewRow& row : rows_) {
        if (row.isHeading) continue;
        ++totals.count;
        totals.bytes += entries_[row.entry].item.allocatedSizeBytes;
    }
    return totals;
}

std::vector<DiscoveredItem> ReviewList::selectedItems() const {
    std::vector<DiscoveredItem> items;
    for (const ReviewEntry& entry : entries_) {
        if (entry.selected) items.push_back(entry.item);
    }
    return items;
}

void ReviewList::removePaths(const std::set<std::string>& paths) {
    std::erase_if(entries_, [&](const ReviewEntry& entry) { return paths.contains(entry.item.path); });
    clearSelection();
    // The rows pointed into the old entries: start them afresh, keeping the
    // cursor's place on the screen as near as the new rows allow.
    const std::optional<std::size_t> place = cursorRow_;
    rows_.clear();
    cursorRow_.reset();
    rebuild();
    if (place && !rows_.empty()) {
        const std::size_t row = std::min(*place, rows_.size() - 1);
        cursorRow_ = itemRowAtOrAfter(row);
        if (!cursorRow_) cursorRow_ = itemRowAtOrBefore(row);
    } else {
        moveToFirst();
    }
}

bool ReviewList::isShown(const ReviewEntry& entry) const {
    const DiscoveredItem& item = entry.item;
    const int minimumDays = info(ageFilter_).minimumDays;
    if (minimumDays > 0) {
        if (!item.lastModifiedDate) return false;
        if (now_ - *item.lastModifiedDate < std::chrono::hours(24) * minimumDays) return false;
    }
    if (!foldedFilter_.empty()) {
        return contains(foldedFilter_, item.path) || contains(foldedFilter_, item.itemDescription) ||
               contains(foldedFilter_, displayName(item.category));
    }
    return true;
}

void ReviewList::rebuild() {
    const std::optional<std::size_t> cursorEntry =
        cursorRow_ ? std::optional<std::size_t>(rows_[*cursorRow_].entry) : std::nullopt;
    const std::size_t oldRow = cursorRow_.value_or(0);

    // Categories by the size of all they hold, so that filtering does not
    // move the headings around; equal ones in the order of the table.
    std::map<StorageCategory, std::int64_t> categoryBytes;
    for (const ReviewEntry& entry : entries_)
        categoryBytes[entry.item.category] += entry.item.allocatedSizeBytes;
    std::vector<StorageCategory> categories;
    for (const auto& [category, bytes] : categoryBytes)
        categories.push_back(category);
    std::stable_sort(categories.begin(), categories.end(),
                     [&](StorageCategory a, StorageCategory b) { return categoryBytes[a] > categoryBytes[b]; });

    auto before = [&](std::size_t a, std::size_t b) {
        const DiscoveredItem& x = entries_[a].item;
        const DiscoveredItem& y = entries_[b].item;
        switch (sort_) {
        case ReviewSort::size:
            if (x.allocatedSizeBytes != y.allocatedSizeBytes) return x.allocatedSizeBytes > y.allocatedSizeBytes;
            break;
        case ReviewSort::age:
            // Oldest first; an item without a date after every dated one.
            if (x.lastModifiedDate != y.lastModifiedDate) {
                if (!x.lastModifiedDate || !y.lastModifiedDate) return x.lastModifiedDate.has_value();
                return *x.lastModifiedDate < *y.lastModifiedDate;
            }
            break;
        case ReviewSort::name: {
            const std::string nameX = unicode::caseFolded(paths::lastComponent(x.path));
            const std::string nameY = unicode::caseFolded(paths::lastComponent(y.path));
            if (nameX != nameY) return nameX < nameY;
            break;
        }
        }
        return x.path < y.path;
    };

    rows_.clear();
    for (StorageCategory category : categories) {
        std::vector<std::size_t> members;
        for (std::size_t i = 0; i < entries_.size(); ++i) {
            if (entries_[i].item.category == category && isShown(entries_[i])) members.push_back(i);
        }
        if (members.empty()) continue;
        std::sort(members.begin(), members.end(), before);
        ReviewRow heading{.isHeading = true, .category = category};
        for (std::size_t i : members) {
            ++heading.itemCount;
            heading.bytes += entries_[i].item.allocatedSizeBytes;
        }
        rows_.push_back(heading);
        for (std::size_t i : members)
            rows_.push_back({.category = category, .entry = i});
    }

    cursorRow_.reset();
    if (cursorEntry) {
        for (std::size_t row = 0; row < rows_.size(); ++row) {
            if (!rows_[row].isHeading && rows_[row].entry == *cursorEntry) cursorRow_ = row;
        }
    }
    if (!cursorRow_ && !rows_.empty()) {
        const std::size_t row = std::min(oldRow, rows_.size() - 1);
        cursorRow_ = itemRowAtOrAfter(row);
        if (!cursorRow_) cursorRow_ = itemRowAtOrBefore(row);
    }
}

std::optional<std::size_t> ReviewList::itemRowAtOrAfter(std::size_t row) const {
    for (; row < rows_.size(); ++row) {
        if (!rows_[row].isHeading) return row;
    }
    return std::nullopt;
}

std::optional<std::size_t> ReviewList::itemRowAtOrBefore(std::size_t row) const {
    if (rows_.empty()) return std::nullopt;
    for (row = std::min(row, rows_.size() - 1);; --row) {
        if (!rows_[row].isHeading) return row;
        if (row == 0) return std::nullopt;
    }
}

} // namespace unbulk::cli
