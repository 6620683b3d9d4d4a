#pragma once

#include <array>
#include <cstddef>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Models/SpaceNode.hpp"
#include "Support/EnumTable.hpp"

namespace unbulk::cli {

enum class ExploreSort { size, name, items };

struct ExploreSortInfo {
    ExploreSort value;
    std::string_view rawValue;
};

inline constexpr std::array<ExploreSortInfo, 3> exploreSortTable{{
    {ExploreSort::size, "size"},   // largest first
    {ExploreSort::name, "name"},   // by name, case ignored
    {ExploreSort::items, "items"}, // most files first
}};

} // namespace unbulk::cli

template <> struct unbulk::EnumTable<unbulk::cli::ExploreSort> {
    static constexpr std::string_view name = "ExploreSort";
    static constexpr const auto& rows = cli::exploreSortTable;
};

namespace unbulk::cli {

// Disk usage one directory at a time, as a person walks it: the entries of
// the directory shown, sorted, with a cursor; directories are measured the
// first time they are opened and kept, so going back up and down again
// costs nothing. After an entry is removed, or a directory measured again,
// the sizes of the directories above it follow. No terminal in here.
class ExploreView {
public:
    // A directory with its entries as children, each measured whole.
    using Measure = std::function<SpaceNode(const std::string& path)>;

    // `root` as `measure` gives it.
    ExploreView(SpaceNode root, Measure measure);

    // The directory shown and its entries in the current order.
    const SpaceNode& directory() const;
    const std::vector<const SpaceNode*>& entries() const { return entries_; }
    std::optional<std::size_t> cursor() const;
    const SpaceNode* highlighted() const;
    // How many levels below the root the directory shown lies.
    std::size_t depth() const { return levels_.size() - 1; }

    void moveCursor(int entries);
    void moveToFirst();
    void moveToLast();

    // A directory that is not shown as a single file (a package is a leaf).
    static bool canOpen(const SpaceNode& entry);
    // Whether opening the highlighted entry has to measure it first.
    bool openNeedsMeasure() const;
    // Opens the highlighted directory; false when it is not one. A failing
    // measure throws, and nothing changes.
    bool open();
    // Back to the directory above, with its cursor where it was; false at
    // the root.
    bool up();

    ExploreSort sort() const { return sort_; }
    void cycleSort();

    // Measures the directory shown afresh; what was kept below it is dropped.
    void remeasure();
    // Takes an entry of the directory shown out of it (it went), and its
    // sizes out of every directory above.
    void removeEntry(const std::string& path);

    // The entry's part of the directory shown, 0 to 1.
    double share(const SpaceNode& entry) const;

private:
    struct Level {
        std::string path;
        std::size_t cursor = 0;
    };

    SpaceNode& node(const std::string& path) { return measured_.at(path); }
    // Adds the differences to the directories above the one shown, and to
    // their entries on the way down to it.
    void adjustAncestors(std::int64_t allocated, std::int64_t logical, std::int64_t items);
    void forgetBelow(const std::string& path);
    void sortEntries();

    Measure measure_;
    std::map<std::string, SpaceNode> measured_;
    std::vector<Level> levels_;
    std::vector<const SpaceNode*> entries_;
    ExploreSort sort_ = ExploreSort::size;
};

} // namespace unbulk::cli
