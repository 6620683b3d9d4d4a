#include "Safety/TrashPipeline.hpp"

#include <chrono>
#include <exception>
#include <system_error>
#include <utility>

#include "Safety/SandboxSecurityError.hpp"
#include "Safety/SandboxValidator.hpp"
#include "Support/Uuid.hpp"

namespace unbulk {

TrashPipeline::TrashPipeline(std::shared_ptr<FileSystem> fileSystem, std::shared_ptr<Trash> trash,
                             std::shared_ptr<AuditLogger> auditLogger, FileURL homeURL)
    : fileSystem_(std::move(fileSystem)), trash_(std::move(trash)), auditLogger_(std::move(auditLogger)),
      homeURL_(std::move(homeURL)) {}

TrashSummary TrashPipeline::trash(const std::vector<FileURL>& urls, bool dryRun, const std::string& client) const {
    if (urls.empty()) throw TrashPipelineError(TrashPipelineError::Kind::emptyTargetList);
    return run(urls, dryRun, false, client);
}

TrashSummary TrashPipeline::purgePermanently(const std::vector<FileURL>& urls, bool confirmed,
                                             const std::string& client) const {
    // The missing confirmation is the graver mistake, so it is the one named
    // even when the list is empty as well.
    if (!confirmed) throw TrashPipelineError(TrashPipelineError::Kind::unconfirmedPermanentPurge);
    if (urls.empty()) throw TrashPipelineError(TrashPipelineError::Kind::emptyTargetList);
    return run(urls, false, true, client);
}

TrashSummary TrashPipeline::run(const std::vector<FileURL>& urls, bool dryRun, bool permanentPurge,
                                const std::string& client) const {
    const Date startedAt = std::chrono::system_clock::now();
    const Uuid operationId = Uuid::random();

    std::vector<TrashItemRecord> records;
    records.reserve(urls.size());
    for (const FileURL& url : urls)
        records.push_back(processItem(url, dryRun, permanentPurge));

    TrashSummary summary = TrashSummary::make({
        .operationId = operationId,
        .isDryRun = dryRun,
        .isPermanentPurge = permanentPurge,
        .records = std::move(records),
        .startedAt = startedAt,
        .completedAt = std::chrono::system_clock::now(),
    });
    recordAuditEntry(summary, client);
    return summary;
}

TrashItemRecord TrashPipeline::processItem(const FileURL& url, bool dryRun, bool permanentPurge) const {
    const std::string& path = url.path();
    auto record = [&](TrashItemStatus status, const ItemMetrics& metrics, std::optional<FileURL> trashURL,
                      std::optional<std::string> errorMessage) {
        return TrashItemRecord::make({
            .sourceURL = url,
            .trashURL = std::move(trashURL),
            .allocatedBytes = metrics.allocatedBytes,
            .logicalBytes = metrics.logicalBytes,
            .fileCount = metrics.fileCount,
            .status = status,
            .errorMessage = std::move(errorMessage),
        });
    };
    const ItemMetrics nothing{.allocatedBytes = 0, .logicalBytes = 0, .fileCount = 1};

    // The sandbox comes first, in a dry run too, so that a simulation refuses
    // exactly what a real run would, and a forbidden path is reported as
    // forbidden whether or not it exists.
    try {
        SandboxValidator::validatePath(path, homeURL_, *fileSystem_);
    } catch (const SandboxSecurityError& violation) {
        return record(TrashItemStatus::failed, nothing, std::nullopt, "Sandbox violation: " + violation.description());
    }

    // lstat: a link whose target is gone is still there to be removed.
    std::error_code error;
    const auto status = fileSystem_->linkStatus(path, error);
    if (!status) return record(TrashItemStatus::failed, nothing, std::nullopt, "File does not exist: " + path);

    // Afterwards there is nothing left to measure.
    const ItemMetrics metrics = metricsOf(path, *status);

    if (dryRun) return record(TrashItemStatus::simulated, metrics, std::nullopt, std::nullopt);

    // The path goes down exactly as it was checked: nothing here resolves it,
    // and both removals act on the last component itself, never on what a
    // link there points to.
    if (!permanentPurge) {
        std::optional<std::string> landedPath;
        if (!trash_->trashItem(path, landedPath, error)) {
            return record(TrashItemStatus::failed, metrics, std::nullopt, error.message());
        }
        std::optional<FileURL> trashURL;
        if (landedPath) trashURL = fileSystem_->fileURL(*landedPath);
        return record(TrashItemStatus::success, metrics, std::move(trashURL), std::nullopt);
    }

    if (!fileSystem_->removeItem(path, error)) {
        return record(TrashItemStatus::failed, metrics, std::nullopt, error.message());
    }
    return record(TrashItemStatus::success, metrics, std::nullopt, std::nullopt);
}

TrashPipeline::ItemMetrics TrashPipeline::computeItemMetrics(const FileURL& url) const {
    std::error_code error;
    const auto status = fileSystem_->linkStatus(url.path(), error);
    if (!status) return ItemMetrics{.allocatedBytes = 0, .logicalBytes = 0, .fileCount = 0};
    return metricsOf(url.path(), *status);
}

TrashPipeline::ItemMetrics TrashPipeline::metricsOf(const std::string& path, const FileStatus& status) const {
    if (status.kind != FileKind::directory) {
        return ItemMetrics{.allocatedBytes = status.allocatedSize, .logicalBytes = status.size, .fileCount = 1};
    }

    // Only regular files count, each time it is met (a hard-linked file is
    // counted at every name, as removal frees each name). An entry that
    // cannot be examined, or a directory that cannot be opened, simply adds
    // nothing, so an unreadable directory measures as an empty one. lstat
    // always reports the blocks on disk, so the allocated size needs no
    // stand-in from the logical length.
    ItemMetrics metrics;
    WalkOptions options;
    options.status = WalkStatus::regularFiles;
    WalkCallbacks callbacks;
    callbacks.visit = [&metrics](const WalkEntry& entry) {
        if (entry.kind == FileKind::regular && entry.status != nullptr) {
            metrics.fileCount += 1;
            metrics.allocatedBytes += entry.status->allocatedSize;
            metrics.logicalBytes += entry.status->size;
        }
        return WalkAction::proceed;
    };
    callbacks.onError = [](const std::string&, std::error_code, WalkFailure) {};
    fileSystem_->walk(path, options, callbacks);

    // An empty directory is still one item to remove.
    if (metrics.fileCount < 1) metrics.fileCount = 1;
    return metrics;
}

void TrashPipeline::recordAuditEntry(const TrashSummary& summary, const std::string& client) const {
    if (!auditLogger_) return;

    const AuditOperationType type = summary.isPermanentPurge ? AuditOperationType::purge
                                    : summary.isDryRun       ? AuditOperationType::dryRun
                                                             : AuditOperationType::trash;
    std::vector<std::string> paths;
    for (const TrashItemRecord& item : summary.records) {
        if (item.status == TrashItemStatus::success || item.status == TrashItemStatus::simulated) {
            paths.push_back(item.sourcePath);
        }
    }

    try {
        auditLogger_->record(summary.operationId, type, summary.successCount, summary.totalAllocatedBytesUnbulked,
                             paths, client, summary.durationSeconds * 1000.0, std::chrono::system_clock::now());
    } catch (const std::exception&) {
        // The items are gone (or in the Trash) whatever the log says; a log
        // that cannot be written must not make the operation look failed.
    }
}

} // namespace unbulk
