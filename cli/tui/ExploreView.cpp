#include "tui/ExploreView.hpp"

#include <algorithm>
#include <utility>

#include "Support/Paths.hpp"
#include "Support/Unicode.hpp"

namespace unbulk::cli {

ExploreView::ExploreView(SpaceNode root, Measure measure) : measure_(std::move(measure)) {
    const std::string path = root.path;
    measured_.emplace(path, std::move(root));
    levels_.push_back({path, 0});
    sortEntries();
}

const SpaceNode& ExploreView::directory() const { return measured_.at(levels_.back().path); }

std::optional<std::size_t> ExploreView::cursor() const {
    if (entries_.empty()) return std::nullopt;
    return levels_.back().cursor;
}

const SpaceNode* ExploreView::highlighted() const {
    const auto index = cursor();
    return index ? entries_[*index] : nullptr;
}

void ExploreView::moveCursor(int by) {
    if (entries_.empty()) return;
    const auto last = static_cast<long long>(entries_.size()) - 1;
    const long long target = std::clamp(static_cast<long long>(levels_.back().cursor) + by, 0LL, last);
    levels_.back().cursor = static_cast<std::size_t>(target);
}

void ExploreView::moveToFirst() { levels_.back().cursor = 0; }

void ExploreView::moveToLast() { levels_.back().cursor = entries_.empty() ? 0 : entries_.size() - 1; }

bool ExploreView::canOpen(const SpaceNode& entry) { return entry.isDirectory && !entry.fileCategory; }

bool ExploreView::openNeedsMeasure() const {
    const SpaceNode* entry = highlighted();
    return entry && canOpen(*entry) && !measured_.contains(entry->path);
}

bool ExploreView::open() {
    const SpaceNode* entry = highlighted();
    if (!entry || !canOpen(*entry)) return false;
    const std::string path = entry->path;
    if (!measured_.contains(path)) measured_.emplace(path, measure_(path));
    levels_.push_back({path, 0});
    sortEntries();
    return true;
}

bool ExploreView::up() {
    if (levels_.size() == 1) return false;
    const std::string left = levels_.back().path;
    levels_.pop_back();
    sortEntries();
    // On the directory just left, wherever its sizes have moved it since.
    const auto found =
        std::find_if(entries_.begin(), entries_.end(), [&](const SpaceNode* entry) { return entry->path == left; });
    if (found != entries_.end()) levels_.back().cursor = static_cast<std::size_t>(found - entries_.begin());
    return true;
}

void ExploreView::cycleSort() {
    const auto cases = allCases<ExploreSort>();
    sort_ = cases[(static_cast<std::size_t>(sort_) + 1) % cases.size()];
    // The cursor stays on the entry it was on.
    const SpaceNode* current = highlighted();
    sortEntries();
    const auto found = std::find(entries_.begin(), entries_.end(), current);
    if (found != entries_.end()) levels_.back().cursor = static_cast<std::size_t>(found - entries_.begin());
}

void ExploreView::remeasure() {
    const std::string path = levels_.back().path;
    SpaceNode fresh = measure_(path);
    const SpaceNode& old = node(path);
    const std::int64_t allocated = fresh.allocatedSizeBytes - old.allocatedSizeBytes;
    const std::int64_t logical = fresh.logicalSizeBytes - old.logicalSizeBytes;
    const std::int64_t items = fresh.itemCount - old.itemCount;
    forgetBelow(path);
    node(path) = std::move(fresh);
    adjustAncestors(allocated, logical, items);
    sortEntries();
}

void ExploreView::removeEntry(const std::string& path) {
    SpaceNode& shown = node(levels_.back().path);
    if (!shown.children) return;
    auto& children = *shown.children;
    const auto found =
        std::find_if(children.begin(), children.end(), [&](const SpaceNode& child) { return child.path == path; });
    if (found == children.end()) return;
    const std::int64_t allocated = found->allocatedSizeBytes;
    const std::int64_t logical = found->logicalSizeBytes;
    const std::int64_t items = found->itemCount;
    children.erase(found);
    shown.allocatedSizeBytes -= allocated;
    shown.logicalSizeBytes -= logical;
    shown.itemCount = std::max<std::int64_t>(shown.itemCount - items, 0);
    adjustAncestors(-allocated, -logical, -items);
    forgetBelow(path);
    measured_.erase(path);
    sortEntries();
}

double ExploreView::share(const SpaceNode& entry) const {
    const std::int64_t total = directory().allocatedSizeBytes;
    return total > 0 ? static_cast<double>(entry.allocatedSizeBytes) / static_cast<double>(total) : 0.0;
}

void ExploreView::adjustAncestors(std::int64_t allocated, std::int64_t logical, std::int64_t items) {
    for (std::size_t level = 0; level + 1 < levels_.size(); ++level) {
        SpaceNode& above = node(levels_[level].path);
        above.allocatedSizeBytes += allocated;
        above.logicalSizeBytes += logical;
        above.itemCount = std::max<std::int64_t>(above.itemCount + items, 0);
        if (!above.children) continue;
        for (SpaceNode& child : *above.children) {
            if (child.path != levels_[level + 1].path) continue;
            child.allocatedSizeBytes += allocated;
            child.logicalSizeBytes += logical;
            child.itemCount = std::max<std::int64_t>(child.itemCount + items, 0);
        }
    }
}

void ExploreView::forgetBelow(const std::string& path) {
    std::erase_if(measured_, [&](const auto& entry) { return paths::isStrictlyBelow(entry.first, path); });
}

void ExploreView::sortEntries() {
    entries_.clear();
    const SpaceNode& shown = directory();
    if (shown.children) {
        for (const SpaceNode& child : *shown.children)
            entries_.push_back(&child);
    }
    auto byName = [](const SpaceNode* a, const SpaceNode* b) {
        const std::string x = unicode::caseFolded(a->name), y = unicode::caseFolded(b->name);
        return x != y ? x < y : a->name < b->name;
    };
    std::sort(entries_.begin(), entries_.end(), [&](const SpaceNode* a, const SpaceNode* b) {
        switch (sort_) {
        case ExploreSort::size:
            if (a->allocatedSizeBytes != b->allocatedSizeBytes) return a->allocatedSizeBytes > b->allocatedSizeBytes;
            break;
        case ExploreSort::items:
            if (a->itemCount != b->itemCount) return a->itemCount > b->itemCount;
            break;
        case ExploreSort::name: break;
        }
        return byName(a, b);
    });
    Level& level = levels_.back();
    if (!entries_.empty()) level.cursor = std::min(level.cursor, entries_.size() - 1);
}

} // namespace unbulk::cli
