#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "Models/SafetyModels.hpp"
#include "Platform/Clock.hpp"
#include "Platform/FileSystem.hpp"
#include "Platform/Trash.hpp"
#include "Safety/AuditLogger.hpp"
#include "Safety/OperationJournal.hpp"
#include "Safety/TrashPipelineError.hpp"
#include "Support/Cancellation.hpp"
#include "Support/FileURL.hpp"

namespace unbulk {

// The one way user data leaves the disk. Every item of a request passes the
// sandbox, is measured while it is still there, and is then moved to the
// Trash, purged, or (in a dry run) only reported; each outcome is a record,
// and a failing item never stops the ones after it. Each operation leaves one
// entry in the audit log when there is a logger, and a log that cannot be
// written fails nothing: the removal has happened either way.
//
// Removal cannot be redirected. After the sandbox has passed the path, the
// links in its directories are resolved once, the resolved path is passed
// through the sandbox as well, and the Trash or the purge then act relative
// to that parent opened without following any link, on a name that must
// still hold the file that was looked at. A directory on the way swapped for
// a link, or an item swapped for another, after the check fails the item and
// touches nothing. The item itself is never followed: a link is removed as a
// link. A purge leaves alone whatever lies on another file system.
//
// Removal never crosses into another file system: an item that is itself a
// mount point (its device differs from its parent's) is refused, and so is
// an item in the home below a folder of another file system than the
// home's, in both modes. The devices are those of the directories the
// removal really opens on its way, right before it acts. Outside the home
// only the first test holds, so an item on a /tmp of its own still goes.
//
// Nothing removed goes unrecorded. With a logger, each item is written to
// the operation's journal (OperationJournal) before it is touched, and an
// operation that was cut short is recorded by the next one. A stop request
// ends the operation between two items: the rest are SKIPPED, and the entry
// says what was done. A log that cannot be written still fails nothing, but
// the handler given at construction hears of it, and the journal stays for
// the next operation to record.
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

    // Told when an operation's entry could not be written: the log's path
    // and the reason. The removal stands whatever the log says.
    using UnrecordedHandler = std::function<void(const std::string& logPath, const std::string& reason)>;

    // The line a front end shows for it:
    // "Warning: this operation was not recorded in <path>: <reason>".
    static std::string unrecordedWarning(const std::string& logPath, const std::string& reason);

    // `auditLogger` may be null: nothing is logged (or journalled) then.
    // `clock` dates the operation and its entry.
    TrashPipeline(std::shared_ptr<FileSystem> fileSystem, std::shared_ptr<Trash> trash,
                  std::shared_ptr<AuditLogger> auditLogger, FileURL homeURL, Clock clock,
                  UnrecordedHandler onUnrecorded = {});

    // Moves each item to the Trash, or with dryRun only says what would go.
    // Throws TrashPipelineError (emptyTargetList) for an empty list.
    TrashSummary trash(const std::vector<FileURL>& urls, bool dryRun, const std::string& client,
                       StopToken stop = {}) const;

    // Deletes each item for good. Throws TrashPipelineError when not
    // confirmed (unconfirmedPermanentPurge, tested first) or for an empty
    // list (emptyTargetList).
    TrashSummary purgePermanently(const std::vector<FileURL>& urls, bool confirmed, const std::string& client,
                                  StopToken stop = {}) const;

    // Records the operations that were cut short (OperationJournal). Every
    // operation does this first; a front end calls it as well when it ends
    // without reaching the pipeline (nothing found to clean).
    void recordInterruptedOperations() const;

    // Nothing there (links followed): zeros and no file. A directory, or a
    // link to one: the regular files below it, each as often as it is met;
    // an empty one counts as one file of 0 bytes. Anything else: its own
    // sizes (a link's own, not its target's) and one file.
    ItemMetrics computeItemMetrics(const FileURL& url) const;

private:
    // A record, and what a purge that failed halfway still removed (its
    // path and bytes go into the audit entry, since they are gone).
    struct Outcome {
        TrashItemRecord record;
        std::int64_t partiallyRemovedBytes = 0;
        bool partiallyRemoved = false;
    };

    TrashSummary run(const std::vector<FileURL>& urls, bool dryRun, bool permanentPurge, const std::string& client,
                     const StopToken& stop) const;
    // `realHome` is the home with its links resolved, as the removal's way
    // through it is seen; `journal` (when there is one) hears of the item
    // right before it is touched and right after.
    Outcome processItem(const FileURL& url, bool dryRun, bool permanentPurge, const std::string& realHome,
                        OperationJournal* journal) const;
    // The measurement of an existing item from its status with links followed.
    ItemMetrics metricsOf(const std::string& path, const FileStatus& followed) const;
    Outcome moveToTrash(const FileURL& url, const std::string& realPath, const Identity& identity,
                        const ItemMetrics& metrics, const AnchorCheck& anchorCheck, const std::string& refusal) const;
    Outcome purge(const FileURL& url, const std::string& realPath, const Identity& identity,
                  const ItemMetrics& metrics, const AnchorCheck& anchorCheck, const std::string& refusal) const;
    // Nothing when the entry is in the log, else why not.
    std::optional<std::string> recordAuditEntry(const TrashSummary& summary, const std::vector<Outcome>& outcomes,
                                                const std::string& client) const;
    void reportUnrecorded(const std::string& reason) const;

    std::shared_ptr<FileSystem> fileSystem_;
    std::shared_ptr<Trash> trash_;
    std::shared_ptr<AuditLogger> auditLogger_;
    FileURL homeURL_;
    Clock clock_;
    UnrecordedHandler onUnrecorded_;
};

} // namespace unbulk
