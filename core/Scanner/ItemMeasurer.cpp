#include "Scanner/ItemMeasurer.hpp"

#include <algorithm>

#include "Platform/InodeSet.hpp"
#include "Platform/TreeMeasure.hpp"
#include "Safety/TCCIsolationHelper.hpp"

namespace unbulk::ItemMeasurer {
namespace {

MeasuredMetrics singleFile(const std::optional<FileStatus>& status) {
    if (!status) return MeasuredMetrics{.fileCount = 1, .requiresFullDiskAccess = true};
    return MeasuredMetrics{
        .allocatedBytes = status->allocatedSize,
        .logicalBytes = status->size,
        .fileCount = 1,
        .lastAccessedDate = status->accessDate,
        .lastModifiedDate = status->modificationDate,
        .requiresFullDiskAccess = false,
    };
}

} // namespace

MeasuredMetrics measureSingleFile(const FileSystem& fileSystem, const std::string& path) {
    PlatformError error;
    return singleFile(fileSystem.linkStatus(path, error));
}

MeasuredMetrics measureItem(const FileSystem& fileSystem, const std::string& path, UnreadableDirectories unreadable) {
    // A link's target decides whether there is a tree to walk; a file (or a
    // link to one) is its own lstat. A directory that cannot be read (the
    // root among them) adds nothing and stops nothing: an unreadable item
    // measures as an empty directory, 0 bytes and one file with no dates,
    // flagged only where the caller asks for permission errors to be. Every
    // name of a file counts as a file; its bytes are charged once.
    InodeSet inodes;
    const ItemTree item = measureItemTree(fileSystem, path, LinkAtItem::asTarget,
                                          {.status = WalkStatus::regularFiles, .inodes = &inodes});
    if (!item.exists()) return {};
    if (!item.tree) return singleFile(item.own);
    const TreeMeasure& tree = *item.tree;
    MeasuredMetrics metrics{
        .allocatedBytes = tree.chargedAllocatedBytes,
        .logicalBytes = tree.chargedLogicalBytes,
        .fileCount = std::max<std::int64_t>(tree.files.count, 1),
        .lastAccessedDate = tree.files.newestAccess,
        .lastModifiedDate = tree.files.newestModification,
        .requiresFullDiskAccess = tree.unexaminedEntries > 0,
    };
    if (unreadable == UnreadableDirectories::flagPermissionErrors) {
        for (const auto& failure : tree.directoryErrors) {
            if (TCCIsolationHelper::isPermissionOrTCCError(failure)) metrics.requiresFullDiskAccess = true;
        }
    }
    return metrics;
}

bool passesKeepTest(const MeasuredMetrics& metrics) { return metrics.fileCount > 0 || metrics.logicalBytes >= 1; }

} // namespace unbulk::ItemMeasurer
