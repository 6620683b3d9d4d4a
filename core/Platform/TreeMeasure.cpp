#include "Platform/TreeMeasure.hpp"

#include <algorithm>

#include "Platform/InodeSet.hpp"
#include "Support/CheckedMath.hpp"

namespace unbulk {
namespace {

void keepNewer(std::optional<Date>& newest, const std::optional<Date>& candidate) {
    if (candidate && (!newest || *candidate > *newest)) newest = candidate;
}

void addTo(TreeTally& tally, const FileStatus& status) {
    tally.count = checkedAdd(tally.count, 1);
    tally.logicalBytes = checkedAdd(tally.logicalBytes, status.size);
    tally.allocatedBytes = checkedAdd(tally.allocatedBytes, status.allocatedSize);
    keepNewer(tally.newestModification, status.modificationDate);
    keepNewer(tally.newestAccess, status.accessDate);
}

// Kept sorted, so that the threads' order of meeting errors shows nowhere.
void addError(std::vector<std::error_code>& errors, std::error_code error) {
    const auto place = std::lower_bound(errors.begin(), errors.end(), error);
    if (place == errors.end() || *place != error) errors.insert(place, error);
}

void mergeInto(TreeTally& into, const TreeTally& from) {
    into.count = checkedAdd(into.count, from.count);
    into.logicalBytes = checkedAdd(into.logicalBytes, from.logicalBytes);
    into.allocatedBytes = checkedAdd(into.allocatedBytes, from.allocatedBytes);
    keepNewer(into.newestModification, from.newestModification);
    keepNewer(into.newestAccess, from.newestAccess);
}

} // namespace

void TreeMeasure::add(const FileStatus& status, InodeSet* inodes) {
    switch (status.kind) {
    case FileKind::directory: return;
    case FileKind::symbolicLink: addTo(links, status); return;
    case FileKind::other: addTo(others, status); return;
    case FileKind::regular: break;
    }
    addTo(files, status);
    if (inodes == nullptr || inodes->firstTime(status)) {
        chargedLogicalBytes = checkedAdd(chargedLogicalBytes, status.size);
        chargedAllocatedBytes = checkedAdd(chargedAllocatedBytes, status.allocatedSize);
    }
}

void TreeMeasure::addFailure(WalkFailure failure, std::error_code error, bool atRoot) {
    if (failure == WalkFailure::entry) {
        unexaminedEntries = checkedAdd(unexaminedEntries, 1);
        return;
    }
    unreadableDirectories = checkedAdd(unreadableDirectories, 1);
    rootUnreadable = rootUnreadable || atRoot;
    addError(directoryErrors, error);
}

void TreeMeasure::merge(const TreeMeasure& other) {
    mergeInto(files, other.files);
    mergeInto(links, other.links);
    mergeInto(others, other.others);
    chargedLogicalBytes = checkedAdd(chargedLogicalBytes, other.chargedLogicalBytes);
    chargedAllocatedBytes = checkedAdd(chargedAllocatedBytes, other.chargedAllocatedBytes);
    unexaminedEntries = checkedAdd(unexaminedEntries, other.unexaminedEntries);
    unreadableDirectories = checkedAdd(unreadableDirectories, other.unreadableDirectories);
    rootUnreadable = rootUnreadable || other.rootUnreadable;
    for (const auto& error : other.directoryErrors) addError(directoryErrors, error);
}

ItemTree measureItemTree(const FileSystem& fileSystem, const std::string& path, LinkAtItem link,
                         const TreeMeasureOptions& options) {
    // The path's own lstat answers for everything but a link taken as its
    // target: one call where one will do.
    ItemTree item;
    PlatformError error;
    item.own = fileSystem.linkStatus(path, error);
    const bool asTarget = link == LinkAtItem::asTarget && (!item.own || item.own->kind == FileKind::symbolicLink);
    item.followed = asTarget ? fileSystem.status(path, error) : item.own;
    if (item.followed && item.followed->kind == FileKind::directory) item.tree = fileSystem.measureTree(path, options);
    return item;
}

TreeMeasure measureTreeSerially(const FileSystem& fileSystem, const std::string& root,
                                const TreeMeasureOptions& options) {
    TreeMeasure measure;
    WalkCallbacks callbacks;
    callbacks.visit = [&](const WalkEntry& entry) {
        if (entry.status != nullptr) measure.add(*entry.status, options.inodes);
        return WalkAction::proceed;
    };
    callbacks.onError = [&](const std::string& path, std::error_code error, WalkFailure failure) {
        measure.addFailure(failure, error, path == root);
    };
    fileSystem.walk(root,
                    WalkOptions{.status = options.status,
                                .skipHiddenFiles = options.skipHiddenFiles,
                                .descendIntoPackages = options.descendIntoPackages},
                    callbacks);
    return measure;
}

} // namespace unbulk
