#include "Scanner/ItemMeasurer.hpp"

#include <unordered_set>

#include "Safety/TCCIsolationHelper.hpp"

namespace unbulk::ItemMeasurer {
namespace {

struct InodeKey {
    std::uint64_t dev;
    std::uint64_t ino;
    friend bool operator==(const InodeKey&, const InodeKey&) = default;
};

struct InodeKeyHash {
    std::size_t operator()(const InodeKey& key) const noexcept {
        return std::hash<std::uint64_t>{}(key.ino * 0x9E3779B97F4A7C15ull ^ key.dev);
    }
};

void keepNewer(std::optional<Date>& newest, Date candidate) {
    if (!newest || candidate > *newest) newest = candidate;
}

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
    std::error_code error;
    return singleFile(fileSystem.linkStatus(path, error));
}

MeasuredMetrics measureItem(const FileSystem& fileSystem, const std::string& path, UnreadableDirectories unreadable) {
    // The path's own lstat answers for everything but a link, whose target
    // decides whether there is a tree to walk: one call where one will do.
    std::error_code error;
    const auto self = fileSystem.linkStatus(path, error);
    bool isDirectory = self && self->kind == FileKind::directory;
    if (!self || self->kind == FileKind::symbolicLink) {
        const auto target = fileSystem.status(path, error);
        if (!target) return {};
        isDirectory = target->kind == FileKind::directory;
    }
    if (!isDirectory) return singleFile(self);

    // A directory that cannot be read (the root among them) adds nothing and
    // stops nothing: an unreadable item measures as an empty directory, 0
    // bytes and one file with no dates, flagged only where the caller asks
    // for permission errors to be.
    MeasuredMetrics metrics;
    std::unordered_set<InodeKey, InodeKeyHash> seen;
    WalkCallbacks callbacks;
    callbacks.visit = [&](const WalkEntry& entry) {
        // Links are reported, never followed; directories add nothing.
        if (entry.kind != FileKind::regular || !entry.status) return WalkAction::proceed;
        ++metrics.fileCount; // every link to a file counts as a file
        const FileStatus& file = *entry.status;
        // A file with one link can be met only once, so only files with more
        // links need the (device, inode) set: that keeps the set, and its
        // allocations, to the few files that are hard-linked.
        if (file.linkCount > 1 && !seen.insert(InodeKey{file.device, file.inode}).second) {
            return WalkAction::proceed;
        }
        metrics.logicalBytes += file.size;
        metrics.allocatedBytes += file.allocatedSize;
        keepNewer(metrics.lastModifiedDate, file.modificationDate);
        keepNewer(metrics.lastAccessedDate, file.accessDate);
        return WalkAction::proceed;
    };
    callbacks.onError = [&](const std::string&, std::error_code failure, WalkFailure kind) {
        if (kind == WalkFailure::entry) {
            metrics.requiresFullDiskAccess = true;
        } else if (unreadable == UnreadableDirectories::flagPermissionErrors &&
                   TCCIsolationHelper::isPermissionOrTCCError(failure)) {
            metrics.requiresFullDiskAccess = true;
        }
    };
    fileSystem.walk(path, WalkOptions{.status = WalkStatus::regularFiles}, callbacks);
    metrics.fileCount = std::max<std::int64_t>(metrics.fileCount, 1);
    return metrics;
}

bool passesKeepTest(const MeasuredMetrics& metrics) { return metrics.fileCount > 0 || metrics.logicalBytes >= 1; }

} // namespace unbulk::ItemMeasurer
