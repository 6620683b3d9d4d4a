#pragma once

#include <cstdint>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Models/SafetyModels.hpp"
#include "Platform/FileSystem.hpp"
#include "Safety/AuditLoggerError.hpp"
#include "Support/Dates.hpp"
#include "Support/FileURL.hpp"
#include "Support/Uuid.hpp"

namespace unbulk {

// The tamper-evident record of cleanup operations: a file of JSON lines, each
// entry carrying a SHA-256 over its own field values and the hash of the
// entry before it, so that changing, removing or reordering a line breaks the
// chain (removing the last line alone goes unnoticed).
//
// The file is the authority: every record() reads the end of the log and
// chains on its last entry, never on what this instance remembers, so entries
// written by another instance or process are chained correctly: the read and
// the append happen under an advisory lock on the file, waited for at most
// lockTimeout, so that a process that holds it forever cannot hold a cleanup
// with it. Operations of one instance are serialised on one mutex.
class AuditLogger {
public:
    // The previousHash of the first entry: 64 times "0".
    static constexpr std::string_view genesisHash = "0000000000000000000000000000000000000000000000000000000000000000";

    static constexpr std::chrono::milliseconds defaultLockTimeout{10'000};

    // Without a log file URL the log is <home>/.unbulk/audit.jsonl. Nothing
    // touches the disk until the first call.
    AuditLogger(std::optional<FileURL> logFileURL, FileURL homeURL, std::shared_ptr<FileSystem> fileSystem,
                std::chrono::milliseconds lockTimeout = defaultLockTimeout);

    static FileURL defaultLogDirectory(const FileURL& homeURL);
    static FileURL defaultLogFile(const FileURL& homeURL);

    // Appends one entry, stamped `date`, chained on the log's last one
    // (creating the directory with mode 0700 and the file with mode 0600
    // when missing) and returns it.
    // On failure nothing has been added and the file is as it was.
    AuditLogEntry record(const Uuid& operationId, AuditOperationType operationType, std::int64_t itemsCount,
                         std::int64_t bytesUnbulked, const std::vector<std::string>& paths, const std::string& client,
                         std::optional<double> durationMs, Date date);

    // Every entry in file order; a missing file has none. Blank lines are
    // skipped; the first line that does not decode fails the whole read.
    std::vector<AuditLogEntry> readEntries() const;

    // Walks the chain and stops at the first entry whose previousHash or
    // rollingHash is wrong.
    AuditVerificationResult verifyIntegrity() const;

    // The hash of one entry: SHA-256 as lower-case hex over
    //   previousHash|timestamp|operationId|operationType|itemsCount|bytesUnbulked|client|duration|paths
    // where paths are sorted by byte order and joined by "," (nothing is
    // escaped) and duration is durationText(durationMs). operationType is
    // the raw value.
    static std::string computeHash(std::string_view previousHash, std::string_view timestamp,
                                   std::string_view operationId, std::string_view operationType,
                                   std::int64_t itemsCount, std::int64_t bytesUnbulked,
                                   const std::vector<std::string>& paths, std::string_view client,
                                   std::optional<double> durationMs);

    // The duration as it enters the hash. THIS FORMAT MUST NEVER CHANGE: every
    // existing log verifies only as long as old entries hash to the same text.
    // The shortest plain decimal that reads back as the same double, never in
    // exponent form, always with a decimal point: 1234.5 -> "1234.5",
    // 100 -> "100.0", 1e-7 -> "0.0000001"; absent -> "0.0".
    static std::string durationText(std::optional<double> durationMs);

    // How a path stands in an entry. Text that is valid UTF-8 stands as it
    // is. A path with bytes that are not (a Linux file name may hold any) is
    // written "bytes:" and then the path with each such byte, and each "%",
    // as %XX in upper-case hex: lossless, and never taken for a real path,
    // since the paths of a removal are absolute.
    static std::string recordedPath(std::string_view path);
    static constexpr std::string_view nonUtf8PathPrefix = "bytes:";

    const FileURL& logFileURL() const { return logFileURL_; }
    // The last hash read or written; absent until the first record().
    std::optional<std::string> lastHash() const;

private:
    std::vector<AuditLogEntry> readEntriesLocked() const;
    void ensureDirectoryExists();

    FileURL logFileURL_;
    std::shared_ptr<FileSystem> fileSystem_;
    std::chrono::milliseconds lockTimeout_;
    mutable std::mutex mutex_;
    std::optional<std::string> lastHash_;
};

} // namespace unbulk
