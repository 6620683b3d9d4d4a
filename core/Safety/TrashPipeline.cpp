#include "Safety/TrashPipeline.hpp"

#include <algorithm>
#include <chrono>
#include <exception>
#include <system_error>
#include <utility>

#include <fmt/format.h>

#include "Safety/SandboxSecurityError.hpp"
#include "Safety/SandboxValidator.hpp"
#include "Platform/ByteCountFormatter.hpp"
#include "Support/CheckedMath.hpp"
#include "Support/Paths.hpp"
#include "Support/Uuid.hpp"
#include "Platform/TreeMeasure.hpp"

namespace unbulk {
namespace {

TrashItemRecord makeRecord(const FileURL& url, TrashItemStatus status, const TrashPipeline::ItemMetrics& metrics,
                           std::optional<FileURL> trashURL, std::optional<std::string> errorMessage) {
    return TrashItemRecord::make({
        .sourceURL = url,
        .trashURL = std::move(trashURL),
        .allocatedBytes = metrics.allocatedBytes,
        .logicalBytes = metrics.logicalBytes,
        .fileCount = metrics.fileCount,
        .status = status,
        .errorMessage = std::move(errorMessage),
    });
}

} // namespace

TrashPipeline::TrashPipeline(std::shared_ptr<FileSystem> fileSystem, std::shared_ptr<Trash> trash,
                             std::shared_ptr<AuditLogger> auditLogger, FileURL homeURL, Clock clock,
                             UnrecordedHandler onUnrecorded)
    : fileSystem_(std::move(fileSystem)), trash_(std::move(trash)), auditLogger_(std::move(auditLogger)),
      homeURL_(std::move(homeURL)), clock_(std::move(clock)), onUnrecorded_(std::move(onUnrecorded)) {}

TrashSummary TrashPipeline::trash(const std::vector<FileURL>& urls, bool dryRun, const std::string& client,
                                  StopToken stop) const {
    if (urls.empty()) throw TrashPipelineError(TrashPipelineError::Kind::emptyTargetList);
    return run(urls, dryRun, false, client, stop);
}

TrashSummary TrashPipeline::purgePermanently(const std::vector<FileURL>& urls, bool confirmed,
                                             const std::string& client, StopToken stop) const {
    // The missing confirmation is the graver mistake, so it is the one named
    // even when the list is empty as well.
    if (!confirmed) throw TrashPipelineError(TrashPipelineError::Kind::unconfirmedPermanentPurge);
    if (urls.empty()) throw TrashPipelineError(TrashPipelineError::Kind::emptyTargetList);
    return run(urls, false, true, client, stop);
}

std::string TrashPipeline::unrecordedWarning(const std::string& logPath, const std::string& reason) {
    return fmt::format("Warning: this operation was not recorded in {}: {}", logPath, reason);
}

void TrashPipeline::reportUnrecorded(const std::string& reason) const {
    if (onUnrecorded_) onUnrecorded_(auditLogger_->logFileURL().path(), reason);
}

void TrashPipeline::recordInterruptedOperations() const {
    if (!auditLogger_) return;
    for (const std::string& reason : OperationJournal::recoverUnfinished(*fileSystem_, *auditLogger_, clock_))
        reportUnrecorded(reason);
}

TrashSummary TrashPipeline::run(const std::vector<FileURL>& urls, bool dryRun, bool permanentPurge,
                                const std::string& client, const StopToken& stop) const {
    recordInterruptedOperations();
    const Date startedAt = clock_();
    const Uuid operationId = Uuid::random();
    const AuditOperationType type = permanentPurge ? AuditOperationType::purge
                                    : dryRun       ? AuditOperationType::dryRun
                                                   : AuditOperationType::trash;
    // A dry run touches nothing, and needs no journal.
    const std::unique_ptr<OperationJournal> journal =
        auditLogger_ && !dryRun
            ? OperationJournal::begin(*fileSystem_, auditLogger_->logFileURL(), operationId, type, client)
            : nullptr;
    const std::string realHome = paths::standardize(fileSystem_->resolvingSymlinks(homeURL_.path()));

    std::vector<Outcome> outcomes;
    outcomes.reserve(urls.size());
    for (const FileURL& url : urls) {
        // Asked to stop: the item under way was finished, the rest are left.
        if (stop.stopRequested()) {
            outcomes.push_back(Outcome{makeRecord(url, TrashItemStatus::skipped,
                                                  ItemMetrics{.allocatedBytes = 0, .logicalBytes = 0, .fileCount = 1},
                                                  std::nullopt, "Not processed: the operation was interrupted.")});
            continue;
        }
        outcomes.push_back(processItem(url, dryRun, permanentPurge, realHome, journal.get()));
    }
    std::vector<TrashItemRecord> records;
    records.reserve(outcomes.size());
    for (const Outcome& outcome : outcomes) records.push_back(outcome.record);

    TrashSummary summary = TrashSummary::make({
        .operationId = operationId,
        .isDryRun = dryRun,
        .isPermanentPurge = permanentPurge,
        .records = std::move(records),
        .startedAt = startedAt,
        .completedAt = clock_(),
    });
    if (journal) journal->operationFinished(summary.durationSeconds * 1000.0);
    if (const auto failure = recordAuditEntry(summary, outcomes, client)) {
        reportUnrecorded(*failure); // the journal stays, for the next operation to record
    } else if (journal) {
        journal->discard();
    }
    return summary;
}

namespace {

// Why the way to an item crosses into another file system, or nothing. The
// steps run from "/" to the item's parent, the item last.
std::optional<std::string> mountCrossing(const std::vector<AnchoredStep>& steps, const std::string& realHome,
                                         const std::string& itemPath) {
    if (steps.size() < 2) return std::nullopt;
    const AnchoredStep& item = steps.back();
    if (item.status.device != steps[steps.size() - 2].status.device) {
        return fmt::format("Refused '{}': it is the mount point of another file system", itemPath);
    }
    const auto home = std::find_if(steps.begin(), steps.end(),
                                   [&](const AnchoredStep& step) { return step.path == realHome; });
    if (home == steps.end()) return std::nullopt;
    for (auto step = home + 1; step != steps.end(); ++step) {
        if (step->status.device != home->status.device) {
            return fmt::format("Refused '{}': it lies below '{}', which is on another file system than the home",
                               itemPath, step->path);
        }
    }
    return std::nullopt;
}

} // namespace

TrashPipeline::Outcome TrashPipeline::processItem(const FileURL& url, bool dryRun, bool permanentPurge,
                                                  const std::string& realHome, OperationJournal* journal) const {
    const std::string& path = url.path();
    const ItemMetrics nothing{.allocatedBytes = 0, .logicalBytes = 0, .fileCount = 1};
    auto failed = [&](const ItemMetrics& metrics, std::string message) {
        return Outcome{makeRecord(url, TrashItemStatus::failed, metrics, std::nullopt, std::move(message))};
    };

    // The sandbox comes first, in a dry run too, so that a simulation refuses
    // exactly what a real run would, and a forbidden path is reported as
    // forbidden whether or not it exists.
    try {
        SandboxValidator::validatePath(path, homeURL_, *fileSystem_);
    } catch (const SandboxSecurityError& violation) {
        return failed(nothing, "Sandbox violation: " + violation.description());
    }

    // The existence test follows links: a link whose target is gone counts
    // as nothing there, and is left alone.
    PlatformError error;
    const auto followed = fileSystem_->status(path, error);
    if (!followed) return failed(nothing, "File does not exist: " + path);

    // Afterwards there is nothing left to measure.
    const ItemMetrics metrics = metricsOf(path, *followed);
    if (dryRun) return Outcome{makeRecord(url, TrashItemStatus::simulated, metrics, std::nullopt, std::nullopt)};

    // Resolve the links of the item's directories once, judge the place that
    // gives (a link swapped in since the first check leads elsewhere), and
    // act there only: both removals open that parent without following a
    // link and check that the name still holds this item.
    const std::string realPath = paths::appending(
        fileSystem_->resolvingSymlinks(paths::deletingLastComponent(paths::standardize(path))),
        paths::lastComponent(path));
    try {
        SandboxValidator::validatePath(realPath, homeURL_, *fileSystem_);
    } catch (const SandboxSecurityError& violation) {
        return failed(nothing, "Sandbox violation: " + violation.description());
    }
    const auto own = fileSystem_->linkStatus(realPath, error);
    if (!own) return failed(nothing, "File does not exist: " + path);

    // The way to the item, as the removal opens it, must not cross into
    // another file system; the removal asks right before it acts.
    std::string refusal;
    const AnchorCheck staysOnItsFileSystem = [&](const std::vector<AnchoredStep>& steps) -> std::error_code {
        if (auto crossing = mountCrossing(steps, realHome, path)) {
            refusal = std::move(*crossing);
            return std::make_error_code(std::errc::cross_device_link);
        }
        return {};
    };

    // The journal hears of the item before it is touched, and of what
    // became of it after, so that a crash in between loses nothing.
    if (journal) journal->itemStarting(path, metrics.allocatedBytes);
    const Outcome outcome = permanentPurge
                                ? purge(url, realPath, own->identity(), metrics, staysOnItsFileSystem, refusal)
                                : moveToTrash(url, realPath, own->identity(), metrics, staysOnItsFileSystem, refusal);
    if (journal) {
        const bool succeeded = outcome.record.status == TrashItemStatus::success;
        journal->itemFinished(path, succeeded || outcome.partiallyRemoved, succeeded,
                              succeeded ? outcome.record.allocatedBytes : outcome.partiallyRemovedBytes);
    }
    return outcome;
}

TrashPipeline::Outcome TrashPipeline::moveToTrash(const FileURL& url, const std::string& realPath,
                                                  const Identity& identity, const ItemMetrics& metrics,
                                                  const AnchorCheck& anchorCheck, const std::string& refusal) const {
    const std::string& path = url.path();
    const TrashMove move = trash_->trashItem(realPath, identity, anchorCheck);
    auto failed = [&](std::string message) {
        return Outcome{makeRecord(url, TrashItemStatus::failed, metrics, std::nullopt, std::move(message))};
    };
    if (move.moved()) {
        std::optional<FileURL> trashURL;
        if (move.landedPath) trashURL = fileSystem_->fileURL(*move.landedPath);
        return Outcome{makeRecord(url, TrashItemStatus::success, metrics, std::move(trashURL), std::nullopt)};
    }
    if (!refusal.empty()) return failed(refusal);
    if (!move.unusableTrashDirectory.empty()) {
        return failed(fmt::format("Could not move '{}' to the Trash: '{}' is no Trash folder to use (it must be a "
                                  "real directory of your own, not a link): {}",
                                  path, move.unusableTrashDirectory, move.error.message()));
    }
    // The platform's own sentence names the item and the reason.
    if (!move.error.description.empty()) return failed(move.error.description);
    // A system call's error says which call and which path refused; the item
    // is named around it.
    return failed(fmt::format("Could not move '{}' to the Trash: {}", path, move.error.message()));
}

TrashPipeline::Outcome TrashPipeline::purge(const FileURL& url, const std::string& realPath, const Identity& identity,
                                            const ItemMetrics& metrics, const AnchorCheck& anchorCheck,
                                            const std::string& refusal) const {
    // Like rm --one-file-system: a directory of another file system (a
    // mount inside the item) is left where it is, with all it holds.
    const RemovalCheck sameFileSystemOnly = [&identity](const WalkEntry& entry, bool& leaveInPlace) {
        leaveInPlace = entry.kind == FileKind::directory && entry.status->device != identity.device;
        return std::error_code();
    };
    RemovalReport report;
    PlatformError error;
    if (fileSystem_->removeItem(realPath, identity, anchorCheck, sameFileSystemOnly, report, error)) {
        return Outcome{makeRecord(url, TrashItemStatus::success, metrics, std::nullopt, std::nullopt)};
    }
    // Refused before anything was touched.
    if (!refusal.empty()) return Outcome{makeRecord(url, TrashItemStatus::failed, metrics, std::nullopt, refusal)};

    std::string what;
    if (error) {
        what = fmt::format("Could not remove '{}': {}", report.failedPath.empty() ? url.path() : report.failedPath,
                           error.message());
    } else {
        what = fmt::format("Left '{}' in place: it is on another file system", report.otherFileSystemPaths.front());
        if (report.otherFileSystemPaths.size() > 1) {
            what += fmt::format(" (and {} more)", report.otherFileSystemPaths.size() - 1);
        }
    }
    if (report.filesRemoved == 0 && report.allocatedBytesRemoved == 0) {
        return Outcome{makeRecord(url, TrashItemStatus::failed, metrics, std::nullopt, what)};
    }
    // Part of the item is gone for good: the record says how much, in its
    // sizes and its message, rather than the size of the whole.
    const ItemMetrics removed{.allocatedBytes = report.allocatedBytesRemoved,
                              .logicalBytes = report.logicalBytesRemoved,
                              .fileCount = report.filesRemoved};
    std::string message = fmt::format("Removed {} of {} files ({}) before stopping. {}", report.filesRemoved,
                                      metrics.fileCount, formatByteCount(report.allocatedBytesRemoved), what);
    return Outcome{makeRecord(url, TrashItemStatus::failed, removed, std::nullopt, std::move(message)),
                   report.allocatedBytesRemoved, true};
}

TrashPipeline::ItemMetrics TrashPipeline::computeItemMetrics(const FileURL& url) const {
    PlatformError error;
    const auto followed = fileSystem_->status(url.path(), error);
    if (!followed) return ItemMetrics{.allocatedBytes = 0, .logicalBytes = 0, .fileCount = 0};
    return metricsOf(url.path(), *followed);
}

TrashPipeline::ItemMetrics TrashPipeline::metricsOf(const std::string& path, const FileStatus& followed) const {
    if (followed.kind != FileKind::directory) {
        // The item's own sizes: a link to a file is measured as the link.
        PlatformError error;
        const auto own = fileSystem_->linkStatus(path, error);
        const FileStatus& status = own ? *own : followed;
        return ItemMetrics{.allocatedBytes = status.allocatedSize, .logicalBytes = status.size, .fileCount = 1};
    }

    // Only regular files count, each time it is met (a hard-linked file is
    // counted at every name, as removal frees each name). An entry that
    // cannot be examined, or a directory that cannot be opened, simply adds
    // nothing, so an unreadable directory measures as an empty one. A link
    // to a directory is walked as that directory, as the existence test
    // followed it; what is removed later is still the link itself.
    const TreeMeasure tree = fileSystem_->measureTree(path, {.status = WalkStatus::regularFiles});
    ItemMetrics metrics;
    metrics.fileCount = tree.files.count;
    metrics.allocatedBytes = tree.files.allocatedBytes;
    metrics.logicalBytes = tree.files.logicalBytes;

    // An empty directory is still one item to remove.
    if (metrics.fileCount < 1) metrics.fileCount = 1;
    return metrics;
}

std::optional<std::string> TrashPipeline::recordAuditEntry(const TrashSummary& summary,
                                                           const std::vector<Outcome>& outcomes,
                                                           const std::string& client) const {
    if (!auditLogger_) return std::nullopt;

    const AuditOperationType type = summary.isPermanentPurge ? AuditOperationType::purge
                                    : summary.isDryRun       ? AuditOperationType::dryRun
                                                             : AuditOperationType::trash;
    // What is gone is in the log: the items that went, and those a purge
    // took only part of, with the bytes it did free.
    std::vector<std::string> paths;
    std::int64_t bytes = summary.totalAllocatedBytesUnbulked;
    for (const Outcome& outcome : outcomes) {
        const TrashItemRecord& item = outcome.record;
        if (item.status == TrashItemStatus::success || item.status == TrashItemStatus::simulated ||
            outcome.partiallyRemoved) {
            paths.push_back(item.sourcePath);
        }
        bytes = checkedAdd(bytes, outcome.partiallyRemovedBytes);
    }

    try {
        auditLogger_->record(summary.operationId, type, summary.successCount, bytes, paths, client,
                             summary.durationSeconds * 1000.0, clock_());
    } catch (const std::exception& failure) {
        // The items are gone (or in the Trash) whatever the log says; a log
        // that cannot be written must not make the operation look failed,
        // but it must not go unnoticed either.
        return failure.what();
    }
    return std::nullopt;
}

} // namespace unbulk
