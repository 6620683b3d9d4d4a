#include "Safety/TrashPipeline.hpp"

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <tuple>

#include <sys/file.h>
#include <sys/wait.h>
#include <fcntl.h>
#include <unistd.h>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Platform/ByteCountFormatter.hpp"
#include "support/FaultyFileSystem.hpp"
#include "support/Files.hpp"
#include "support/ForwardingFileSystem.hpp"
#include "support/TempHome.hpp"

namespace unbulk {
namespace {

namespace fs = std::filesystem;
using ::testing::ThrowsMessage;

// A link counts as there even when its target is not.
bool present(const std::string& path) { return fs::exists(fs::symlink_status(path)); }

// The real file system, except that at one chosen moment a directory is
// replaced by a symbolic link to another: right after the walk that measures
// the item (the sandbox and the measurement have both seen a plain
// directory), or right after the links of the item's directories have been
// resolved (the resolved path has been judged as well). Everything else is
// passed through.
class SwappingFileSystem final : public testing::ForwardingFileSystem {
public:
    enum class Moment { afterMeasuring, afterResolving };

    SwappingFileSystem(Moment moment, std::string measured, std::string swapped, std::string target)
        : moment_(moment), measured_(std::move(measured)), swappedPath_(std::move(swapped)),
          target_(std::move(target)) {}

    void walk(const std::string& root, const WalkOptions& options, const WalkCallbacks& callbacks) const override {
        inner_->walk(root, options, callbacks);
        if (moment_ == Moment::afterMeasuring && root == measured_) swap();
    }
    std::string resolvingSymlinks(const std::string& path) const override {
        std::string resolved = inner_->resolvingSymlinks(path);
        if (moment_ == Moment::afterResolving && swappedPath_.starts_with(path)) swap();
        return resolved;
    }
    bool swapped() const { return swapped_; }

private:
    void swap() const {
        if (swapped_) return;
        fs::rename(swappedPath_, swappedPath_ + ".moved-away");
        fs::create_directory_symlink(target_, swappedPath_);
        swapped_ = true;
    }

    Moment moment_;
    std::string measured_, swappedPath_, target_;
    mutable bool swapped_ = false;
};

// A Trash that refuses every item with the error it was given.
struct RefusingTrash final : Trash {
    explicit RefusingTrash(PlatformError error) : refusal(std::move(error)) {}
    TrashMove trashItem(const std::string&, const Identity&, const AnchorCheck&) override {
        return TrashMove{.error = refusal};
    }
    PlatformError refusal;
};

// The real Trash, with the way to each item seen through a FaultyFileSystem's
// device answers: mounts need privileges that tests do not have.
struct DeviceReportingTrash final : Trash {
    explicit DeviceReportingTrash(std::shared_ptr<testing::FaultyFileSystem> faulty) : devices(std::move(faulty)) {}
    TrashMove trashItem(const std::string& path, const Identity& expected, const AnchorCheck& check) override {
        return inner->trashItem(path, expected, devices->withReportedDevices(check));
    }
    std::shared_ptr<testing::FaultyFileSystem> devices;
    std::shared_ptr<Trash> inner = makeDefaultTrash();
};

// The journals left in the log's folder.
std::vector<std::string> journalsIn(const std::string& folder) {
    std::vector<std::string> found;
    if (!fs::exists(folder)) return found;
    for (const auto& entry : fs::directory_iterator(folder))
        if (entry.path().filename().string().starts_with("audit.jsonl.journal-")) found.push_back(entry.path());
    return found;
}

class TrashPipelineTest : public ::testing::Test {
protected:
    // Logged to <home>/.unbulk/audit.jsonl through the same file system, or not logged at all.
    TrashPipeline pipeline(std::shared_ptr<FileSystem> fileSystem = makeDefaultFileSystem(), bool logged = true) {
        auto logger = logged ? std::make_shared<AuditLogger>(std::nullopt, homeURL, fileSystem) : nullptr;
        return TrashPipeline(fileSystem, makeDefaultTrash(), logger, homeURL, systemClock());
    }

    testing::TempHome home;
    FileURL homeURL{home.path(), true};
    std::string logPath = home.at(".unbulk/audit.jsonl");
};

// The unconfirmed purge is refused in the command-line tests, which see its
// sentence, no log and nothing touched.
TEST_F(TrashPipelineTest, AnEmptyListIsRefusedUnloggedWhileLogTroubleFailsNothing) {
    const auto empty = ThrowsMessage<TrashPipelineError>("No target items provided for cleanup operation.");
    EXPECT_THAT([&] { pipeline().trash({}, true, "cli"); }, empty);
    EXPECT_FALSE(present(logPath)) << "a refused operation is not logged";

    // Trouble with the audit log never fails the removal: a full disk creating the log, then a garbage line in it.
    auto faulty = std::make_shared<testing::FaultyFileSystem>();
    faulty->failOn(testing::FileSystemCall::appendUnderLock, logPath, ENOSPC);
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
        home.writeFile(".cache/tool/index", 10);
        // A link is measured as itself, never followed.
        if (!present(cache + "/link")) home.makeSymlink(".cache/tool/link", lockedData);
        const std::int64_t lockedAllocated = testing::diskUsage(locked).allocated;
        const std::int64_t cacheAllocated = testing::diskUsage(cache).allocated;
        home.makeDirectory(".cache/onlyEmpty/a/b");
        const TrashSummary summary = purge ? pipe.purgePermanently(urls, true, "mcp") : pipe.trash(urls, dry, "mcp");

        ASSERT_EQ(summary.records.size(), 6u);
        for (std::size_t i = 0; i < 3; ++i) EXPECT_EQ(summary.records[i].errorMessage, failures[i]);
        const TrashItemRecord &lockedRecord = summary.records[3], &cacheRecord = summary.records[4];
        EXPECT_EQ(lockedRecord.errorMessage,
                  purge ? std::optional<std::string>("Could not remove '" + locked + "': Permission denied")
                        : std::nullopt);
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

        const AuditLogEntry entry = AuditLogger(std::nullopt, homeURL, makeDefaultFileSystem()).readEntries().back();
        EXPECT_EQ(std::tie(entry.operationId, entry.operationType, entry.itemsCount, entry.bytesUnbulked, entry.client),
                  std::tuple(summary.operationId.string(), type, summary.successCount,
                             summary.totalAllocatedBytesUnbulked, "mcp"));
        EXPECT_EQ(entry.paths, (purge ? std::vector<std::string>{cache, onlyEmpty}
                                      : std::vector<std::string>{locked, cache, onlyEmpty}));
    }
}

TEST_F(TrashPipelineTest, AnItemSwappedForALinkAfterMeasuringIsLeftAlone) {
    // The link leads into Documents: the path is judged once more, with its
    // links, right before the removal, and the swap is caught there.
    const std::string victim = fs::path(home.writeFile(".cache/victim/blob", 1234)).parent_path();
    const std::string target = fs::path(home.writeFile("Documents/keep/sentinel.txt", "precious")).parent_path();
    for (bool purge : {false, true}) {
        SCOPED_TRACE(purge ? "purge" : "trash");
        home.writeFile(".cache/victim/blob", 1234);
        fs::remove_all(victim + ".moved-away");
        auto swapping = std::make_shared<SwappingFileSystem>(SwappingFileSystem::Moment::afterMeasuring, victim,
                                                             victim, target);
        const auto pipe = pipeline(swapping, false); // without a logger, nothing is logged
        const auto summary = purge ? pipe.purgePermanently({FileURL(victim)}, true, "cli")
                                   : pipe.trash({FileURL(victim)}, false, "cli");
        ASSERT_TRUE(swapping->swapped()) << "the measurement never walked the victim";
        EXPECT_EQ(summary.records[0].status, TrashItemStatus::failed);
        EXPECT_THAT(summary.records[0].errorMessage.value_or(""), ::testing::StartsWith("Sandbox violation: "));
        EXPECT_TRUE(fs::is_symlink(victim)) << "nothing was touched";
        EXPECT_EQ(fs::file_size(target + "/sentinel.txt"), 8u) << "what it led to is untouched";
        fs::remove(victim);
    }
    EXPECT_FALSE(present(home.at(".unbulk")));
}

// An attacker who can write in a cache folder swaps the cache folder itself
// for a link to a decoy in Documents holding a folder of the same name.
TEST_F(TrashPipelineTest, AParentSwappedForALinkNeverRedirectsTheRemoval) {
    const std::string caches = home.makeDirectory("Library/Caches");
    const std::string decoy = home.makeDirectory("Documents/decoy");
    for (auto moment : {SwappingFileSystem::Moment::afterMeasuring, SwappingFileSystem::Moment::afterResolving}) {
        for (bool purge : {false, true}) {
            SCOPED_TRACE(std::string(purge ? "purge " : "trash ") +
                         (moment == SwappingFileSystem::Moment::afterMeasuring ? "after measuring" : "after resolving"));
            fs::remove_all(caches);
            fs::remove_all(caches + ".moved-away");
            const std::string victim = fs::path(home.writeFile("Library/Caches/victim/data.bin", 64)).parent_path();
            const std::string precious = home.writeFile("Documents/decoy/victim/precious.txt", "thesis");
            auto swapping = std::make_shared<SwappingFileSystem>(moment, victim, caches, decoy);
            const auto pipe = pipeline(swapping);
            const auto summary = purge ? pipe.purgePermanently({FileURL(victim)}, true, "cli")
                                       : pipe.trash({FileURL(victim)}, false, "cli");
            ASSERT_TRUE(swapping->swapped());
            ASSERT_EQ(summary.records.size(), 1u);
            EXPECT_EQ(summary.records[0].status, TrashItemStatus::failed);
            EXPECT_EQ(fs::file_size(precious), 6u) << summary.records[0].errorMessage.value_or("");
            EXPECT_TRUE(present(caches + ".moved-away/victim/data.bin")) << "and the checked item is left alone too";
            EXPECT_FALSE(present(home.at(".local/share/Trash/files/victim")));
            EXPECT_TRUE(AuditLogger(std::nullopt, homeURL, makeDefaultFileSystem()).readEntries().back().paths.empty());
        }
    }
}

TEST_F(TrashPipelineTest, APurgeLeavesAnotherFileSystemInsideTheItemAndSaysWhatWent) {
    const std::string item = fs::path(home.writeFile(".cache/tool/a.bin", 4096)).parent_path();
    const std::string mounted = home.writeFile(".cache/tool/bound/precious.txt", "mounted documents");
    auto faulty = std::make_shared<testing::FaultyFileSystem>();
    faulty->reportDeviceBelow(home.at(".cache/tool/bound"), 4242);
    const auto summary = pipeline(faulty).purgePermanently({FileURL(item)}, true, "cli");
    const TrashItemRecord& record = summary.records.at(0);
    EXPECT_EQ(record.status, TrashItemStatus::failed);
    EXPECT_EQ(record.errorMessage.value_or(""), "Removed 1 of 2 files (" + formatByteCount(record.allocatedBytes) +
                                                    ") before stopping. Left '" + home.at(".cache/tool/bound") +
                                                    "' in place: it is on another file system");
    EXPECT_EQ(record.logicalBytes, 4096);
    EXPECT_EQ(fs::file_size(mounted), 17u);
    EXPECT_FALSE(present(home.at(".cache/tool/a.bin")));
    const AuditLogEntry entry = AuditLogger(std::nullopt, homeURL, makeDefaultFileSystem()).readEntries().back();
    EXPECT_EQ(entry.paths, std::vector<std::string>{item}) << "what went is in the log";
    EXPECT_EQ(entry.bytesUnbulked, record.allocatedBytes);
}

TEST_F(TrashPipelineTest, ALinkToADirectoryIsMeasuredThroughButRemovedAsTheLink) {
    home.writeFile("other/place/blob", 50'000);
    const std::string link = home.makeSymlink("Library/Caches/linked", home.at("other/place"));
    const std::string dangling = home.makeSymlink(".cache/whisper/dead.pt", "/nonexistent");
    const auto summary = pipeline().trash({FileURL(link), FileURL(dangling)}, false, "cli");
    const auto& [linked, dead] = std::tie(summary.records.at(0), summary.records.at(1));
    EXPECT_EQ(std::tie(linked.status, linked.logicalBytes, linked.fileCount),
              std::tuple(TrashItemStatus::success, 50'000, 1));
    EXPECT_TRUE(present(home.at("other/place/blob")));
    EXPECT_EQ(std::tie(dead.status, dead.errorMessage, dead.logicalBytes, dead.fileCount),
              std::tuple(TrashItemStatus::failed, "File does not exist: " + dangling, 0, 1));
    EXPECT_TRUE(present(dangling)) << "a dangling link is left alone";
}

// Foundation's sentence names the item and the reason and becomes the
// record's message as it stands; an error with only a number is told around
// the item's path.
TEST_F(TrashPipelineTest, ARefusedMoveIsToldInThePlatformsOwnWords) {
    const std::string item = home.writeFile(".cache/tool/blob", 3000);
    const std::string sentence = "\u201Cblob\u201D couldn\u2019t be moved to the Trash because you don\u2019t have "
                                 "permission to access it.";
    const std::pair<PlatformError, std::string> cases[] = {
        {PlatformError::fromDomain("NSCocoaErrorDomain", 513, sentence, EACCES), sentence},
        {PlatformError{{EACCES, std::generic_category()}, ""},
         "Could not move '" + item + "' to the Trash: Permission denied"},
    };
    for (const auto& [refusal, message] : cases) {
        const TrashPipeline pipe(makeDefaultFileSystem(), std::make_shared<RefusingTrash>(refusal), nullptr, homeURL,
                                 systemClock());
        const TrashItemRecord record = pipe.trash({FileURL(item)}, false, "cli").records.at(0);
        EXPECT_EQ(std::tie(record.status, record.errorMessage, record.logicalBytes),
                  std::tuple(TrashItemStatus::failed, message, 3000));
        EXPECT_TRUE(present(item));
    }
}

// ~/Documents bind-mounted at a cache folder, or over ~/Library/Caches
// itself, played by device answers: the mount point is refused, and so is
// everything in the home below a folder of another file system, in both
// modes, before anything is touched. Outside the home a folder of its own
// file system (a /tmp of its own) is no reason to refuse what lies in it.
TEST_F(TrashPipelineTest, RemovalNeverCrossesIntoAnotherFileSystem) {
    const std::string bound = fs::path(home.writeFile("Library/Caches/bound/thesis.txt", "years")).parent_path();
    const std::string below = fs::path(home.writeFile("Library/Caches/app/blob", 100)).parent_path();
    const std::string scratch = home.root() + "/scratch";
    fs::create_directories(scratch);
    for (bool purge : {false, true}) {
        SCOPED_TRACE(purge ? "purge" : "trash");
        const std::string outside = scratch + "/item.bin";
        std::ofstream(outside) << "scratch";
        for (const auto& [mount, item, reason] :
             {std::tuple(bound, bound, "Refused '" + bound + "': it is the mount point of another file system"),
              std::tuple(home.at("Library/Caches"), below,
                         "Refused '" + below + "': it lies below '" + home.at("Library/Caches") +
                             "', which is on another file system than the home")}) {
            auto faulty = std::make_shared<testing::FaultyFileSystem>();
            faulty->reportDeviceBelow(mount, 9999);
            faulty->reportDeviceBelow(scratch, 7777);
            const TrashPipeline pipe(faulty, std::make_shared<DeviceReportingTrash>(faulty),
                                     std::make_shared<AuditLogger>(std::nullopt, homeURL, faulty), homeURL,
                                     systemClock());
            const TrashSummary summary = purge ? pipe.purgePermanently({FileURL(item)}, true, "cli")
                                               : pipe.trash({FileURL(item)}, false, "cli");
            EXPECT_EQ(summary.records.at(0).status, TrashItemStatus::failed);
            EXPECT_EQ(summary.records.at(0).errorMessage.value_or(""), reason);
            EXPECT_TRUE(present(item + (item == bound ? "/thesis.txt" : "/blob")));
            const TrashSummary elsewhere = purge ? pipe.purgePermanently({FileURL(outside)}, true, "cli")
                                                 : pipe.trash({FileURL(outside)}, false, "cli");
            EXPECT_EQ(elsewhere.records.at(0).status, TrashItemStatus::success)
                << elsewhere.records.at(0).errorMessage.value_or("");
            std::ofstream(outside) << "scratch";
        }
    }
}

// A log that cannot be written (here a torn last line) fails nothing, but
// the handler hears of it, and the operation's journal stays; once the log
// is mended, the next operation (a dry run will do) writes the entry first.
TEST_F(TrashPipelineTest, AnUnrecordedOperationIsToldAndRecordedByTheNextOne) {
    std::vector<std::pair<std::string, std::string>> told;
    const auto tell = [&](const std::string& log, const std::string& reason) { told.emplace_back(log, reason); };
    const auto logger = std::make_shared<AuditLogger>(std::nullopt, homeURL, makeDefaultFileSystem());
    const TrashPipeline pipe(makeDefaultFileSystem(), makeDefaultTrash(), logger, homeURL, systemClock(), tell);
    home.writeFile(".unbulk/audit.jsonl", R"({"bytesUnbulked":12,"client")");
    const std::string item = home.writeFile(".cache/tool/blob", 3000);
    const TrashSummary summary = pipe.trash({FileURL(fs::path(item).parent_path())}, false, "mcp");
    EXPECT_EQ(summary.successCount, 1);
    ASSERT_EQ(told.size(), 1u);
    EXPECT_EQ(told[0].first, logPath);
    EXPECT_THAT(told[0].second, ::testing::StartsWith("Failed to parse audit log at line 1: "));
    EXPECT_EQ(TrashPipeline::unrecordedWarning(told[0].first, "why"),
              "Warning: this operation was not recorded in " + logPath + ": why");
    EXPECT_EQ(journalsIn(home.at(".unbulk")).size(), 1u);

    fs::remove(logPath);
    pipe.trash({FileURL(home.writeFile(".cache/other", 10))}, true, "cli");
    const auto entries = logger->readEntries();
    ASSERT_EQ(entries.size(), 2u);
    EXPECT_EQ(entries[0].operationId, summary.operationId.string());
    EXPECT_EQ(std::tie(entries[0].operationType, entries[0].itemsCount, entries[0].bytesUnbulked, entries[0].client),
              std::tuple(AuditOperationType::trash, 1, summary.totalAllocatedBytesUnbulked, "mcp"));
    EXPECT_EQ(entries[0].paths, std::vector<std::string>{home.at(".cache/tool")});
    EXPECT_EQ(entries[1].operationType, AuditOperationType::dryRun);
    EXPECT_TRUE(journalsIn(home.at(".unbulk")).empty());
    EXPECT_EQ(told.size(), 1u);
}

// Another process holds the log's lock and never lets go: the removal is
// done, the wait ends after the timeout, and the entry waits in the journal.
TEST_F(TrashPipelineTest, ALockHeldByAnotherProcessDelaysTheEntryButNeverTheRemoval) {
    home.writeFile(".unbulk/audit.jsonl", "");
    int ready[2], release[2];
    ASSERT_EQ(::pipe(ready), 0);
    ASSERT_EQ(::pipe(release), 0);
    const pid_t holder = ::fork();
    ASSERT_GE(holder, 0);
    if (holder == 0) {
        ::close(release[1]); // so that the parent's close is the end of the pipe
        const int fd = ::open(logPath.c_str(), O_RDWR);
        char byte = 0;
        if (fd >= 0 && ::flock(fd, LOCK_EX) == 0 && ::write(ready[1], "x", 1) == 1) {
            while (::read(release[0], &byte, 1) < 0 && errno == EINTR) {}
        }
        ::_exit(0);
    }
    ::close(release[0]);
    char byte = 0;
    ASSERT_EQ(::read(ready[0], &byte, 1), 1);

    std::vector<std::string> told;
    const auto logger = std::make_shared<AuditLogger>(std::nullopt, homeURL, makeDefaultFileSystem(),
                                                      std::chrono::milliseconds(200));
    const TrashPipeline pipe(makeDefaultFileSystem(), makeDefaultTrash(), logger, homeURL, systemClock(),
                             [&](const std::string&, const std::string& reason) { told.push_back(reason); });
    const std::string item = home.writeFile(".cache/item", 10);
    const auto started = std::chrono::steady_clock::now();
    EXPECT_EQ(pipe.purgePermanently({FileURL(item)}, true, "cli").successCount, 1);
    EXPECT_LT(std::chrono::steady_clock::now() - started, std::chrono::seconds(5));
    EXPECT_FALSE(present(item));
    EXPECT_EQ(told, std::vector<std::string>{"Failed to write audit log entry: Another process held the log's lock "
                                             "for more than 0.2 seconds"});
    EXPECT_EQ(journalsIn(home.at(".unbulk")).size(), 1u);

    ::close(release[1]);
    int status = 0;
    ::waitpid(holder, &status, 0);
    pipe.recordInterruptedOperations();
    ASSERT_EQ(logger->readEntries().size(), 1u);
    EXPECT_EQ(logger->readEntries()[0].paths, std::vector<std::string>{item});
    EXPECT_TRUE(journalsIn(home.at(".unbulk")).empty());
}

} // namespace
} // namespace unbulk