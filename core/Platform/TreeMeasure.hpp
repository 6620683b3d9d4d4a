#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

#include "Platform/FileSystem.hpp"
#include "Support/Dates.hpp"

namespace unbulk {

class InodeSet;

// Entries of one kind met in a tree: every name counted, its bytes added.
struct TreeTally {
    std::int64_t count = 0;
    std::int64_t logicalBytes = 0;
    std::int64_t allocatedBytes = 0;
    std::optional<Date> newestModification;
    std::optional<Date> newestAccess;

    friend bool operator==(const TreeTally&, const TreeTally&) = default;
};

// What one walk of a tree found below its root (the root itself is not in
// it). Every figure is a sum or a maximum, so the order in which entries are
// met, and the threads that meet them, change nothing.
struct TreeMeasure {
    TreeTally files;    // regular files, every name
    TreeTally links;    // symbolic links, when the walk examines them
    TreeTally others;   // fifos, sockets, devices, when the walk examines them
    // The regular files' bytes with each file charged once by the measure's
    // InodeSet (without one, the same as `files`).
    std::int64_t chargedLogicalBytes = 0;
    std::int64_t chargedAllocatedBytes = 0;
    std::int64_t unexaminedEntries = 0;    // entries whose lstat failed
    std::int64_t unreadableDirectories = 0; // directories that could not be opened or read, the root's included
    bool rootUnreadable = false;
    std::vector<std::error_code> directoryErrors; // each distinct error once, in order

    friend bool operator==(const TreeMeasure&, const TreeMeasure&) = default;

    // One examined entry; directories add nothing.
    void add(const FileStatus& status, InodeSet* inodes);
    void addFailure(WalkFailure failure, std::error_code error, bool atRoot);
    // Folds in what another part of the same walk found.
    void merge(const TreeMeasure& other);
};

struct TreeMeasureOptions {
    WalkStatus status = WalkStatus::regularFiles; // which entries are examined
    bool skipHiddenFiles = false;
    bool descendIntoPackages = true;
    InodeSet* inodes = nullptr; // charges each file once; shared by the walk's threads
};

// How a measure of one item takes a symbolic link at the item's own path:
// as the link, or as what it leads to (a link to a directory is then walked
// as that directory). Below the item no link is ever followed.
enum class LinkAtItem { asLink, asTarget };

// One item as a measure of one item first sees it (the scan's items, the
// space lens, the dependencies and leftovers of an application): what its
// path holds, and, when that is a directory, everything below it. What the
// figures make of it (which entries count, whether a file is charged once,
// what an empty directory is) is each measure's own rule. The removal
// pipeline keeps its own order of calls: its existence test follows links
// before anything else is asked.
struct ItemTree {
    std::optional<FileStatus> own;      // the item's lstat
    std::optional<FileStatus> followed; // what decides: `own`, or for a link taken asTarget its stat
    std::optional<TreeMeasure> tree;    // when what decides is a directory

    bool exists() const { return followed.has_value(); }
};

ItemTree measureItemTree(const FileSystem& fileSystem, const std::string& path, LinkAtItem link,
                         const TreeMeasureOptions& options);

// The serial definition of a tree's measure: one `walk` of the file system,
// every entry it examines added. A file system's own `measureTree` must
// answer exactly this, however it gets there.
TreeMeasure measureTreeSerially(const FileSystem& fileSystem, const std::string& root,
                                const TreeMeasureOptions& options);

} // namespace unbulk
