#include <algorithm>
#include <csignal>
#include <filesystem>
#include <tuple>

#include <spawn.h>
#include <sys/wait.h>

#include <gtest/gtest.h>

#include "Platform/Processes.hpp"
#include "Scanner/DeveloperTargets.hpp"
#include "support/Files.hpp"
#include "support/TempHome.hpp"

extern char** environ;

namespace unbulk {
namespace {

namespace fs = std::filesystem;

// What one item should say; the allocated size is what lstat gives for
// `measured` (the item's own path when empty).
struct Want {
    std::string path, description, ruleId;
    std::int64_t logical, fileCount;
    bool orphaned = false;
    std::vector<std::string> measured = {};
};

void expectItems(const std::vector<DiscoveredItem>& items, const std::vector<Want>& wants) {
    ASSERT_EQ(items.size(), wants.size());
    for (std::size_t i = 0; i < items.size(); ++i) {
        const DiscoveredItem& it = items[i];
        const Want& w = wants[i];
        std::int64_t allocated = 0;
        for (const auto& path : w.measured.empty() ? std::vector{w.path} : w.measured)
            allocated += testing::diskUsage(path).allocated;
        EXPECT_EQ(std::tuple(it.path, it.url.path(), it.itemDescription, it.ruleId, it.category, it.riskTier,
                             it.isOrphaned, it.isLocked, it.requiresFullDiskAccess, it.logicalSizeBytes, it.fileCount,
                             it.allocatedSizeBytes),
                  std::tuple(w.path, w.path, w.description, w.ruleId, StorageCategory::developerCache,
                             RiskTier::safeToDelete, w.orphaned, false, false, w.logical, w.fileCount,
                             allocated));
    }
}

class PackageCacheScanTest : public ::testing::Test {
protected:
    std::vector<DiscoveredItem> scan(const CategorySet& categories = {StorageCategory::developerCache}) {
        const DeveloperTargets targets(FileURL(home.path(), true), {}, std::nullopt, fileSystem, nullptr,
                                       [](const std::string&) { return false; });
        return targets.scan(categories, [this](const ScanProgress& p) { reports.push_back(p); });
    }
    std::string at(std::string_view relative) const { return home.at(relative); }

    testing::TempHome home;
    std::shared_ptr<FileSystem> fileSystem = makeDefaultFileSystem();
    std::vector<ScanProgress> reports;
    const std::string brew = "Library/Caches/Homebrew";
};

// The sub-scans in their fixed order, each place in its own, and one
// progress report for every item with that item's own bytes. (uv's
// CACHEDIR.TAG beside its folders, and pnpm's store, are in ScanEndToEndTests.)
TEST_F(PackageCacheScanTest, CachesInTheirOrderEachItemReportedByItself) {
    home.writeFile("py/interpreter", 640);
    home.makeSymlink(".cache/uv/python-v0", at("py"));  // a link to a folder counts as one
    home.writeFile("Library/Caches/uv/.tmp/blob", 500); // lists nothing visible: offered whole
    home.writeFile(brew + "/api/formula.jws.json", 4000);
    home.writeFile(".gradle/caches/modules-2/x.jar", 6000);

    const auto items = scan();
    expectItems(items, {
        {at(".cache/uv/python-v0"), "uv Cache (python-v0)", "dev.uv.cache", 640, 1, false, {at("py")}},
        {at("Library/Caches/uv"), "uv Package and Wheel Archives", "dev.uv.cache", 500, 1},
        {at(brew + "/api"), "Homebrew API Metadata Cache", "dev.homebrew.cache", 4000, 1},
        {at(".gradle/caches"), "Gradle Dependency & Transform Cache", "dev.gradle.cache", 6000, 1},
    });
    ASSERT_EQ(reports.size(), items.size());
    for (std::size_t i = 0; i < items.size(); ++i)
        EXPECT_EQ(reports[i], (ScanProgress{.currentPath = items[i].path, .itemsFound = 1,
                                            .totalAllocatedBytesScanned = items[i].allocatedSizeBytes,
                                            .totalLogicalBytesScanned = items[i].logicalSizeBytes}));
}

TEST_F(PackageCacheScanTest, HomebrewOffersAbandonedDownloadsByThemselvesAndSumsTheRest) {
    const std::string downloads = at(brew + "/downloads");
    home.writeFile(brew + "/downloads/aaa--wget.bottle.tar.gz", 5000);
    home.writeFile(brew + "/downloads/.INCOMPLETE", 40);         // hidden: no extension, no ".incomplete" ending
    home.writeFile(brew + "/downloads/bbb.incomplete.part", 60); // the name must end in it
    home.writeFile(brew + "/downloads/x.INCOMPLETE", 300);       // the extension test ignores case
    for (const char* part : {"1", "2", "3"}) home.writeFile(brew + "/downloads/ddd.incomplete/" + part, 100);
    home.writeFile(brew + "/Cask/firefox.dmg", 9000);
    // Listings come in the platform's order: sorted by path here.
    auto items = scan();
    std::ranges::sort(items, {}, &DiscoveredItem::path);
    expectItems(items, {
        {at(brew + "/Cask"), "Homebrew Cask Download Cache", "dev.homebrew.cache", 9000, 1},
        {downloads, "Homebrew Downloaded Bottles & Packages", "dev.homebrew.cache", 5100, 3, false,
         {downloads + "/aaa--wget.bottle.tar.gz", downloads + "/.INCOMPLETE",
          downloads + "/bbb.incomplete.part"}},
        {downloads + "/ddd.incomplete", "Homebrew Incomplete Download: ddd.incomplete", "dev.homebrew.incomplete", 300,
         1, true},
        {downloads + "/x.INCOMPLETE", "Homebrew Incomplete Download: x.INCOMPLETE", "dev.homebrew.incomplete", 300, 1,
         true},
    });
}

// npm and Homebrew go whole only when none of their known subfolders is there.
TEST_F(PackageCacheScanTest, NpmAndHomebrewGoWholeOnlyWithoutTheirKnownSubfolders) {
    home.writeFile(".npm/_locks/x", 10);
    home.writeFile(".npm/anonymous-cli-metrics.json", 90);
    home.writeFile(brew + "/formula.rb", 700);
    home.makeDirectory(brew + "/downloads"); // empty: no item, and enough to rule out the whole
    expectItems(scan(), {{at(".npm"), "npm Package Cache", "dev.npm.cache", 100, 2}});

    home.makeDirectory(".npm/_npx");                           // empty, and enough to hide the whole
    home.writeFile(brew + "/downloads/empty.bottle.tar.gz", 0); // stricter than the keep test: no bytes, no item
    expectItems(scan(), {{at(".npm/_npx"), "npm Download Cache (_npx)", "dev.npm.cache", 0, 1}});

    fs::remove_all(at(brew + "/downloads"));
    expectItems(scan(), {{at(".npm/_npx"), "npm Download Cache (_npx)", "dev.npm.cache", 0, 1},
                         {at(brew), "Homebrew Formula & Cask Cache", "dev.homebrew.cache", 700, 1}});
}


TEST(DefaultProcessCheckerTest, FindsARunningProcessByAnyPartOfItsNameIgnoringCase) {
    testing::TempHome home;
    const ProcessRunningCheck isRunning = DeveloperTargets::processChecker(makeDefaultProcesses());
    ASSERT_FALSE(isRunning("unbulkprobe")) << "a probe of an earlier run is still alive";
    std::string probe = home.root() + "/unbulkprobe", seconds = "30";
    fs::copy_file("/bin/sleep", probe);
    char* argv[] = {probe.data(), seconds.data(), nullptr};
    pid_t pid = 0;
    ASSERT_EQ(::posix_spawn(&pid, probe.c_str(), nullptr, nullptr, argv, environ), 0);
    for (const char* name : {"unbulkprobe", "UNBULKPROBE", "bulkpro"}) EXPECT_TRUE(isRunning(name)) << name;
    EXPECT_FALSE(isRunning("unbulkprobe-absent"));
    ::kill(pid, SIGKILL);
    ::waitpid(pid, nullptr, 0);
    EXPECT_FALSE(isRunning("unbulkprobe"));
}

} // namespace
} // namespace unbulk
