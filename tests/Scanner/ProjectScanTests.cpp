// The project sub-scans of DeveloperTargets: dangling git worktrees (with
// records made by real git where git's own files are the subject), Xcode
// build products and a node_modules folder left in the home.

#include <algorithm>
#include <filesystem>
#include <ranges>
#include <tuple>

#include <gtest/gtest.h>

#include "Scanner/DeveloperTargets.hpp"
#include "Support/Cancellation.hpp"
#include "support/ProcessRunner.hpp"
#include "support/TempHome.hpp"

namespace unbulk {
namespace {

namespace fs = std::filesystem;

struct Want {
    std::string path, ruleId, description;
    bool orphaned = false;
    RiskTier tier = RiskTier::safeToDelete;
};

void expectItems(const std::vector<DiscoveredItem>& items, StorageCategory category, const std::vector<Want>& wants) {
    ASSERT_EQ(items.size(), wants.size());
    for (std::size_t i = 0; i < items.size(); ++i) {
        const DiscoveredItem& it = items[i];
        const Want& w = wants[i];
        // The item carries what its own path measures.
        const MeasuredMetrics m = ItemMeasurer::measureItem(*makeDefaultFileSystem(), w.path);
        EXPECT_EQ(std::tuple(it.path, it.url.isDirectory(), it.category, it.riskTier, it.ruleId, it.itemDescription,
                             it.isOrphaned, it.isLocked, it.requiresFullDiskAccess, it.logicalSizeBytes,
                             it.allocatedSizeBytes, it.fileCount),
                  std::tuple(w.path, fs::is_directory(w.path), category, w.tier, w.ruleId, w.description, w.orphaned,
                             false, false, m.logicalBytes, m.allocatedBytes, m.fileCount));
    }
}

std::string targetDeleted(const std::string& name) { return "Orphaned Git Worktree: " + name + " (target deleted)"; }

class ProjectScanTest : public ::testing::Test {
protected:
    std::vector<DiscoveredItem> scan(const CategorySet& categories = {StorageCategory::developerCache},
                                     std::optional<std::vector<FileURL>> roots = {}, StopToken stop = {},
                                     const ScanProgressHandler& progress = {}) const {
        return DeveloperTargets(FileURL(home.path(), true), {}, std::move(roots), makeDefaultFileSystem(),
                                nullptr, [](const std::string&) { return false; }).scan(categories, progress, stop);
    }
    std::vector<std::string> descriptions(std::optional<std::vector<FileURL>> roots = std::nullopt) const {
        const auto items = scan({StorageCategory::developerCache}, std::move(roots));
        const auto texts = items | std::views::transform(&DiscoveredItem::itemDescription);
        return {texts.begin(), texts.end()};
    }
    // A record in .git/worktrees whose gitdir names a path that is not there:
    // whether the scan offers it tells whether the search found the repository.
    void danglingRecord(const std::string& repository, const std::string& record = "gone") const {
        home.writeFile(repository + ".git/worktrees/" + record + "/gitdir", home.root() + "/nowhere/.git\n");
    }
    // Real git in the temporary home: "" when it worked, else what it said.
    std::string git(const std::string& directory, std::vector<std::string> arguments) const {
        home.writeFile(".gitconfig", "[user]\n\tname = Unbulk Test\n\temail = test@example.invalid\n"
                                     "[protocol \"file\"]\n\tallow = always\n");
        const testing::ProcessOptions env{
            .environment = {{"GIT_CONFIG_NOSYSTEM", "1"}, {"XDG_CONFIG_HOME", home.path()}}};
        arguments.insert(arguments.begin(), {"git", "-C", directory});
        const auto result = testing::runProcess("/usr/bin/env", arguments, env);
        return result.exitStatus == 0 ? std::string() : result.standardError + result.standardOutput;
    }
    bool haveGit() const { return git(home.path(), {"--version"}).empty(); }
    void makeRepository(const std::string& repository) const {
        ASSERT_EQ(git(home.root(), {"init", "-q", repository}), "");
        ASSERT_EQ(git(repository, {"commit", "-q", "--allow-empty", "-m", "first"}), "");
    }

    testing::TempHome home;
};

TEST_F(ProjectScanTest, RecordsThatRealGitLeftBehindAreOfferedAndHealthyWorktreesAreNot) {
    if (!haveGit()) GTEST_SKIP() << "git is not installed";
    const std::string app = home.at("Projects/app"), main = home.root() + "/elsewhere/main";
    for (const std::string& repository : {app, main}) makeRepository(repository);
    ASSERT_EQ(git(app, {"worktree", "add", "-q", "../wt-gone"}) + git(app, {"worktree", "add", "-q", "../wt-ok"}) +
                  git(main, {"worktree", "add", "-q", home.at("Projects/linked")}), "");
    EXPECT_TRUE(scan().empty()) << "healthy worktrees are left alone";

    fs::remove_all(home.at("Projects/wt-gone"));
    fs::remove_all(home.root() + "/elsewhere");
    auto items = scan();
    std::ranges::sort(items, {}, &DiscoveredItem::path);
    expectItems(items, StorageCategory::developerCache,
                {{app + "/.git/worktrees/wt-gone", "dev.git.orphaned_worktrees", targetDeleted("app/wt-gone"), true},
                 {home.at("Projects/linked"), "dev.git.orphaned_worktrees",
                  "Orphaned Git Worktree Checkout: linked (main repository missing)", true}});
}

// Relative paths are read as git reads them: a `.git` file's against the
// folder that holds it, a record's against the record folder. A submodule
// with edits in a repository that is itself a scanned root, and a worktree
// with relative records (as `git worktree add --relative-paths` writes them
// from git 2.48 on, written here by hand), are healthy. A locked worktree is
// kept, checkout gone or not, as `git worktree prune` keeps it.
TEST_F(ProjectScanTest, WorktreesAndSubmodulesAreJudgedAsGitJudgesThem) {
    if (!haveGit()) GTEST_SKIP() << "git is not installed";
    const std::string super = home.at("Projects"), library = home.root() + "/library", repo = home.at("Projects/repo");
    makeRepository(super);
    makeRepository(library);
    ASSERT_EQ(git(super, {"submodule", "add", "-q", library, "lib"}), "");
    home.writeFile("Projects/lib/edit.txt", "uncommitted work");
    ASSERT_TRUE(fs::is_regular_file(home.at("Projects/lib/.git")));

    makeRepository(repo);
    ASSERT_EQ(git(repo, {"worktree", "add", "-q", "../x"}), "");
    ASSERT_EQ(git(repo, {"worktree", "add", "-q", "../held"}), "");
    ASSERT_EQ(git(repo, {"worktree", "lock", "../held"}), "");
    home.writeFile("Projects/x/.git", "gitdir: ../repo/.git/worktrees/x\n");
    home.writeFile("Projects/repo/.git/worktrees/x/gitdir", "../../../../x/.git\n");
    EXPECT_EQ(descriptions(), std::vector<std::string>{}) << "healthy checkouts offered for removal";

    fs::remove_all(home.at("Projects/x"));
    fs::remove_all(home.at("Projects/held"));
    EXPECT_EQ(descriptions(), std::vector<std::string>{targetDeleted("repo/x")});
}

// A root that is a repository itself is checked, and the search still goes
// inside it, down to grandchildren, never into a repository it found. The
// same repository reached from several roots is handled once. A stop asked
// for is noticed before the next repository.
TEST_F(ProjectScanTest, SearchFindsRepositoriesOnceAndOnlyWhereItLooks) {
    danglingRecord("Projects/", "root-record");
    danglingRecord("Projects/outer/");
    danglingRecord("Projects/outer/inner/", "inner-record");
    danglingRecord("Projects/a/two/");
    danglingRecord("Projects/a/b/three/", "third-level");
    home.writeFile("Projects/gone/.git", "gitdir: " + home.root() + "/missing\n");
    home.writeFile("Projects/bare/.git", "gitdir:\n");
    home.writeFile("Projects/other/.git", "worktree: " + home.root() + "/missing\n");
    home.writeFile("Projects/app/.git/worktrees/empty/gitdir", "");
    home.makeDirectory("src");
    auto found = descriptions(std::vector{FileURL(home.at("Projects"), true), FileURL(home.at("Projects/"), true),
                                          FileURL(home.at("src/../Projects"), true)});
    std::ranges::sort(found);
    EXPECT_EQ(found, (std::vector<std::string>{"Orphaned Git Worktree Checkout: gone (main repository missing)",
                                               targetDeleted("Projects/root-record"), targetDeleted("outer/gone"),
                                               targetDeleted("two/gone")}));

    StopSource source;
    int reports = 0;
    auto progress = [&](const ScanProgress&) { ++reports; source.requestStop(); };
    EXPECT_THROW(scan({StorageCategory::developerCache}, {}, source.token(), progress), CancellationError);
    EXPECT_EQ(reports, 1);
}

TEST_F(ProjectScanTest, HomeThatIsARepositoryIsSearchedLastWithoutItsPersonalFolders) {
    danglingRecord("", "home-record");
    danglingRecord("tools/cli/");
    danglingRecord("Library/thing/");
    danglingRecord("src/lib/");      // a project root of its own, searched before the home
    danglingRecord("Projects/app/"); // and found again from the home
    const std::string homeRecord = fs::path(home.path()).filename().string() + "/home-record";
    EXPECT_EQ(descriptions(), (std::vector<std::string>{targetDeleted("app/gone"), targetDeleted("lib/gone"),
                                                        targetDeleted(homeRecord), targetDeleted("cli/gone")}));
}

// DerivedData, with a stray file beside its folders, is in ScanEndToEndTests.
TEST_F(ProjectScanTest, XcodeProductsByPlace) {
    home.writeFile("Library/Developer/Xcode/Archives/2024-01-01/App.xcarchive/Info.plist", 700);
    home.writeFile("Library/Developer/CoreSimulator/Caches/dyld/cache", 9000);
    const std::vector<Want> wants{{home.at("Library/Developer/Xcode/Archives"), "dev.xcode.archives",
                             "Xcode Release Archives (.xcarchive)", false, RiskTier::reviewRequired},
                            {home.at("Library/Developer/CoreSimulator/Caches"), "dev.xcode.simulator_caches",
                             "Xcode Simulator Runtime Caches"}};
    expectItems(scan({StorageCategory::xcodeArtifacts}), StorageCategory::xcodeArtifacts, wants);
}

TEST_F(ProjectScanTest, NodeModulesInTheHomeIsOfferedFolderOrFile) {
    const auto stray = StorageCategory::strayDependencies;
    home.writeFile("Projects/app/node_modules/left-pad/index.js", 100); // a project's own: never looked at
    EXPECT_TRUE(scan({stray}).empty());
    const Want want{home.at("node_modules"), "dev.stray.node_modules", "Stray node_modules in User Home Root Directory",
                    true, RiskTier::reviewRequired};
    home.writeFile("node_modules", 321);
    expectItems(scan({stray}), stray, {want});
}

} // namespace
} // namespace unbulk
