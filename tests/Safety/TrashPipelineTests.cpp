#include "Safety/TrashPipeline.hpp"

#include <cerrno>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <set>
#include <string>
#include <system_error>
#include <vector>

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "Safety/SandboxSecurityError.hpp"
#include "Safety/SandboxValidator.hpp"
#include "support/FaultyFileSystem.hpp"
#include "support/TempHome.hpp"

namespace unbulk {
namespace {

namespace fs = std::filesystem;
using testing::FaultyFileSystem;
using testing::FileSystemCall;
using testing::TempHome;
using Kind = TrashPipelineError::Kind;

enum class Mode { dryRun, trash, purge };

const char* name(Mode mode) {
    switch (mode) {
    case Mode::dryRun: return "dry run";
    case Mode::trash: return "trash";
    case Mode::purge: return "purge";
    }
    return "";
}

// lstat: a link counts as there even when its target is not.
bool present(const std::string& path) {
    struct stat st;
    return ::lstat(path.c_str(), &st) == 0;
}

std::int64_t allocatedOf(const std::string& path) {
    struct stat st;
    return ::lstat(path.c_str(), &st) == 0 ? static_cast<std::int64_t>(st.st_blocks) * 512 : -1;
}

// The messages of a summary's failed records, one per line, for a failure's report.
std::string errorsOf(const TrashSummary& summary) {
    std::string text;
    for (const auto& error : summary.errors())
        text += error + "\n";
    return text;
}

std::string readText(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

// The Trash, except for one path, whose move fails with the given errno and
// leaves the item where it is.
class RefusingTrash final : public Trash {
public:
    RefusingTrash(std::string refused, int errorNumber) : refused_(std::move(refused)), errorNumber_(errorNumber) {}

    bool trashItem(const std::string& path, std::optional<std::string>& landedPath, std::error_code& error) override {
        if (path == refused_) {
            error = std::error_code(errorNumber_, std::generic_category());
            return false;
        }
        return inner_->trashItem(path, landedPath, error);
    }

private:
    std::shared_ptr<Trash> inner_ = makeDefaultTrash();
    std::string refused_;
    int errorNumber_;
};

// The real file system, except that right after the walk that measures
// `victim`, the directory there is replaced by a symbolic link to `target`:
// the worst moment for a swap, when the sandbox and the measurement have both
// seen a plain directory.
class SwappingFileSystem final : public FileSystem {
public:
    SwappingFileSystem(std::string victim, std::string target)
        : victim_(std::move(victim)), target_(std::move(target)) {}

    void walk(const std::string& root, const WalkOptions& options, const WalkCallbacks& callbacks) const override {
        inner_->walk(root, options, callbacks);
        if (root == victim_ && !swapped_) {
            fs::remove_all(victim_);
            fs::create_directory_symlink(target_, victim_);
            swapped_ = true;
        }
    }
    bool swapped() const { return swapped_; }

    std::optional<FileStatus> status(const std::string& p, std::error_code& e) const override {
        return inner_->status(p, e);
    }
    std::optional<FileStatus> linkStatus(const std::string& p, std::error_code& e) const override {
        return inner_->linkStatus(p, e);
    }
    std::vector<DirectoryEntry> contentsOfDirectory(const std::string& p, ListOptions o,
                                                    std::error_code& e) const override {
        return inner_->contentsOfDirectory(p, o, e);
    }
    std::optional<std::string> destinationOfSymbolicLink(const std::string& p, std::error_code& e) const override {
        return inner_->destinationOfSymbolicLink(p, e);
    }
    std::string resolvingSymlinks(const std::string& p) const override { return inner_->resolvingSymlinks(p); }
    std::optional<std::string> readFile(const std::string& p, std::size_t n, std::error_code& e) const override {
        return inner_->readFile(p, n, e);
    }
    bool writeFileAtomically(const std::string& p, std::string_view c, std::uint32_t m, std::error_code& e) override {
        return inner_->writeFileAtomically(p, c, m, e);
    }
    bool appendToFile(const std::string& p, std::string_view c, std::uint32_t m, std::error_code& e) override {
        return inner_->appendToFile(p, c, m, e);
    }
    bool createDirectory(const std::string& p, std::uint32_t m, bool w, std::error_code& e) override {
        return inner_->createDirectory(p, m, w, e);
    }
    bool moveItem(const std::string& f, const std::string& t, std::error_code& e) override {
        return inner_->moveItem(f, t, e);
    }
    bool removeItem(const std::string& p, std::error_code& e) override { return inner_->removeItem(p, e); }
    bool setPermissions(const std::string& p, std::uint32_t m, std::error_code& e) override {
        return inner_->setPermissions(p, m, e);
    }
    bool isPackage(const std::string& p) const override { return inner_->isPackage(p); }

private:
    std::shared_ptr<FileSystem> inner_ = makeDefaultFileSystem();
    std::string victim_;
    std::string target_;
    mutable bool swapped_ = false;
};

class TrashPipelineTest : public ::testing::Test {
protected:
    FileURL url(const std::string& path) const { return fileSystem_->fileURL(path); }

    std::shared_ptr<AuditLogger> logger(std::shared_ptr<FileSystem> fileSystem = nullptr) const {
        return std::make_shared<AuditLogger>(std::nullopt, homeURL_, fileSystem ? fileSystem : fileSystem_);
    }

    TrashPipeline pipeline(std::shared_ptr<AuditLogger> auditLogger, std::shared_ptr<Trash> trash = nullptr,
                           std::shared_ptr<FileSystem> fileSystem = nullptr) const {
        return TrashPipeline(fileSystem ? fileSystem : fileSystem_, trash ? trash : makeDefaultTrash(),
                             std::move(auditLogger), homeURL_);
    }

    static TrashSummary run(const TrashPipeline& pipeline, Mode mode, const std::vector<FileURL>& urls,
                            const std::string& client = "cli") {
        if (mode == Mode::purge) return pipeline.purgePermanently(urls, true, client);
        return pipeline.trash(urls, mode == Mode::dryRun, client);
    }

    std::string logPath() const { return home_.at(".unbulk/audit.jsonl"); }
    std::string trashFiles() const { return home_.at(".local/share/Trash/files"); }

    std::set<std::string> trashedNames() const {
        std::set<std::string> names;
        std::error_code error;
        for (const auto& entry : fs::directory_iterator(trashFiles(), error)) {
            names.insert(entry.path().filename().string());
        }
        return names;
    }

    TempHome home_;
    FileURL homeURL_{home_.path(), true};
    std::shared_ptr<FileSystem> fileSystem_ = makeDefaultFileSystem();
};

TEST_F(TrashPipelineTest, ArgumentErrorsComeBeforeAnyWorkAndUnconfirmedBeforeEmpty) {
    const std::string file = home_.writeFile(".cache/tool/blob", 100);
    const auto subject = pipeline(logger());
    const std::string unconfirmed = "Permanent purge was requested without explicit confirmation flag.";
    const std::string empty = "No target items provided for cleanup operation.";

    struct Case {
        const char* label;
        std::function<void()> call;
        Kind kind;
        std::string text;
    };
    const std::vector<Case> cases{
        {"trash, empty", [&] { subject.trash({}, false, "cli"); }, Kind::emptyTargetList, empty},
        {"dry run, empty", [&] { subject.trash({}, true, "cli"); }, Kind::emptyTargetList, empty},
        {"purge, empty, confirmed", [&] { subject.purgePermanently({}, true, "cli"); }, Kind::emptyTargetList, empty},
        {"purge, empty, unconfirmed", [&] { subject.purgePermanently({}, false, "cli"); },
         Kind::unconfirmedPermanentPurge, unconfirmed},
        {"purge, unconfirmed", [&] { subject.purgePermanently({url(file)}, false, "cli"); },
         Kind::unconfirmedPermanentPurge, unconfirmed},
    };
    for (const auto& c : cases) {
        try {
            c.call();
            ADD_FAILURE() << c.label << ": nothing thrown";
        } catch (const TrashPipelineError& error) {
            EXPECT_EQ(error.kind, c.kind) << c.label;
            EXPECT_EQ(std::string(error.what()), c.text) << c.label;
        }
    }
    EXPECT_TRUE(present(file));
    EXPECT_FALSE(present(logPath())) << "a refused operation is not logged";
}

TEST_F(TrashPipelineTest, ErrorSentencesOfEveryKind) {
    EXPECT_STREQ(TrashPipelineError(Kind::sandboxViolation, "/x").what(),
                 "Sandbox security violation: Path is forbidden: /x");
    EXPECT_STREQ(TrashPipelineError(Kind::itemNotFound, "/x").what(), "Target item not found on disk: /x");
    EXPECT_STREQ(TrashPipelineError(Kind::itemLockedOrPermissionDenied, "/x").what(),
                 "Target item is locked or permission was denied: /x");
    EXPECT_STREQ(TrashPipelineError(Kind::underlyingError, "boom").what(), "TrashPipeline filesystem error: boom");
}

TEST_F(TrashPipelineTest, ForbiddenAndMissingPathsFailInEveryModeWhileTheRestGoes) {
    for (Mode mode : {Mode::dryRun, Mode::trash, Mode::purge}) {
        SCOPED_TRACE(name(mode));
        TempHome home;
        const FileURL homeURL(home.path(), true);
        const std::string document = home.writeFile("Documents/report.txt", 2000);
        const std::string key = home.writeFile(".ssh/id_ed25519", 400);
        const std::string absentForbidden = home.at("Documents/never-there.txt");
        const std::string missing = home.at(".cache/gone");
        const std::string cache = home.writeFile(".cache/tool/blob", 3000);

        // What the sandbox itself says about each forbidden path.
        std::vector<std::string> violations;
        for (const std::string& path : {document, key, absentForbidden, std::string("/etc/passwd")}) {
            try {
                SandboxValidator::validatePath(path, homeURL, *fileSystem_);
                ADD_FAILURE() << path << " passed the sandbox";
            } catch (const SandboxSecurityError& error) {
                violations.push_back("Sandbox violation: " + error.description());
            }
        }
        ASSERT_EQ(violations.size(), 4u);

        auto auditLogger = std::make_shared<AuditLogger>(std::nullopt, homeURL, fileSystem_);
        TrashPipeline subject(fileSystem_, makeDefaultTrash(), auditLogger, homeURL);
        const std::vector<FileURL> urls{url(document),      url(key),     url(absentForbidden),
                                        url("/etc/passwd"), url(missing), url(cache)};
        const TrashSummary summary = run(subject, mode, urls);

        ASSERT_EQ(summary.records.size(), urls.size());
        for (std::size_t i = 0; i < 4; ++i) {
            const TrashItemRecord& record = summary.records[i];
            EXPECT_EQ(record.status, TrashItemStatus::failed) << record.sourcePath;
            EXPECT_EQ(record.errorMessage, violations[i]);
            EXPECT_TRUE(record.errorMessage->starts_with("Sandbox violation: Sandbox Violation: "));
            EXPECT_EQ(record.allocatedBytes, 0);
            EXPECT_EQ(record.fileCount, 1);
            EXPECT_FALSE(record.trashURL);
        }
        EXPECT_EQ(summary.records[4].status, TrashItemStatus::failed);
        EXPECT_EQ(summary.records[4].errorMessage, "File does not exist: " + missing);
        EXPECT_EQ(summary.records[4].fileCount, 1);

        const TrashItemRecord& last = summary.records[5];
        EXPECT_EQ(last.status, mode == Mode::dryRun ? TrashItemStatus::simulated : TrashItemStatus::success);
        EXPECT_EQ(last.logicalBytes, 3000);
        EXPECT_EQ(summary.successCount, 1);
        EXPECT_EQ(summary.failureCount, 5);
        EXPECT_EQ(summary.totalLogicalBytesUnbulked, 3000);
        EXPECT_EQ(summary.totalAllocatedBytesUnbulked, last.allocatedBytes);

        EXPECT_TRUE(present(document) && present(key) && present("/etc/passwd"));
        EXPECT_EQ(present(cache), mode == Mode::dryRun);

        const auto entries = auditLogger->readEntries();
        ASSERT_EQ(entries.size(), 1u);
        EXPECT_EQ(entries[0].paths, std::vector<std::string>{cache});
        EXPECT_EQ(entries[0].itemsCount, 1);
    }
}

TEST_F(TrashPipelineTest, OneFailingItemStopsNothingAndCarriesItsMeasuredSize) {
    for (Mode mode : {Mode::trash, Mode::purge}) {
        SCOPED_TRACE(name(mode));
        const std::string first = home_.writeFile(std::string(".cache/first-") + name(mode), 1000);
        const std::string locked = home_.writeFile(std::string(".cache/locked-") + name(mode) + "/data", 7000);
        const std::string lockedDir = fs::path(locked).parent_path().string();
        const std::string third = home_.writeFile(std::string(".cache/third-") + name(mode), 5000);

        std::shared_ptr<Trash> trash;
        std::shared_ptr<FileSystem> fileSystem;
        if (mode == Mode::trash) {
            trash = std::make_shared<RefusingTrash>(lockedDir, EACCES);
        } else {
            auto faulty = std::make_shared<FaultyFileSystem>();
            faulty->failOn(FileSystemCall::removeItem, lockedDir, EACCES);
            fileSystem = faulty;
        }
        auto auditLogger = logger();
        const auto before = auditLogger->readEntries().size();
        const TrashSummary summary =
            run(pipeline(auditLogger, trash, fileSystem), mode, {url(first), url(lockedDir), url(third)}, "mcp");

        ASSERT_EQ(summary.records.size(), 3u);
        EXPECT_EQ(summary.records[0].status, TrashItemStatus::success);
        EXPECT_EQ(summary.records[1].status, TrashItemStatus::failed);
        EXPECT_EQ(summary.records[1].errorMessage, std::error_code(EACCES, std::generic_category()).message());
        EXPECT_EQ(summary.records[1].logicalBytes, 7000);
        EXPECT_EQ(summary.records[1].allocatedBytes, allocatedOf(locked));
        EXPECT_EQ(summary.records[1].fileCount, 1);
        EXPECT_EQ(summary.records[2].status, TrashItemStatus::success);

        EXPECT_FALSE(present(first));
        EXPECT_TRUE(present(locked));
        EXPECT_FALSE(present(third));

        EXPECT_EQ(summary.totalItemsCount, 3);
        EXPECT_EQ(summary.successCount, 2);
        EXPECT_EQ(summary.failureCount, 1);
        EXPECT_EQ(summary.totalLogicalBytesUnbulked, 6000);
        EXPECT_EQ(summary.totalAllocatedBytesUnbulked,
                  summary.records[0].allocatedBytes + summary.records[2].allocatedBytes);
        EXPECT_GT(summary.totalAllocatedBytesUnbulked, 0);

        const auto entries = auditLogger->readEntries();
        ASSERT_EQ(entries.size(), before + 1);
        const AuditLogEntry& entry = entries.back();
        EXPECT_EQ(entry.operationId, summary.operationId.string());
        EXPECT_EQ(entry.operationType, mode == Mode::trash ? AuditOperationType::trash : AuditOperationType::purge);
        EXPECT_EQ(entry.itemsCount, 2);
        EXPECT_EQ(entry.bytesUnbulked, summary.totalAllocatedBytesUnbulked);
        EXPECT_EQ(entry.paths, (std::vector<std::string>{first, third}));
        EXPECT_EQ(entry.client, "mcp");
        ASSERT_TRUE(entry.durationMs);
        EXPECT_DOUBLE_EQ(*entry.durationMs, summary.durationSeconds * 1000.0);
    }
    EXPECT_TRUE(logger()->verifyIntegrity().isValid);
}

TEST_F(TrashPipelineTest, TrashedItemsLandInTheTrashAndPurgedOnesLeaveNoTrashURL) {
    const std::string trashed = home_.writeFile(".cache/trashed/blob", 100);
    const std::string purged = home_.writeFile(".cache/purged/blob", 100);
    const std::string danglingLink = home_.makeSymlink(".cache/dangling", home_.at(".cache/nowhere/at-all"));

    const auto subject = pipeline(logger());
    const TrashSummary moved = subject.trash({url(fs::path(trashed).parent_path()), url(danglingLink)}, false, "cli");
    ASSERT_EQ(moved.successCount, 2) << errorsOf(moved);
    ASSERT_TRUE(moved.records[0].trashURL);
    EXPECT_EQ(moved.records[0].trashPath, trashFiles() + "/trashed");
    EXPECT_TRUE(present(*moved.records[0].trashPath + "/blob"));
    EXPECT_EQ(moved.trashedItemURLs().size(), 2u);
    EXPECT_FALSE(present(danglingLink));
    EXPECT_EQ(trashedNames(), (std::set<std::string>{"trashed", "dangling"}));

    const TrashSummary gone = subject.purgePermanently({url(fs::path(purged).parent_path())}, true, "cli");
    EXPECT_TRUE(gone.isPermanentPurge);
    EXPECT_FALSE(gone.isDryRun);
    ASSERT_EQ(gone.successCount, 1);
    EXPECT_FALSE(gone.records[0].trashURL);
    EXPECT_FALSE(gone.records[0].trashPath);
    EXPECT_TRUE(gone.trashedItemURLs().empty());
    EXPECT_FALSE(present(purged));
    EXPECT_EQ(trashedNames().size(), 2u) << "a purge puts nothing in the Trash";
}

TEST_F(TrashPipelineTest, DryRunMeasuresAndLogsButTouchesNothing) {
    const std::string cache = home_.writeFile(".cache/app/a/b/blob", 4096);
    home_.writeFile(".cache/app/index", 10);
    const std::string directory = home_.at(".cache/app");
    auto auditLogger = logger();

    const TrashSummary summary = pipeline(auditLogger).trash({url(directory)}, true, "uninstaller");

    EXPECT_TRUE(summary.isDryRun);
    EXPECT_FALSE(summary.isPermanentPurge);
    ASSERT_EQ(summary.records.size(), 1u);
    const TrashItemRecord& record = summary.records[0];
    EXPECT_EQ(record.status, TrashItemStatus::simulated);
    EXPECT_EQ(record.fileCount, 2);
    EXPECT_EQ(record.logicalBytes, 4106);
    EXPECT_EQ(record.allocatedBytes, allocatedOf(cache) + allocatedOf(home_.at(".cache/app/index")));
    EXPECT_FALSE(record.trashURL);
    EXPECT_FALSE(record.errorMessage);
    EXPECT_EQ(summary.totalLogicalBytesUnbulked, 4106);

    EXPECT_TRUE(present(cache));
    EXPECT_TRUE(trashedNames().empty());

    const auto entries = auditLogger->readEntries();
    ASSERT_EQ(entries.size(), 1u);
    EXPECT_EQ(entries[0].operationType, AuditOperationType::dryRun);
    EXPECT_EQ(entries[0].paths, std::vector<std::string>{directory});
    EXPECT_EQ(entries[0].bytesUnbulked, record.allocatedBytes);
    EXPECT_EQ(entries[0].client, "uninstaller");
}

TEST_F(TrashPipelineTest, AuditLogTroubleNeverFailsTheRemoval) {
    struct Case {
        const char* label;
        std::string existingLog;               // written before the run; empty for no file
        std::optional<FileSystemCall> failing; // with ENOSPC, on the log file
    };
    const std::string entryLine = [&] {
        TempHome scratch;
        AuditLogger scratchLogger(std::nullopt, FileURL(scratch.path(), true));
        scratchLogger.record(Uuid::random(), AuditOperationType::trash, 1, 10, {"/x/y"}, "cli", 1.0);
        return readText(scratch.at(".unbulk/audit.jsonl"));
    }();
    const std::vector<Case> cases{
        {"garbage line", entryLine + "this is not json\n", std::nullopt},
        {"full disk creating the log", "", FileSystemCall::writeFileAtomically},
        {"full disk appending to the log", entryLine, FileSystemCall::appendToFile},
    };
    int n = 0;
    for (const auto& c : cases) {
        SCOPED_TRACE(c.label);
        fs::remove_all(home_.at(".unbulk"));
        if (!c.existingLog.empty()) home_.writeFile(".unbulk/audit.jsonl", c.existingLog);
        auto faulty = std::make_shared<FaultyFileSystem>();
        if (c.failing) faulty->failOn(*c.failing, logPath(), ENOSPC);

        const std::string item = home_.writeFile(".cache/item-" + std::to_string(++n), 500);
        const TrashSummary summary = pipeline(logger(faulty)).trash({url(item)}, false, "cli");

        EXPECT_EQ(summary.successCount, 1);
        EXPECT_FALSE(present(item));
        EXPECT_EQ(readText(logPath()), c.existingLog) << "no entry may be added";
        EXPECT_EQ(present(logPath()), !c.existingLog.empty());
    }
}

TEST_F(TrashPipelineTest, WithoutALoggerNothingIsLogged) {
    const std::string item = home_.writeFile(".cache/item", 500);
    const TrashSummary summary = pipeline(nullptr).purgePermanently({url(item)}, true, "cli");
    EXPECT_EQ(summary.successCount, 1);
    EXPECT_FALSE(present(item));
    EXPECT_FALSE(present(home_.at(".unbulk")));
}

TEST_F(TrashPipelineTest, MetricsCountRegularFilesOnlyAndNeverFollowLinks) {
    const std::string outside = home_.writeFile("big/outside.bin", 50'000);
    const std::string file = home_.writeFile("m/file.bin", 3000);
    home_.makeDirectory("m/empty");
    home_.makeDirectory("m/onlyEmpty/a/b");
    home_.makeDirectory("m/onlyEmpty/c");
    home_.writeFile("m/tree/one", 100);
    home_.writeFile("m/tree/deep/two", 200);
    home_.makeSymlink("m/tree/linkToFile", outside);
    home_.makeSymlink("m/tree/linkToDir", home_.at("big"));
    const std::string dirLink = home_.makeSymlink("m/dirLink", home_.at("big"));
    const auto subject = pipeline(nullptr);

    using Metrics = TrashPipeline::ItemMetrics;
    struct Case {
        std::string path;
        Metrics expected;
    };
    const std::vector<Case> cases{
        {home_.at("m/missing"), {0, 0, 0}},
        {file, {allocatedOf(file), 3000, 1}},
        {home_.at("m/empty"), {0, 0, 1}},
        {home_.at("m/onlyEmpty"), {0, 0, 1}},
        {home_.at("m/tree"), {allocatedOf(home_.at("m/tree/one")) + allocatedOf(home_.at("m/tree/deep/two")), 300, 2}},
        // The link itself, not the 50 KB it leads to.
        {dirLink, {allocatedOf(dirLink), static_cast<std::int64_t>(home_.at("big").size()), 1}},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(subject.computeItemMetrics(url(c.path)), c.expected) << c.path;
    }

    // The same numbers reach the record of a directory of empty directories.
    const TrashSummary summary = subject.trash({url(home_.at("m/onlyEmpty"))}, true, "cli");
    EXPECT_EQ(summary.records[0].fileCount, 1);
    EXPECT_EQ(summary.records[0].allocatedBytes, 0);
    EXPECT_EQ(summary.records[0].logicalBytes, 0);
}

TEST_F(TrashPipelineTest, ADirectorySwappedForALinkAfterTheChecksIsRemovedAsALink) {
    // The link leads into Documents, which the sandbox would refuse had it
    // seen the link; it saw a directory, so only the removal stands between
    // the swap and the user's files.
    const std::string sentinel = home_.writeFile("Documents/keep/sentinel.txt", "precious");
    for (Mode mode : {Mode::purge, Mode::trash}) {
        SCOPED_TRACE(name(mode));
        const std::string victim = home_.makeDirectory(std::string(".cache/victim-") + name(mode));
        home_.writeFile(std::string(".cache/victim-") + name(mode) + "/blob", 1234);
        auto swapping = std::make_shared<SwappingFileSystem>(victim, home_.at("Documents/keep"));

        const TrashSummary summary = run(pipeline(logger(), nullptr, swapping), mode, {FileURL(victim, true)});

        ASSERT_TRUE(swapping->swapped()) << "the measurement never walked the victim";
        ASSERT_EQ(summary.successCount, 1) << errorsOf(summary);
        EXPECT_EQ(summary.records[0].logicalBytes, 1234) << "measured before the swap";
        EXPECT_FALSE(present(victim)) << "the link itself is gone";
        EXPECT_EQ(readText(sentinel), "precious");
        EXPECT_TRUE(present(home_.at("Documents/keep")));
    }
}

} // namespace
} // namespace unbulk
