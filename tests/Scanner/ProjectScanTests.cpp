// The project sub-scans of DeveloperTargets: dangling git worktrees (with
// records made by real git where git's own files are the subject), Xcode
// build products and a node_modules folder left in the home.

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "Scanner/DeveloperTargets.hpp"
#include "Support/Cancellation.hpp"
#include "support/FaultyFileSystem.hpp"
#include "support/ProcessRunner.hpp"
#include "support/TempHome.hpp"

namespace unbulk {
namespace {

namespace fs = std::filesystem;
using testing::FileSystemCall;

// Sizes of a file or tree, counted here with lstat and nothing of the scanner's.
struct HandMeasure {
    std::int64_t logical = 0;
    std::int64_t allocated = 0;
    std::int64_t files = 0;
};

HandMeasure measureByHand(const std::string& path) {
    HandMeasure m;
    auto add = [&](const fs::path& file) {
        struct stat st {};
        if (::lstat(file.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) return;
        m.logical += st.st_size;
        m.allocated += static_cast<std::int64_t>(st.st_blocks) * 512;
        m.files += 1;
    };
    if (fs::is_directory(fs::symlink_status(path))) {
        for (const auto& entry : fs::recursive_directory_iterator(path)) add(entry.path());
    } else {
        add(path);
    }
    m.files = std::max<std::int64_t>(m.files, 1);
    return m;
}

std::optional<std::string> findProgram(const std::string& name) {
    const char* pathVariable = std::getenv("PATH");
    std::string_view rest = pathVariable ? pathVariable : "/usr/bin:/bin";
    while (!rest.empty()) {
        auto colon = rest.find(':');
        std::string candidate = std::string(rest.substr(0, colon)) + "/" + name;
        if (::access(candidate.c_str(), X_OK) == 0) return candidate;
        rest = colon == std::string_view::npos ? std::string_view{} : rest.substr(colon + 1);
    }
    return std::nullopt;
}

// A record in .git/worktrees whose gitdir names a path that is not there:
// whether the scan offers it tells whether the search found the repository.
void makeRepositoryWithDanglingRecord(const testing::TempHome& temp, const std::string& repository,
                                      const std::string& record = "gone") {
    const std::string git = repository.empty() ? ".git" : repository + "/.git";
    temp.writeFile(git + "/worktrees/" + record + "/gitdir", temp.root() + "/nowhere/.git\n");
}

class ProjectScanTest : public ::testing::Test {
protected:
    testing::TempHome temp;

    std::vector<DiscoveredItem> scan(const CategorySet& categories, std::shared_ptr<FileSystem> fileSystem = nullptr,
                                     std::optional<std::vector<FileURL>> roots = std::nullopt,
                                     std::stop_token stop = {}, const ScanProgressHandler& progress = {}) const {
        DeveloperTargets targets(FileURL(temp.path(), true), std::nullopt, std::move(roots),
                                 fileSystem ? fileSystem : makeDefaultFileSystem(), nullptr,
                                 [](const std::string&) { return false; });
        return targets.scan(categories, progress, stop);
    }

    std::vector<std::string> gitDescriptions(std::optional<std::vector<FileURL>> roots = std::nullopt) const {
        std::vector<std::string> out;
        for (const auto& item : scan({StorageCategory::developerCache}, nullptr, std::move(roots))) {
            out.push_back(item.itemDescription);
        }
        return out;
    }

    // Every field an item takes from its place, measured here independently.
    static void expectItem(const DiscoveredItem& item, const std::string& path, bool isDirectory,
                           StorageCategory category, RiskTier tier, const std::string& ruleId,
                           const std::string& description, bool isOrphaned) {
        SCOPED_TRACE(description);
        const HandMeasure expected = measureByHand(path);
        EXPECT_EQ(item.url, FileURL(path, isDirectory));
        EXPECT_EQ(item.path, path);
        EXPECT_EQ(item.category, category);
        EXPECT_EQ(item.riskTier, tier);
        EXPECT_EQ(item.ruleId, ruleId);
        EXPECT_EQ(item.itemDescription, description);
        EXPECT_EQ(item.isOrphaned, isOrphaned);
        EXPECT_FALSE(item.isLocked);
        EXPECT_FALSE(item.requiresFullDiskAccess);
        EXPECT_EQ(item.fileCount, expected.files);
        EXPECT_EQ(item.logicalSizeBytes, expected.logical);
        EXPECT_EQ(item.allocatedSizeBytes, expected.allocated);
    }
};

// ---- git, with the records git itself writes

class RealGitTest : public ProjectScanTest {
protected:
    void SetUp() override {
        auto found = findProgram("git");
        if (!found) GTEST_SKIP() << "git is not installed";
        git_ = *found;
    }

    void git(const std::string& directory, std::vector<std::string> arguments) const {
        std::vector<std::string> all{"-C", directory, "-c", "user.name=Unbulk Test", "-c",
                                     "user.email=test@example.invalid", "-c", "init.defaultBranch=main"};
        all.insert(all.end(), arguments.begin(), arguments.end());
        auto result = testing::runProcess(git_, all,
                                          {.environment = {{"HOME", temp.path()},
                                                           {"XDG_CONFIG_HOME", temp.at(".config")},
                                                           {"GIT_CONFIG_NOSYSTEM", "1"},
                                                           {"GIT_TERMINAL_PROMPT", "0"}}});
        ASSERT_EQ(result.exitStatus, 0) << "git " << arguments.front() << ": " << result.standardError;
    }

    // A repository with one commit.
    void makeRepository(const std::string& path) const {
        fs::create_directories(path);
        git(path, {"init", "-q"});
        std::ofstream(path + "/README") << "hello\n";
        git(path, {"add", "README"});
        git(path, {"commit", "-q", "-m", "first"});
    }

    std::string git_;
};

TEST_F(RealGitTest, RecordOfADeletedCheckoutIsOfferedAndAHealthyWorktreeIsNot) {
    const std::string app = temp.at("Projects/app");
    makeRepository(app);
    git(app, {"worktree", "add", "-q", "../wt-gone"});
    git(app, {"worktree", "add", "-q", "../wt-ok"});
    const std::string record = app + "/.git/worktrees/wt-gone";
    ASSERT_TRUE(fs::is_regular_file(record + "/gitdir")) << "git keeps its worktree records elsewhere";
    fs::remove_all(temp.at("Projects/wt-gone"));

    auto items = scan({StorageCategory::developerCache});
    ASSERT_EQ(items.size(), 1u);
    expectItem(items[0], record, true, StorageCategory::developerCache, RiskTier::safeToDelete,
               "dev.git.orphaned_worktrees", "Orphaned Git Worktree: app/wt-gone (target deleted)", true);
}

TEST_F(RealGitTest, CheckoutWhoseMainRepositoryIsGoneIsOffered) {
    const std::string main = temp.root() + "/elsewhere/main";
    makeRepository(main);
    const std::string linked = temp.at("Projects/linked");
    git(main, {"worktree", "add", "-q", linked});
    ASSERT_TRUE(fs::is_regular_file(linked + "/.git"));

    EXPECT_TRUE(scan({StorageCategory::developerCache}).empty()) << "a healthy checkout is left alone";

    fs::remove_all(temp.root() + "/elsewhere");
    auto items = scan({StorageCategory::developerCache});
    ASSERT_EQ(items.size(), 1u);
    expectItem(items[0], linked, true, StorageCategory::developerCache, RiskTier::safeToDelete,
               "dev.git.orphaned_worktrees", "Orphaned Git Worktree Checkout: linked (main repository missing)",
               true);
}

// ---- git, hand-made layouts

TEST_F(ProjectScanTest, SearchReachesChildrenAndGrandchildrenOnly) {
    makeRepositoryWithDanglingRecord(temp, "Projects/one");
    makeRepositoryWithDanglingRecord(temp, "Projects/a/two");
    makeRepositoryWithDanglingRecord(temp, "Projects/a/b/three"); // a third level
    auto found = gitDescriptions();
    std::sort(found.begin(), found.end());
    EXPECT_EQ(found, (std::vector<std::string>{"Orphaned Git Worktree: one/gone (target deleted)",
                                               "Orphaned Git Worktree: two/gone (target deleted)"}));
}

TEST_F(ProjectScanTest, RootRepositoryIsCheckedAndSearchStillGoesInsideButNotIntoFoundRepositories) {
    makeRepositoryWithDanglingRecord(temp, "Projects", "root-record");
    makeRepositoryWithDanglingRecord(temp, "Projects/outer", "outer-record");
    makeRepositoryWithDanglingRecord(temp, "Projects/outer/inner", "inner-record");
    EXPECT_EQ(gitDescriptions(),
              (std::vector<std::string>{"Orphaned Git Worktree: Projects/root-record (target deleted)",
                                        "Orphaned Git Worktree: outer/outer-record (target deleted)"}));
}

TEST_F(ProjectScanTest, SkippedAndHiddenFoldersAreNotSearched) {
    for (const char* name : {"node_modules", ".build", "Pods", "Carthage", "vendor", "build", "dist", "DerivedData",
                             "Library", "Pictures", "Music", "Movies", "Downloads", "Documents", "Desktop", ".Trash",
                             ".cache", ".local", ".hidden"}) {
        makeRepositoryWithDanglingRecord(temp, std::string("Projects/") + name);
        makeRepositoryWithDanglingRecord(temp, std::string("Projects/") + name + "/below");
    }
    makeRepositoryWithDanglingRecord(temp, "Projects/Build"); // the list is case-sensitive
    EXPECT_EQ(gitDescriptions(), (std::vector<std::string>{"Orphaned Git Worktree: Build/gone (target deleted)"}));
}

TEST_F(ProjectScanTest, GitFileIsOfferedOnlyWhenItNamesAMissingPath) {
    const std::string missing = temp.root() + "/missing/.git/worktrees/x";
    struct Case {
        const char* name;
        std::string contents;
        bool offered;
    };
    const std::vector<Case> cases{
        {"gone", "gitdir: " + missing + "\n", true},
        {"padded", "  \n gitdir:\t" + missing + " \r\n\n", true},
        {"tight", "gitdir:" + missing, true},
        {"healthy", "gitdir: " + temp.path() + "\n", false},
        {"bare", "gitdir:\n", false},
        {"blank", "gitdir:    \n", false},
        {"other", "worktree: " + missing + "\n", false},
        {"upper", "GITDIR: " + missing + "\n", false},
        {"latin1", "gitdir: " + missing + "\xE9\n", false},
        {"empty", "", false},
    };
    std::vector<std::string> expected;
    for (const auto& c : cases) {
        temp.writeFile(std::string("Projects/") + c.name + "/.git", c.contents);
        if (c.offered) {
            expected.push_back(std::string("Orphaned Git Worktree Checkout: ") + c.name + " (main repository missing)");
        }
    }
    auto found = gitDescriptions();
    std::sort(found.begin(), found.end());
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(found, expected);
}

TEST_F(ProjectScanTest, WorktreeRecordsNeedAGitdirNamingAMissingPath) {
    temp.writeFile("Projects/app/.git/worktrees/gone/gitdir", "\n" + temp.root() + "/nowhere/.git\n\n");
    temp.writeFile("Projects/app/.git/worktrees/empty/gitdir", "");
    temp.writeFile("Projects/app/.git/worktrees/spaces/gitdir", " \n\t\n");
    temp.writeFile("Projects/app/.git/worktrees/healthy/gitdir", temp.path() + "\n");
    temp.writeFile("Projects/app/.git/worktrees/nofile/HEAD", "ref: refs/heads/x\n");
    temp.writeFile("Projects/app/.git/worktrees/badtext/gitdir", "/nowhere/\xFF\xFE\n");
    temp.writeFile("Projects/app/.git/worktrees/.hidden/gitdir", temp.root() + "/nowhere/.git\n");
    temp.writeFile("Projects/other/.git/HEAD", "ref: refs/heads/main\n"); // no worktrees folder
    EXPECT_EQ(gitDescriptions(), (std::vector<std::string>{"Orphaned Git Worktree: app/gone (target deleted)"}));
}

TEST_F(ProjectScanTest, RelativeGitdirIsReadAgainstTheCurrentDirectory) {
    temp.writeFile("Projects/app/.git/worktrees/rel/gitdir", "only-beside-the-process\n");
    temp.makeDirectory("Projects/app/.git/worktrees/rel/only-beside-the-process"); // not where it is looked for
    const std::string saved = fs::current_path();
    fs::create_directories(temp.root() + "/cwd/only-beside-the-process");

    fs::current_path(temp.root()); // the relative path names nothing here
    auto fromRoot = gitDescriptions();
    fs::current_path(temp.root() + "/cwd"); // here it exists
    auto fromCwd = gitDescriptions();
    fs::current_path(saved);

    EXPECT_EQ(fromRoot, (std::vector<std::string>{"Orphaned Git Worktree: app/rel (target deleted)"}));
    EXPECT_TRUE(fromCwd.empty());
}

TEST_F(ProjectScanTest, HomeRepositoryComesLastAndSkipsItsPersonalFolders) {
    temp.makeDirectory("Projects");
    temp.writeFile(".git/HEAD", "ref: refs/heads/main\n");
    makeRepositoryWithDanglingRecord(temp, "", "home-record");
    makeRepositoryWithDanglingRecord(temp, "tools/cli");
    makeRepositoryWithDanglingRecord(temp, "Library/thing");
    makeRepositoryWithDanglingRecord(temp, "Documents/essay");
    makeRepositoryWithDanglingRecord(temp, "Desktop/demo");
    makeRepositoryWithDanglingRecord(temp, "src/lib"); // a project root of its own, searched before the home
    makeRepositoryWithDanglingRecord(temp, "Projects/app");

    const std::string home = fs::path(temp.path()).filename();
    EXPECT_EQ(gitDescriptions(),
              (std::vector<std::string>{"Orphaned Git Worktree: app/gone (target deleted)",
                                        "Orphaned Git Worktree: lib/gone (target deleted)",
                                        "Orphaned Git Worktree: " + home + "/home-record (target deleted)",
                                        "Orphaned Git Worktree: cli/gone (target deleted)"}));
}

TEST_F(ProjectScanTest, MissingRootsAreNoFailure) {
    // No project root exists; then one in a later root.
    EXPECT_TRUE(scan({StorageCategory::developerCache}).empty());
    makeRepositoryWithDanglingRecord(temp, "git/tool");
    EXPECT_EQ(gitDescriptions(), (std::vector<std::string>{"Orphaned Git Worktree: tool/gone (target deleted)"}));
}

TEST_F(ProjectScanTest, RepositoryReachableTwiceIsHandledOnce) {
    makeRepositoryWithDanglingRecord(temp, "Projects/app");
    temp.writeFile(".git/HEAD", "ref: refs/heads/main\n"); // the home searches ~/Projects/app again
    temp.makeDirectory("src");
    const std::vector<FileURL> roots{FileURL(temp.at("Projects"), true), FileURL(temp.at("Projects/"), true),
                                     FileURL(temp.at("src/../Projects"), true)};
    EXPECT_EQ(gitDescriptions(roots), (std::vector<std::string>{"Orphaned Git Worktree: app/gone (target deleted)"}));
}

TEST_F(ProjectScanTest, UnreadableFoldersAndFilesGiveNothing) {
    makeRepositoryWithDanglingRecord(temp, "Projects/listed/app");
    makeRepositoryWithDanglingRecord(temp, "Projects/records");
    makeRepositoryWithDanglingRecord(temp, "Projects/unread");
    temp.writeFile("Projects/checkout/.git", "gitdir: /nowhere/at/all\n");
    makeRepositoryWithDanglingRecord(temp, "Projects/fine");
    auto faulty = std::make_shared<testing::FaultyFileSystem>();
    faulty->failOn(FileSystemCall::contentsOfDirectory, temp.at("Projects/listed"), EACCES);
    faulty->failOn(FileSystemCall::contentsOfDirectory, temp.at("Projects/records/.git/worktrees"), EACCES);
    faulty->failOn(FileSystemCall::readFile, temp.at("Projects/unread/.git/worktrees/gone/gitdir"), EIO);
    faulty->failOn(FileSystemCall::readFile, temp.at("Projects/checkout/.git"), EACCES);
    auto items = scan({StorageCategory::developerCache}, faulty);
    ASSERT_EQ(items.size(), 1u);
    EXPECT_EQ(items[0].itemDescription, "Orphaned Git Worktree: fine/gone (target deleted)");
}

TEST_F(ProjectScanTest, StopRequestedDuringTheGitSearchCancelsTheScan) {
    makeRepositoryWithDanglingRecord(temp, "Projects/one");
    makeRepositoryWithDanglingRecord(temp, "Projects/two");
    std::stop_source source;
    int reports = 0;
    // The first item asks for a stop; the next repository must notice it.
    auto progress = [&](const ScanProgress&) {
        ++reports;
        source.request_stop();
    };
    EXPECT_THROW(scan({StorageCategory::developerCache}, nullptr, std::nullopt, source.get_token(), progress),
                 CancellationError);
    EXPECT_EQ(reports, 1);

    std::stop_source before;
    before.request_stop();
    EXPECT_THROW(scan({StorageCategory::developerCache}, nullptr, std::nullopt, before.get_token()),
                 CancellationError);
}

// ---- Xcode

TEST_F(ProjectScanTest, DerivedDataGivesOneItemPerProjectFolder) {
    const std::string base = "Library/Developer/Xcode/DerivedData/";
    temp.writeFile(base + "App-abc/Build/Products/app.o", 20000);
    temp.writeFile(base + "App-abc/info.plist", 300);
    temp.makeDirectory(base + "Empty-def");
    temp.writeFile(base + "stray.log", 50);          // a plain file: no item
    temp.writeFile(base + ".hidden/x", 50);          // hidden: not listed
    temp.makeSymlink(base + "Linked-ghi", temp.at(base + "App-abc")); // leads to a folder
    auto progressReports = 0;
    DeveloperTargets targets(FileURL(temp.path(), true), std::nullopt, std::nullopt, makeDefaultFileSystem(), nullptr,
                             [](const std::string&) { return false; });
    auto items = targets.scan({StorageCategory::xcodeArtifacts}, [&](const ScanProgress& p) {
        ++progressReports;
        EXPECT_EQ(p.currentCategory, StorageCategory::xcodeArtifacts);
    });
    std::sort(items.begin(), items.end(), [](auto& a, auto& b) { return a.path < b.path; });
    ASSERT_EQ(items.size(), 3u);
    EXPECT_EQ(progressReports, 3);
    expectItem(items[0], temp.at(base + "App-abc"), true, StorageCategory::xcodeArtifacts, RiskTier::safeToDelete,
               "dev.xcode.derived_data", "Xcode DerivedData: App-abc", false);
    expectItem(items[1], temp.at(base + "Empty-def"), true, StorageCategory::xcodeArtifacts, RiskTier::safeToDelete,
               "dev.xcode.derived_data", "Xcode DerivedData: Empty-def", false);
    EXPECT_EQ(items[2].itemDescription, "Xcode DerivedData: Linked-ghi");
}

TEST_F(ProjectScanTest, DerivedDataIsOfferedWholeWhenEmptyOrUnlistable) {
    const std::string derivedData = temp.makeDirectory("Library/Developer/Xcode/DerivedData");
    auto items = scan({StorageCategory::xcodeArtifacts});
    ASSERT_EQ(items.size(), 1u);
    expectItem(items[0], derivedData, true, StorageCategory::xcodeArtifacts, RiskTier::safeToDelete,
               "dev.xcode.derived_data", "Xcode DerivedData Build Cache", false);
    EXPECT_EQ(items[0].fileCount, 1);

    temp.writeFile("Library/Developer/Xcode/DerivedData/App-abc/x.o", 4096);
    auto faulty = std::make_shared<testing::FaultyFileSystem>();
    faulty->failOn(FileSystemCall::contentsOfDirectory, derivedData, EACCES);
    items = scan({StorageCategory::xcodeArtifacts}, faulty);
    ASSERT_EQ(items.size(), 1u);
    expectItem(items[0], derivedData, true, StorageCategory::xcodeArtifacts, RiskTier::safeToDelete,
               "dev.xcode.derived_data", "Xcode DerivedData Build Cache", false);

    fs::remove_all(derivedData + "/App-abc");
    temp.writeFile("Library/Developer/Xcode/DerivedData/only-a-file", 10);
    EXPECT_TRUE(scan({StorageCategory::xcodeArtifacts}).empty()) << "entries, but no folder among them";
}

TEST_F(ProjectScanTest, ArchivesNeedReviewAndSimulatorCachesDoNot) {
    temp.writeFile("Library/Developer/Xcode/Archives/2024-01-01/App.xcarchive/Info.plist", 700);
    temp.writeFile("Library/Developer/CoreSimulator/Caches/dyld/cache", 9000);
    auto items = scan({StorageCategory::xcodeArtifacts});
    ASSERT_EQ(items.size(), 2u);
    expectItem(items[0], temp.at("Library/Developer/Xcode/Archives"), true, StorageCategory::xcodeArtifacts,
               RiskTier::reviewRequired, "dev.xcode.archives", "Xcode Release Archives (.xcarchive)", false);
    expectItem(items[1], temp.at("Library/Developer/CoreSimulator/Caches"), true, StorageCategory::xcodeArtifacts,
               RiskTier::safeToDelete, "dev.xcode.simulator_caches", "Xcode Simulator Runtime Caches", false);
    EXPECT_TRUE(scan({StorageCategory::developerCache}).empty()) << "Xcode belongs to its own category";
}

// ---- stray node_modules

TEST_F(ProjectScanTest, NodeModulesInTheHomeIsOfferedFolderOrFile) {
    temp.writeFile("Projects/app/node_modules/left-pad/index.js", 100); // a project's own: never looked at
    EXPECT_TRUE(scan({StorageCategory::strayDependencies}).empty());

    temp.writeFile("node_modules/left-pad/index.js", 1500);
    temp.writeFile("node_modules/.package-lock.json", 200);
    auto items = scan({StorageCategory::strayDependencies});
    ASSERT_EQ(items.size(), 1u);
    expectItem(items[0], temp.at("node_modules"), true, StorageCategory::strayDependencies, RiskTier::reviewRequired,
               "dev.stray.node_modules", "Stray node_modules in User Home Root Directory", true);

    fs::remove_all(temp.at("node_modules"));
    temp.writeFile("node_modules", 321);
    items = scan({StorageCategory::strayDependencies});
    ASSERT_EQ(items.size(), 1u);
    expectItem(items[0], temp.at("node_modules"), false, StorageCategory::strayDependencies, RiskTier::reviewRequired,
               "dev.stray.node_modules", "Stray node_modules in User Home Root Directory", true);
}

} // namespace
} // namespace unbulk
