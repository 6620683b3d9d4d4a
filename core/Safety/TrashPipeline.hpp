#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "Models/SafetyModels.hpp"
#include "Platform/FileSystem.hpp"
#include "Platform/Trash.hpp"
#include "Safety/AuditLogger.hpp"
#include "Safety/TrashPipelineError.hpp"
#include "Support/FileURL.hpp"

namespace unbulk {

// The one way user data leaves the disk. Every item of a request passes the
// sandbox, is measured while it is still there, and is then moved to the
// Trash, purged, or (in a dry run) only reported; each outcome is a record,
// and a failing item never stops the ones after it. Each operation leaves one
// entry in the audit log when there is a logger, and a log that cannot be
// written fails nothing: the removal has happened either way.
//
// Removal never follows a symbolic link: the path is handed to the Trash or
// to FileSystem::removeItem exactly as it was asked for, so a link that takes
// the place of a directory after it was checked is removed as a link, and
// what it points to stays.
//
// No mutable state of its own; the audit entry is serialised by the logger.
class TrashPipeline {
public:
    // What computeItemMetrics finds: the sizes of the regular files in the
    // item and their number, at least 1 for anything that exists.
    struct ItemMetrics {
        std::int64_t allocatedBytes = 0;
        std::int64_t logicalBytes = 0;
        std::int64_t fileCount = 0;

        friend bool operator==(const ItemMetrics&, const ItemMetrics&) = default;
    };

    // `auditLogger` may be null: nothing is logged then.
    TrashPipeline(std::shared_ptr<FileSystem> fileSystem, std::shared_ptr<Trash> trash,
                  std::shared_ptr<AuditLogger> auditLogger, FileURL homeURL);

    // Moves each item to the Trash, or with dryRun only says what would go.
    // Throws TrashPipelineError (emptyTargetList) for an empty list.
    TrashSummary trash(const std::vector<FileURL>& urls, bool dryRun, const std::string& client) const;

    // Deletes each item for good. Throws TrashPipelineError when not
    // confirmed (unconfirmedPermanentPurge, tested first) or for an empty
    // list (emptyTargetList).
    TrashSummary purgePermanently(const std::vector<FileURL>& urls, bool confirmed, const std::string& client) const;

    // Nothing there: zeros and no file. Anything but a directory (a link is
    // measured as itself): its own sizes and one file. A directory: the
    // regular files below it, each as often as it is met; an empty one counts
    // as one file of 0 bytes.
    ItemMetrics computeItemMetrics(const FileURL& url) const;

private:
    TrashSummary run(const std::vector<FileURL>& urls, bool dryRun, bool permanentPurge,
                     const std::string& client) const;
    TrashItemRecord processItem(const FileURL& url, bool dryRun, bool permanentPurge) const;
    // The measurement from the item's own lstat, already taken by the caller.
    ItemMetrics metricsOf(const std::string& path, const FileStatus& status) const;
    void recordAuditEntry(const TrashSummary& summary, const std::string& client) const;

    std::shared_ptr<FileSystem> fileSystem_;
    std::shared_ptr<Trash> trash_;
    std::shared_ptr<AuditLogger> auditLogger_;
    FileURL homeURL_;
};

} // namespace unbulk
