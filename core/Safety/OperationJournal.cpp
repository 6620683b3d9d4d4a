#include "Safety/OperationJournal.hpp"

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <exception>

#include "Support/Json.hpp"
#include "Support/Paths.hpp"

namespace unbulk {
namespace {

constexpr std::uint32_t journalMode = 0600;
constexpr std::uint32_t journalDirectoryMode = 0700;

std::string journalPrefix(const FileURL& logFileURL) { return paths::lastComponent(logFileURL.path()) + ".journal-"; }

// The path an entry records, back to the bytes it stands for.
std::string rawPath(const std::string& recorded) {
    const std::string_view prefix = AuditLogger::nonUtf8PathPrefix;
    if (!recorded.starts_with(prefix)) return recorded;
    auto hexValue = [](char c) -> int {
        if (c >= '0' && c <= '9') return c - '0';
        if (c >= 'A' && c <= 'F') return c - 'A' + 10;
        if (c >= 'a' && c <= 'f') return c - 'a' + 10;
        return -1;
    };
    std::string raw;
    for (std::size_t i = prefix.size(); i < recorded.size(); ++i) {
        if (recorded[i] == '%' && i + 2 < recorded.size() && hexValue(recorded[i + 1]) >= 0 &&
            hexValue(recorded[i + 2]) >= 0) {
            raw += static_cast<char>(hexValue(recorded[i + 1]) * 16 + hexValue(recorded[i + 2]));
            i += 2;
        } else {
            raw += recorded[i];
        }
    }
    return raw;
}

// One item as the journal tells it.
struct JournalItem {
    std::string path; // raw
    std::int64_t allocatedBytes = 0;
    bool finished = false;
    bool listed = false;
    bool succeeded = false;
    std::int64_t bytes = 0;
};

struct UnfinishedOperation {
    Uuid operationId;
    AuditOperationType operationType = AuditOperationType::trash;
    std::string client;
    std::vector<JournalItem> items;
    std::optional<double> durationMs;
};

// The operation the journal's text tells of, or nothing when not even its
// first line was written: then nothing was touched either. A line that does
// not read (the last one, cut by a crash) is passed over.
std::optional<UnfinishedOperation> readJournal(std::string_view text) {
    std::optional<UnfinishedOperation> operation;
    std::size_t start = 0;
    while (start < text.size()) {
        std::size_t end = text.find('\n', start);
        if (end == std::string_view::npos) end = text.size();
        const std::string_view line = text.substr(start, end - start);
        start = end + 1;
        try {
            const Json json = json::parse(line);
            if (!operation) {
                const auto id = Uuid::parse(json.at("operationId").get<std::string>());
                const auto type = fromRawValue<AuditOperationType>(json.at("operationType").get<std::string>());
                if (!id || !type) return std::nullopt;
                operation = UnfinishedOperation{*id, *type, json.at("client").get<std::string>(), {}, std::nullopt};
            } else if (json.contains("item")) {
                operation->items.push_back(
                    JournalItem{.path = rawPath(json.at("item").get<std::string>()),
                                .allocatedBytes = json.at("allocatedBytes").get<std::int64_t>()});
            } else if (json.contains("done")) {
                const std::string path = rawPath(json.at("done").get<std::string>());
                auto item = std::find_if(operation->items.rbegin(), operation->items.rend(),
                                         [&](const JournalItem& candidate) { return candidate.path == path; });
                if (item == operation->items.rend()) continue;
                item->finished = true;
                item->listed = json.at("listed").get<bool>();
                item->succeeded = json.at("succeeded").get<bool>();
                item->bytes = json.at("bytes").get<std::int64_t>();
            } else if (json.contains("durationMs")) {
                operation->durationMs = json.at("durationMs").get<double>();
            }
        } catch (const std::exception&) {
            if (!operation) return std::nullopt;
        }
    }
    return operation;
}

bool nothingAt(FileSystem& fileSystem, const std::string& path) {
    PlatformError error;
    return !fileSystem.linkStatus(path, error) && error == std::errc::no_such_file_or_directory;
}

} // namespace

std::unique_ptr<OperationJournal> OperationJournal::begin(FileSystem& fileSystem, const FileURL& logFileURL,
                                                          const Uuid& operationId, AuditOperationType operationType,
                                                          const std::string& client) {
    const std::string directory = paths::deletingLastComponent(logFileURL.path());
    PlatformError error;
    if (!fileSystem.fileExists(directory) &&
        !fileSystem.createDirectory(directory, journalDirectoryMode, true, error)) {
        return nullptr;
    }
    auto file = fileSystem.openLocked(paths::appending(directory, journalPrefix(logFileURL) + operationId.string()),
                                      LockedFileMode::createNew, journalMode, error);
    if (!file) return nullptr;
    auto journal = std::make_unique<OperationJournal>(std::move(file));
    journal->write(
        {{"operationId", operationId.string()}, {"operationType", rawValue(operationType)}, {"client", client}},
        true);
    return journal;
}

void OperationJournal::write(const Json& line, bool flush) {
    // A journal that cannot be written leaves the entry at the end of the
    // operation as the only record, which it was before journals existed.
    PlatformError ignored;
    file_->append(json::compact(line) + "\n", flush, ignored);
}

void OperationJournal::itemStarting(const std::string& path, std::int64_t allocatedBytes) {
    write({{"item", AuditLogger::recordedPath(path)}, {"allocatedBytes", allocatedBytes}}, true);
}

void OperationJournal::itemFinished(const std::string& path, bool listed, bool succeeded, std::int64_t bytes) {
    // Not flushed by itself: the next item's line, or the end of the
    // operation, flushes it with theirs. Should a crash lose it first, the
    // item still counts when nothing is left at its path.
    write({{"done", AuditLogger::recordedPath(path)}, {"listed", listed}, {"succeeded", succeeded}, {"bytes", bytes}},
          false);
}

void OperationJournal::operationFinished(double durationMs) { write({{"durationMs", durationMs}}, true); }

void OperationJournal::discard() {
    PlatformError ignored;
    file_->remove(ignored);
}

std::vector<std::string> OperationJournal::recoverUnfinished(FileSystem& fileSystem, AuditLogger& logger,
                                                            const Clock& clock) {
    std::vector<std::string> failures;
    const std::string directory = paths::deletingLastComponent(logger.logFileURL().path());
    const std::string prefix = journalPrefix(logger.logFileURL());
    PlatformError error;
    for (const DirectoryEntry& entry : fileSystem.contentsOfDirectory(directory, {}, error)) {
        if (!entry.name.starts_with(prefix) || entry.kind != FileKind::regular) continue;
        // Held by a running operation, or taken up by another recovery.
        auto file = fileSystem.openLocked(paths::appending(directory, entry.name), LockedFileMode::takeUp, journalMode,
                                          error);
        if (!file) continue;
        const auto text = file->readAll(error);
        if (!text) continue;
        const std::optional<UnfinishedOperation> operation = readJournal(*text);
        try {
            if (operation) {
                const std::string id = operation->operationId.string();
                const auto entries = logger.readEntries();
                const bool recorded = std::any_of(entries.begin(), entries.end(), [&](const AuditLogEntry& logged) {
                    return logged.operationId == id;
                });
                if (!recorded) {
                    std::vector<std::string> paths;
                    std::int64_t itemsCount = 0, bytes = 0;
                    for (const JournalItem& item : operation->items) {
                        const bool gone = !item.finished && nothingAt(fileSystem, item.path);
                        if (item.finished ? item.listed : gone) paths.push_back(item.path);
                        if (item.finished ? item.succeeded : gone) ++itemsCount;
                        // A journal is read back from disk: a damaged number
                        // saturates rather than stopping the program.
                        const std::int64_t freed = item.finished ? item.bytes : gone ? item.allocatedBytes : 0;
                        if (__builtin_add_overflow(bytes, freed, &bytes)) bytes = INT64_MAX;
                    }
                    logger.record(operation->operationId, operation->operationType, itemsCount, bytes, paths,
                                  operation->client, operation->durationMs, clock());
                }
            }
        } catch (const std::exception& failure) {
            failures.push_back(failure.what());
            continue;
        }
        file->remove(error);
    }
    return failures;
}

} // namespace unbulk
