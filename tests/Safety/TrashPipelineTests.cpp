#include "Safety/TrashPipeline.hpp"

#include <cerrno>
#include <filesystem>
#include <tuple>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include "support/FaultyFileSystem.hpp"
#include "support/TempHome.hpp"

namespace unbulk {
namespace {

namespace fs = std::filesystem;

// A link counts as there even when its target is not.
bool present(const std::string& path) { return fs::exists(fs::symlink_status(path)); }

std::int64_t allocatedOf(const std::string& path) {
    struct stat st;
    return ::lstat(path.c_str(), &st) == 0 ? static_cast<std::int64_t>(st.st_blocks) * 512 : -1;
}

// The real file system, except that right after the walk that measures
// `victim`, the directory there is replaced by a symbolic link to `target`:
// the worst moment for a swap, when the sandbox and the measurement have both
// seen a plain directory. Everything else is passed through.
struct SwappingFileSystem final : FileSystem {
    using P = const std::string&;
    using E = std::error_code&;
    using M = std::uint32_t;
    using V = std::string_view;
    using Text = std::optional<std::string>;
    using Entries = std::vector<DirectoryEntry>;

    std::string victim, target;
    mutable bool swapped = false;
    std::shared_ptr<FileSystem> real = makeDefaultFileSystem();

    void walk(P root, const WalkOptions& options, const WalkCallbacks& callbacks) const override {
        real->walk(root, options, callbacks);
        if (root != victim || swapped) return;
        fs::remove_all(victim);
        fs::create_directory_symlink(target, victim);
        swapped = true;
    }
    std::optional<FileStatus> status(P p, E e) const override { return real->status(p, e); }
    std::optional<FileStatus> linkStatus(P p, E e) const override { return real->linkStatus(p, e); }
    Entries contentsOfDirectory(P p, ListOptions o, E e) const override { return real->contentsOfDirectory(p, o, e); }
    Text destinationOfSymbolicLink(P p, E e) const override { return real->destinationOfSymbolicLink(p, e); }
    std::string resolvingSymlinks(P p) const override { return real->resolvingSymlinks(p); }
    Text readFile(P p, std::size_t n, E e) const override { return real->readFile(p, n, e); }
    bool writeFileAtomically(P p, V c, M m, E e) override { return real->writeFileAtomically(p, c, m, e); }
    bool appendToFile(P p, V c, M m, E e) override { return real->appendToFile(p, c, m, e); }
    bool createDirectory(P p, M m, bool w, E e) override { return real->createDirectory(p, m, w, e); }
    bool moveItem(P from, P to, E e) override { return real->moveItem(from, to, e); }
    bool removeItem(P p, E e) override { return real->removeItem(p, e); }
    bool setPermissions(P p, M m, E e) override { return real->setPermissions(p, m, e); }
    bool isPackage(P p) const override { return real->isPackage(p); }
};

class TrashPipelineTest : public ::testing::Test {
protected:
    // Logged to <home>/.unbulk/audit.jsonl through the same file system, or not logged at all.
    TrashPipeline pipeline(std::shared_ptr<FileSystem> fileSystem = makeDefaultFileSystem(), bool logged = true) {
        auto logger = logged ? std::make_shared<AuditLogger>(std::nullopt, homeURL, fileSystem) : nullptr;
        return TrashPipeline(fileSystem, makeDefaultTrash(), logger, homeURL);
    }

    testing::TempHome home;
    FileURL homeURL{home.path(), true};
    std::string logPath = home.at(".unbulk/audit.jsonl");
};

TEST_F(TrashPipelineTest, ArgumentErrorsComeFirstAndGoUnloggedWhileLogTroubleFailsNothing) {
    const std::string file = home.writeFile(".cache/tool/blob", 100);
    const auto empty = ::testing::ThrowsMessage<TrashPipelineError>("No target items provided for cleanup operation.");
    const auto unconfirmed = ::testing::ThrowsMessage<TrashPipelineError>(
        "Permanent purge was requested without explicit confirmation flag.");
    EXPECT_THAT([&] { pipeline().trash({}, true, "cli"); }, empty);
    EXPECT_THAT([&] { pipeline().purgePermanently({}, true, "cli"); }, empty);
    EXPECT_THAT([&] { pipeline().purgePermanently({}, false, "cli"); }, unconfirmed);
    EXPECT_THAT([&] { pipeline().purgePermanently({FileURL(file)}, false, "cli"); }, unconfirmed);
    EXPECT_TRUE(present(file));
    EXPECT_FALSE(present(logPath)) << "a refused operation is not logged";

    // Trouble with the audit log never fails the removal: a full disk creating the log, then a garbage line
    // already in it.
    auto faulty = std::make_shared<testing::FaultyFileSystem>();
    faulty->failOn(testing::FileSystemCall::writeFileAtomically, logPath, ENOSPC);
    for (const std::string existingLog : {"", "this is not json\n"}) {
        if (!existingLog.empty()) home.writeFile(".unbulk/audit.jsonl", existingLog);
        const std::string item = home.writeFile(".cache/item", 500);
        EXPECT_EQ(pipeline(faulty).trash({FileURL(item)}, false, "cli").totalLogicalBytesUnbulked, 500);
        EXPECT_FALSE(present(item));
        EXPECT_EQ(present(logPath) ? fs::file_size(logPath) : 0, existingLog.size()) << "no entry may be added";
    }
}

// Forbidden, missing and locked items fail in their own records while the
// rest goes, in every mode; a dry run refuses exactly what a real run does.
TEST_F(TrashPipelineTest, FailingItemsStopNothingInAnyMode) {
    const std::string document = home.writeFile("Documents/report.txt", 2000), missing = home.at(".cache/gone");
    const std::string absentForbidden = home.at("Documents/never-there.txt"), locked = home.at(".cache/locked");
    const std::string cache = home.at(".cache/tool"), onlyEmpty = home.at(".cache/onlyEmpty");
    const std::string refused = "' targets protected user directory 'Documents'.";
    const std::vector<std::string> failures{"Sandbox violation: Sandbox Violation: Path '" + document + refused,
                                            "Sandbox violation: Sandbox Violation: Path '" + absentForbidden + refused,
                                            "File does not exist: " + missing};

    auto faulty = std::make_shared<testing::FaultyFileSystem>();
    faulty->failOn(testing::FileSystemCall::removeItem, locked, EACCES);
    const auto pipe = pipeline(faulty);
    const std::vector<FileURL> urls{FileURL(document), FileURL(absentForbidden), FileURL(missing),
                                    FileURL(locked),   FileURL(cache),           FileURL(onlyEmpty)};
    for (AuditOperationType type : {AuditOperationType::dryRun, AuditOperationType::trash, AuditOperationType::purge}) {
        SCOPED_TRACE(std::string(rawValue(type)));
        const bool dry = type == AuditOperationType::dryRun, purge = type == AuditOperationType::purge;
        const std::string lockedData = home.writeFile(".cache/locked/data", 7000);
        const std::string blob = home.writeFile(".cache/tool/blob", 3000);
        const std::int64_t lockedAllocated = allocatedOf(lockedData);
        const std::int64_t cacheAllocated = allocatedOf(blob) + allocatedOf(home.writeFile(".cache/tool/index", 10));
        // A link is measured as itself, never followed.
        if (!present(cache + "/link")) home.makeSymlink(".cache/tool/link", lockedData);
        home.makeDirectory(".cache/onlyEmpty/a/b");
        const TrashSummary summary = purge ? pipe.purgePermanently(urls, true, "mcp") : pipe.trash(urls, dry, "mcp");

        ASSERT_EQ(summary.records.size(), 6u);
        for (std::size_t i = 0; i < 3; ++i) EXPECT_EQ(summary.records[i].errorMessage, failures[i]);
        const TrashItemRecord &lockedRecord = summary.records[3], &cacheRecord = summary.records[4];
        EXPECT_EQ(lockedRecord.errorMessage, purge ? std::optional<std::string>("Permission denied") : std::nullopt);
        EXPECT_EQ(lockedRecord.allocatedBytes, lockedAllocated) << "measured before the removal";
        EXPECT_EQ(std::tie(cacheRecord.status, cacheRecord.fileCount),
                  std::tuple(dry ? TrashItemStatus::simulated : TrashItemStatus::success, 2));
        EXPECT_EQ(cacheRecord.trashPath.value_or(""), !dry && !purge ? home.at(".local/share/Trash/files/tool") : "");
        const TrashItemRecord& empties = summary.records[5]; // a tree of empty directories is one item of 0 bytes
        EXPECT_EQ(std::tie(empties.fileCount, empties.allocatedBytes, empties.logicalBytes), std::tuple(1, 0, 0));
        EXPECT_EQ(std::tie(summary.successCount, summary.failureCount, summary.totalLogicalBytesUnbulked),
                  std::tuple(purge ? 2 : 3, purge ? 4 : 3, purge ? 3010 : 10010));
        EXPECT_EQ(summary.totalAllocatedBytesUnbulked, cacheAllocated + (purge ? 0 : lockedAllocated));
        EXPECT_EQ(std::tuple(present(document), present(blob), present(lockedData)),
                  std::tuple(true, dry, dry || purge));

        const AuditLogEntry entry = AuditLogger(std::nullopt, homeURL).readEntries().back();
        EXPECT_EQ(std::tie(entry.operationId, entry.operationType, entry.itemsCount, entry.bytesUnbulked, entry.client),
                  std::tuple(summary.operationId.string(), type, summary.successCount,
                             summary.totalAllocatedBytesUnbulked, "mcp"));
        EXPECT_EQ(entry.paths, (purge ? std::vector<std::string>{cache, onlyEmpty}
                                      : std::vector<std::string>{locked, cache, onlyEmpty}));
    }
}

TEST_F(TrashPipelineTest, ADirectorySwappedForALinkBeforeAPurgeIsRemovedAsALink) {
    // The link leads into Documents, which the sandbox would refuse had it
    // seen the link; it saw a directory, so only the removal stands between
    // the swap and the user's files.
    auto swapping = std::make_shared<SwappingFileSystem>();
    swapping->victim = fs::path(home.writeFile(".cache/victim/blob", 1234)).parent_path();
    swapping->target = fs::path(home.writeFile("Documents/keep/sentinel.txt", "precious")).parent_path();

    // Without a logger, nothing is logged.
    const auto summary = pipeline(swapping, false).purgePermanently({FileURL(swapping->victim)}, true, "cli");
    ASSERT_TRUE(swapping->swapped) << "the measurement never walked the victim";
    ASSERT_EQ(summary.successCount, 1) << summary.records[0].errorMessage.value_or("");
    EXPECT_EQ(summary.records[0].logicalBytes, 1234) << "measured before the swap";
    EXPECT_FALSE(present(swapping->victim)) << "the link itself is gone";
    EXPECT_EQ(fs::file_size(swapping->target + "/sentinel.txt"), 8u) << "what it led to is untouched";
    EXPECT_FALSE(present(home.at(".unbulk")));
}

} // namespace
} // namespace unbulk
