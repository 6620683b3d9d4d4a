#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Models/SafetyModels.hpp"
#include "Platform/Clock.hpp"
#include "Platform/FileSystem.hpp"
#include "Safety/AuditLogger.hpp"
#include "Support/Dates.hpp"
#include "Support/Uuid.hpp"

namespace unbulk {

// The removal in progress, written down beside the audit log so that nothing
// removed goes unrecorded: each item before it is touched, what became of it
// afterwards, and the end of the operation, every line flushed to disk. Once
// the operation's entry is in the log the journal goes. One that is left over
// (the process was killed, the machine lost power, the log could not be
// written or stayed locked) is turned into the entry it should have been by
// the next operation, through recoverUnfinished.
//
// Each operation has a journal of its own, "<log file name>.journal-<operation
// id>" in the log's folder, and holds it under an exclusive lock while it
// runs; a journal whose lock can be had belongs to no running operation.
class OperationJournal {
public:
    // Starts the journal of an operation that is about to touch the disk.
    // Nothing when it cannot be written: the operation goes on without one,
    // and its entry is still written to the log at its end.
    static std::unique_ptr<OperationJournal> begin(FileSystem& fileSystem, const FileURL& logFileURL,
                                                   const Uuid& operationId, AuditOperationType operationType,
                                                   const std::string& client);

    // Before the item at `path` is touched, with the bytes it holds.
    void itemStarting(const std::string& path, std::int64_t allocatedBytes);
    // After: whether its path belongs in the entry (gone, or partly gone),
    // whether it counts as done, and the bytes it freed.
    void itemFinished(const std::string& path, bool listed, bool succeeded, std::int64_t bytes);
    // Every item is handled; what is left is writing the entry.
    void operationFinished(double durationMs);
    // The entry is in the log: the journal is removed.
    void discard();

    // Every journal of the log that `logger` writes, which no running
    // operation holds, becomes its entry and is removed: items written down
    // with their outcome count as that outcome says, and items that were
    // being touched when the work stopped count when nothing is left at
    // their path (moved to the Trash or deleted). An operation whose entry
    // the log holds already is not written twice. Answers why, for each
    // journal that could not be recorded; those stay for the next time.
    // The entries are stamped with the time of their recovery.
    static std::vector<std::string> recoverUnfinished(FileSystem& fileSystem, AuditLogger& logger,
                                                      const Clock& clock);

    explicit OperationJournal(std::unique_ptr<LockedFile> file) : file_(std::move(file)) {}

private:
    void write(const Json& line, bool flush);

    std::unique_ptr<LockedFile> file_;
};

} // namespace unbulk
