#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "Platform/FileSystem.hpp"
#include "Support/Dates.hpp"

namespace unbulk {

// One measurement of a path.
struct MeasuredMetrics {
    std::int64_t allocatedBytes = 0; // bytes on disk
    std::int64_t logicalBytes = 0;   // sum of file lengths
    std::int64_t fileCount = 0;      // regular files; at least 1 for any path that exists
    std::optional<Date> lastAccessedDate;
    std::optional<Date> lastModifiedDate;
    bool requiresFullDiskAccess = false; // some part could not be read

    friend bool operator==(const MeasuredMetrics&, const MeasuredMetrics&) = default;
};

// What a measurement makes of a directory it cannot open. The developer
// targets let it pass unseen; the system targets, which walk places the
// privacy control guards, mark the item when the refusal is a permission one.
enum class UnreadableDirectories { ignore, flagPermissionErrors };

// Sizes a file or a whole tree in one pass: symbolic links are neither
// followed nor counted, a hard-linked file's bytes count once per measurement
// (by device and inode, though every link counts as a file), and the newest
// access and modification dates of the counted files are kept. A path that
// does not exist measures as zeros. Nothing here fails: what cannot be read
// yields less and sets requiresFullDiskAccess.
namespace ItemMeasurer {

MeasuredMetrics measureItem(const FileSystem& fileSystem, const std::string& path,
                            UnreadableDirectories unreadable = UnreadableDirectories::ignore);

MeasuredMetrics measureSingleFile(const FileSystem& fileSystem, const std::string& path);

// The keep test of the developer targets: something was counted, or there
// are bytes. Only a path that vanished since its existence test fails it.
bool passesKeepTest(const MeasuredMetrics& metrics);

} // namespace ItemMeasurer
} // namespace unbulk
