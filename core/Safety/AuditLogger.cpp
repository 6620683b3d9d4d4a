#include "Safety/AuditLogger.hpp"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <limits>

#include "Support/Json.hpp"
#include "Support/Paths.hpp"
#include "Support/Sha256.hpp"
#include "Support/Unicode.hpp"

namespace unbulk {
namespace {

using Kind = AuditLoggerError::Kind;

constexpr std::uint32_t logFileMode = 0600;
constexpr std::uint32_t logDirectoryMode = 0700;

AuditLoggerError writeFailed(std::string text) { return AuditLoggerError(Kind::writeFailed, std::move(text)); }

bool isValidUtf8(std::string_view text) { return unicode::isAscii(text) || unicode::scalars(text).has_value(); }

// The length of the line break that starts at `i`, or 0. Line breaks are
// those of Unicode's newline set: LF, VT, FF, CR, NEL, LINE SEPARATOR and
// PARAGRAPH SEPARATOR. "\r\n" counts as two, and the empty line between them
// is dropped as blank. The text is valid UTF-8 here, so the lead bytes 0xC2
// and 0xE2 cannot be continuation bytes of something else.
std::size_t newlineLength(std::string_view text, std::size_t i) {
    const auto byte = static_cast<unsigned char>(text[i]);
    if (byte >= 0x0A && byte <= 0x0D) return 1;
    auto at = [&](std::size_t k) { return k < text.size() ? static_cast<unsigned char>(text[k]) : 0u; };
    if (byte == 0xC2 && at(i + 1) == 0x85) return 2;
    if (byte == 0xE2 && at(i + 1) == 0x80 && (at(i + 2) == 0xA8 || at(i + 2) == 0xA9)) return 3;
    return 0;
}

std::vector<std::string_view> splitLines(std::string_view text) {
    std::vector<std::string_view> lines;
    std::size_t start = 0;
    std::size_t i = 0;
    while (i < text.size()) {
        if (std::size_t length = newlineLength(text, i)) {
            lines.push_back(text.substr(start, i - start));
            i += length;
            start = i;
        } else {
            ++i;
        }
    }
    lines.push_back(text.substr(start));
    return lines;
}

// One compact line in the shared encoding of Support/Json, which escapes
// every character that a reader could take for a line break.
std::string encodeLine(const AuditLogEntry& entry) {
    // A non-finite duration has no JSON form.
    if (!std::isfinite(entry.durationMs.value_or(0.0)) || !isValidUtf8(entry.client)) {
        throw writeFailed("Failed to encode audit entry to JSON.");
    }
    return json::compact(toJson(entry)) + '\n';
}

// Every line of the log text, decoded, or decodingFailed at the first that
// is not an entry. Blank lines are skipped and not counted.
std::vector<AuditLogEntry> decodeEntries(std::string_view contents) {
    if (!isValidUtf8(contents)) {
        throw AuditLoggerError(Kind::readFailed, "Could not read audit log: the file is not valid UTF-8 text");
    }
    std::vector<AuditLogEntry> entries;
    std::int64_t lineNumber = 0;
    for (std::string_view line : splitLines(contents)) {
        if (unicode::trimmingWhitespaceAndNewlines(line).empty()) continue;
        ++lineNumber;
        try {
            entries.push_back(auditLogEntryFromJson(json::parse(line)));
        } catch (const std::exception& decoding) {
            throw AuditLoggerError(Kind::decodingFailed, decoding.what(), lineNumber);
        }
    }
    return entries;
}

// The hash the next entry chains on: the rollingHash of the log's last
// entry, or the genesis hash when it has none. Nothing when the log cannot be
// read, for the append to fail with that.
//
// Only the end of the log is read: a clean must not cost a read and a decode
// of every entry ever made. The lines after a line feed near the end are the
// log's last lines exactly as a split of the whole text gives them (a line
// feed ends a line wherever it stands, and no longer line break holds one),
// so decoding them finds the last entry as decoding the whole log would.
// Should they hold no entry, more is read; should anything in them be wrong
// (a torn or foreign last line, bytes that are not UTF-8), the whole log is
// decoded after all, to fail exactly as that does, with the line's number.
// What is wrong further back than the end that was read (a line of garbage
// in the middle of a long log) no longer stops a record: it is the
// integrity check's to find, as any other tampering is.
std::optional<std::string> lastRollingHash(const LockedContents& log) {
    const std::uint64_t size = log.size();
    for (std::uint64_t length = 64 * 1024; length < size; length *= 4) {
        const std::optional<std::string> tail = log.read(size - length, static_cast<std::size_t>(length));
        if (!tail) return std::nullopt;
        const std::size_t lineFeed = tail->find('\n');
        if (lineFeed == std::string::npos) continue; // inside one long last line
        try {
            const std::vector<AuditLogEntry> last = decodeEntries(std::string_view(*tail).substr(lineFeed + 1));
            if (!last.empty()) return last.back().rollingHash;
        } catch (const AuditLoggerError&) {
            break;
        }
    }
    const std::optional<std::string> whole = log.read(0, static_cast<std::size_t>(size));
    if (!whole) return std::nullopt;
    const std::vector<AuditLogEntry> entries = decodeEntries(*whole);
    return entries.empty() ? std::string(AuditLogger::genesisHash) : entries.back().rollingHash;
}

} // namespace

AuditLogger::AuditLogger(std::optional<FileURL> logFileURL, FileURL homeURL, std::shared_ptr<FileSystem> fileSystem,
                         std::chrono::milliseconds lockTimeout)
    : logFileURL_(logFileURL ? std::move(*logFileURL) : defaultLogFile(homeURL)),
      fileSystem_(std::move(fileSystem)), lockTimeout_(lockTimeout) {}

FileURL AuditLogger::defaultLogDirectory(const FileURL& homeURL) { return homeURL.appending(".unbulk", true); }

FileURL AuditLogger::defaultLogFile(const FileURL& homeURL) {
    return defaultLogDirectory(homeURL).appending("audit.jsonl");
}

std::optional<std::string> AuditLogger::lastHash() const {
    std::lock_guard lock(mutex_);
    return lastHash_;
}

std::string AuditLogger::durationText(std::optional<double> durationMs) {
    if (!durationMs) return "0.0";
    const double value = *durationMs;
    if (!std::isfinite(value)) return fmt::format("{}", value); // "nan", "inf", "-inf"
    // The text is the shortest plain decimal that reads back as the same
    // double, with ".0" behind a whole number. A whole number is written with
    // its exact digits (1e23 is 99999999999999991611392.0), being as short as
    // any other and closest. Otherwise {fmt}'s shortest digits, which may come
    // in exponent form, are placed in fixed notation. (std::to_chars would do
    // all of this, but its floating-point overloads need macOS 13.3.)
    if (value == std::trunc(value)) return fmt::format("{:.0f}.0", value);
    std::string shortest = fmt::format("{}", std::fabs(value));
    int exponent = 0;
    if (const auto e = shortest.find('e'); e != std::string::npos) {
        exponent = std::stoi(shortest.substr(e + 1));
        shortest.erase(e);
    }
    std::string digits = shortest;
    int point = static_cast<int>(digits.size());
    if (const auto dot = digits.find('.'); dot != std::string::npos) {
        digits.erase(dot, 1);
        point = static_cast<int>(dot);
    }
    point += exponent;
    // A value below one in exponent form: "0." and the zeros up to its digits.
    std::string text = std::signbit(value) ? "-" : "";
    if (point <= 0) {
        text += "0.";
        text.append(static_cast<std::size_t>(-point), '0');
        text += digits;
    } else {
        text += digits.substr(0, static_cast<std::size_t>(point));
        text += '.';
        text += digits.substr(static_cast<std::size_t>(point));
    }
    return text;
}

std::string AuditLogger::computeHash(std::string_view previousHash, std::string_view timestamp,
                                     std::string_view operationId, std::string_view operationType,
                                     std::int64_t itemsCount, std::int64_t bytesUnbulked,
                                     const std::vector<std::string>& paths, std::string_view client,
                                     std::optional<double> durationMs) {
    std::vector<std::string> sorted = paths;
    std::sort(sorted.begin(), sorted.end());
    std::string joinedPaths;
    for (std::size_t i = 0; i < sorted.size(); ++i) {
        if (i > 0) joinedPaths += ',';
        joinedPaths += sorted[i];
    }

    const std::string items = std::to_string(itemsCount);
    const std::string bytes = std::to_string(bytesUnbulked);
    const std::string duration = durationText(durationMs);
    const std::string_view fields[] = {previousHash, timestamp, operationId, operationType, items,
                                       bytes,        client,    duration,    joinedPaths};
    std::string text;
    for (std::size_t i = 0; i < std::size(fields); ++i) {
        if (i > 0) text += '|';
        text += fields[i];
    }
    return sha256Hex(text);
}

std::string AuditLogger::recordedPath(std::string_view path) {
    if (isValidUtf8(path) && !path.starts_with(nonUtf8PathPrefix)) return std::string(path);
    // Bytes that are not UTF-8, and "%", as %XX; valid characters as they
    // are. Reversible, and never mistaken for an absolute path.
    std::string text(nonUtf8PathPrefix);
    std::size_t i = 0;
    while (i < path.size()) {
        const std::size_t length = unicode::validUtf8SequenceLength(path.substr(i));
        if (length == 0 || path[i] == '%') {
            text += fmt::format("%{:02X}", static_cast<unsigned char>(path[i]));
            i += 1;
        } else {
            text.append(path.substr(i, length));
            i += length;
        }
    }
    return text;
}

AuditLogEntry AuditLogger::record(const Uuid& operationId, AuditOperationType operationType, std::int64_t itemsCount,
                                  std::int64_t bytesUnbulked, const std::vector<std::string>& paths,
                                  const std::string& client, std::optional<double> durationMs, Date date) {
    std::lock_guard lock(mutex_);
    ensureDirectoryExists();

    AuditLogEntry entry;
    entry.timestamp = dates::iso8601Milliseconds(date);
    entry.operationId = operationId.string();
    entry.operationType = operationType;
    entry.itemsCount = itemsCount;
    entry.bytesUnbulked = bytesUnbulked;
    for (const std::string& path : paths) entry.paths.push_back(recordedPath(path));
    entry.client = client;
    entry.durationMs = durationMs;

    // The file is the authority on the chain, whatever this instance wrote
    // last: its last entry is read, and the new one appended, under one lock
    // on the file, so that another process appending at the same moment
    // neither loses its entry nor chains on the same one.
    std::optional<AuditLoggerError> failure;
    const auto compose = [&](const LockedContents& contents) -> std::optional<std::string> {
        try {
            const std::optional<std::string> previous = lastRollingHash(contents);
            if (!previous) return std::nullopt; // unreadable: the append fails with the read's error
            entry.previousHash = *previous;
            lastHash_ = entry.previousHash;
            entry.rollingHash =
                computeHash(entry.previousHash, entry.timestamp, entry.operationId, rawValue(operationType),
                            itemsCount, bytesUnbulked, entry.paths, client, durationMs);
            return encodeLine(entry);
        } catch (const AuditLoggerError& error) {
            failure = error;
            return std::nullopt;
        }
    };
    PlatformError error;
    if (!fileSystem_->appendUnderLock(logFileURL_.path(), logFileMode, lockTimeout_, compose, error)) {
        if (error == std::errc::timed_out) {
            throw writeFailed(fmt::format("Another process held the log's lock for more than {} seconds",
                                          std::chrono::duration<double>(lockTimeout_).count()));
        }
        throw writeFailed("Failed to append data to log file: " + error.message());
    }
    if (failure) throw *failure;
    lastHash_ = entry.rollingHash;
    return entry;
}

void AuditLogger::ensureDirectoryExists() {
    const std::string directory = paths::deletingLastComponent(logFileURL_.path());
    if (fileSystem_->fileExists(directory)) return;
    PlatformError error;
    if (!fileSystem_->createDirectory(directory, logDirectoryMode, true, error)) {
        throw AuditLoggerError(Kind::directoryCreationFailed, error.message());
    }
}

std::vector<AuditLogEntry> AuditLogger::readEntries() const {
    std::lock_guard lock(mutex_);
    return readEntriesLocked();
}

std::vector<AuditLogEntry> AuditLogger::readEntriesLocked() const {
    const std::string& path = logFileURL_.path();
    if (!fileSystem_->fileExists(path)) return {};

    PlatformError error;
    auto contents = fileSystem_->readFile(path, std::numeric_limits<std::size_t>::max(), error);
    if (!contents) throw AuditLoggerError(Kind::readFailed, "Could not read audit log: " + error.message());
    return decodeEntries(*contents);
}

AuditVerificationResult AuditLogger::verifyIntegrity() const {
    std::lock_guard lock(mutex_);
    const std::vector<AuditLogEntry> entries = readEntriesLocked();

    AuditVerificationResult result;
    result.totalEntries = static_cast<std::int64_t>(entries.size());
    auto invalid = [&](std::int64_t n, std::string reason) {
        result.isValid = false;
        result.tamperedLineIndex = n - 1;
        result.failureReason = std::move(reason);
        return result;
    };

    std::string expected(genesisHash);
    std::int64_t n = 0;
    for (const auto& entry : entries) {
        ++n;
        if (entry.previousHash != expected) {
            return invalid(n, "Previous hash mismatch at line " + std::to_string(n) + ". Expected " + expected +
                                  ", got " + entry.previousHash);
        }
        const std::string computed =
            computeHash(entry.previousHash, entry.timestamp, entry.operationId, rawValue(entry.operationType),
                        entry.itemsCount, entry.bytesUnbulked, entry.paths, entry.client, entry.durationMs);
        if (computed != entry.rollingHash) {
            return invalid(n, "Rolling hash mismatch at line " + std::to_string(n) +
                                  ". Content was modified. Computed " + computed + ", stored " + entry.rollingHash);
        }
        expected = entry.rollingHash;
    }
    result.isValid = true;
    return result;
}

} // namespace unbulk
