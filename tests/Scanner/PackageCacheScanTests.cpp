#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include <spawn.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <gtest/gtest.h>

#include "Rules/RuleRegistry.hpp"
#include "Scanner/DeveloperTargets.hpp"
#include "Support/Paths.hpp"
#include "support/FaultyFileSystem.hpp"
#include "support/TempHome.hpp"

extern char** environ;

namespace unbulk {
namespace {

namespace fs = std::filesystem;
using testing::FaultyFileSystem;
using testing::FileSystemCall;
using testing::TempHome;

// Bytes on disk of the regular files at or below a path (links not
// followed), worked out with lstat apart from the code under test.
std::int64_t allocatedOnDisk(const std::string& path) {
    auto blocksOf = [](const std::string& file) {
        struct stat st {};
        if (::lstat(file.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) return std::int64_t{0};
        return static_cast<std::int64_t>(st.st_blocks) * 512;
    };
    if (!fs::is_directory(fs::symlink_status(path))) return blocksOf(path);
    std::int64_t sum = 0;
    for (const auto& entry : fs::recursive_directory_iterator(path)) sum += blocksOf(entry.path().string());
    return sum;
}

Date instant(std::int64_t seconds) { return Date{std::chrono::seconds{seconds}}; }

void setModified(const std::string& path, std::int64_t seconds) {
    const std::chrono::sys_seconds when{std::chrono::seconds{seconds}};
    fs::last_write_time(path, fs::file_time_type::clock::from_sys(when));
}

// What one item should say. The allocated size is the lstat sum over
// `measured` (the item's own path when empty).
struct Want {
    std::string path;
    std::string description;
    std::string ruleId;
    std::int64_t logical;
    std::int64_t fileCount;
    bool orphaned = false;
    RiskTier tier = RiskTier::safeToDelete;
    std::vector<std::string> measured = {};
};

void expectItem(const DiscoveredItem& item, const Want& want) {
    SCOPED_TRACE(want.description + " at " + want.path);
    EXPECT_EQ(item.path, want.path);
    EXPECT_EQ(item.url.path(), want.path);
    EXPECT_EQ(item.itemDescription, want.description);
    EXPECT_EQ(item.category, StorageCategory::developerCache);
    EXPECT_EQ(item.riskTier, want.tier);
    EXPECT_EQ(item.ruleId, want.ruleId);
    EXPECT_EQ(item.isOrphaned, want.orphaned);
    EXPECT_FALSE(item.isLocked);
    EXPECT_FALSE(item.requiresFullDiskAccess);
    EXPECT_EQ(item.fileCount, want.fileCount);
    EXPECT_EQ(item.logicalSizeBytes, want.logical);
    std::int64_t allocated = 0;
    for (const auto& path : want.measured.empty() ? std::vector{want.path} : want.measured) {
        allocated += allocatedOnDisk(path);
    }
    EXPECT_EQ(item.allocatedSizeBytes, allocated);
}

void expectItems(const std::vector<DiscoveredItem>& items, const std::vector<Want>& wants) {
    ASSERT_EQ(items.size(), wants.size());
    for (std::size_t i = 0; i < items.size(); ++i) expectItem(items[i], wants[i]);
}

std::vector<std::string> descriptionsOf(const std::vector<DiscoveredItem>& items) {
    std::vector<std::string> out;
    for (const auto& item : items) out.push_back(item.itemDescription);
    return out;
}

// Listings come in the platform's order: sort the run [first, last) by path
// where a test does not care about it.
void sortRun(std::vector<DiscoveredItem>& items, std::size_t first, std::size_t last) {
    ASSERT_LE(last, items.size());
    std::sort(items.begin() + static_cast<std::ptrdiff_t>(first), items.begin() + static_cast<std::ptrdiff_t>(last),
              [](const auto& a, const auto& b) { return a.path < b.path; });
}

class PackageCacheScanTest : public ::testing::Test {
protected:
    DeveloperTargets targets(std::shared_ptr<FileSystem> fileSystem = nullptr,
                             std::shared_ptr<const RuleRegistry> registry = nullptr,
                             std::optional<std::string> homePath = std::nullopt) const {
        return DeveloperTargets(FileURL(homePath.value_or(home.path()), true), std::nullopt,
                                std::vector<FileURL>{},
                                fileSystem ? std::move(fileSystem) : makeDefaultFileSystem(), std::move(registry),
                                [](const std::string&) { return false; });
    }

    std::vector<DiscoveredItem> scanCaches(const DeveloperTargets& developer) {
        reports.clear();
        return developer.scan({StorageCategory::developerCache},
                              [this](const ScanProgress& progress) { reports.push_back(progress); });
    }
    std::vector<DiscoveredItem> scanCaches() { return scanCaches(targets()); }

    std::string at(std::string_view relative) const { return home.at(relative); }

    TempHome home;
    std::vector<ScanProgress> reports;
};

// ---- uv

TEST_F(PackageCacheScanTest, UvGivesOneItemPerCacheFolderAndTheWholeBaseWhenItListsNothing) {
    home.writeFile(".cache/uv/wheels-v1/pkg/a.whl", 3000);
    home.writeFile(".cache/uv/archive-v0/x/y.py", 120);
    home.writeFile(".cache/uv/archive-v0/x/z.py", 80);
    home.makeDirectory(".cache/uv/sdists-v2");
    home.writeFile(".cache/uv/.lock", 5);          // plain file: ignored
    home.writeFile(".cache/uv/CACHEDIR.TAG", 43);   // plain file: ignored
    home.writeFile(".cache/uv/.tmpXYZ/part", 999); // hidden folder: not listed
    home.writeFile("elsewhere/interpreter", 640);
    home.makeSymlink(".cache/uv/python-v0", at("elsewhere")); // a link to a folder counts as one
    home.makeDirectory("Library/Caches/uv");                  // empty: the base itself

    auto items = scanCaches();
    ASSERT_EQ(items.size(), 5u);
    sortRun(items, 0, 4);
    expectItems(items, {
                           {at(".cache/uv/archive-v0"), "uv Cache (archive-v0)", "dev.uv.cache", 200, 2},
                           {at(".cache/uv/python-v0"), "uv Cache (python-v0)", "dev.uv.cache", 640, 1, false,
                            RiskTier::safeToDelete, {at("elsewhere")}},
                           {at(".cache/uv/sdists-v2"), "uv Cache (sdists-v2)", "dev.uv.cache", 0, 1},
                           {at(".cache/uv/wheels-v1"), "uv Cache (wheels-v1)", "dev.uv.cache", 3000, 1},
                           {at("Library/Caches/uv"), "uv Package and Wheel Archives", "dev.uv.cache", 0, 1},
                       });
}

TEST_F(PackageCacheScanTest, UvBaseOfPlainFilesGivesNothingAndOneOfHiddenEntriesIsMeasuredWhole) {
    home.writeFile(".cache/uv/CACHEDIR.TAG", 43);
    home.writeFile(".cache/uv/README", 10);
    home.writeFile("Library/Caches/uv/.hidden/blob", 500);
    expectItems(scanCaches(), {{at("Library/Caches/uv"), "uv Package and Wheel Archives", "dev.uv.cache", 500, 1}});
}

TEST_F(PackageCacheScanTest, UvBaseWhoseListingFailsIsMeasuredWhole) {
    home.writeFile(".cache/uv/wheels-v1/a.whl", 2500);
    auto faulty = std::make_shared<FaultyFileSystem>();
    faulty->failOn(FileSystemCall::contentsOfDirectory, at(".cache/uv"), EACCES);
    expectItems(scanCaches(targets(faulty)),
                {{at(".cache/uv"), "uv Package and Wheel Archives", "dev.uv.cache", 2500, 1}});
}

// ---- npm, Bun, pip, Cargo, pnpm

TEST_F(PackageCacheScanTest, PackageManagersInTheirOrderWithTheirDescriptions) {
    home.writeFile(".npm/_cacache/content-v2/sha512/ab/cd", 4096);
    home.writeFile(".npm/_cacache/index-v5/00/11", 300);
    home.makeDirectory(".npm/_npx");
    home.writeFile(".npm/_logs/2024-debug-0.log", 1234);
    home.writeFile(".npm/anonymous-cli-metrics.json", 77); // lies outside every subfolder item
    home.writeFile(".bun/install/cache/react@18/index.js", 900);
    home.writeFile(".cache/pip/http-v2/a/b", 2048);
    home.writeFile("Library/Caches/pip/wheels/c.whl", 1024);
    home.writeFile(".cargo/registry/cache/index.crates.io/serde-1.0.crate", 8000);
    home.writeFile(".cargo/registry/src/index.crates.io/serde-1.0/lib.rs", 600);
    home.writeFile(".cargo/git/db/repo/HEAD", 20);
    home.writeFile(".cargo/git/checkouts/repo/abc/Cargo.toml", 30);
    home.writeFile(".cargo/.package-cache", 0);
    home.writeFile(".cargo/bin/cargo", 5000); // installed tools: never an item
    home.writeFile(".local/share/pnpm/store/v3/files/00/x", 111);
    home.writeFile("Library/pnpm/store/v3/files/01/y", 222);
    home.writeFile(".pnpm-store/v3/files/02/z", 333);

    expectItems(scanCaches(),
                {
                    {at(".npm/_cacache"), "npm Download Cache (_cacache)", "dev.npm.cache", 4396, 2},
                    {at(".npm/_npx"), "npm Download Cache (_npx)", "dev.npm.cache", 0, 1},
                    {at(".npm/_logs"), "npm Download Cache (_logs)", "dev.npm.cache", 1234, 1},
                    {at(".bun/install/cache"), "Bun Package Install Cache", "dev.bun.cache", 900, 1},
                    {at(".cache/pip"), "pip HTTP Response and Wheel Cache", "dev.pip.cache", 2048, 1},
                    {at("Library/Caches/pip"), "pip HTTP Response and Wheel Cache", "dev.pip.cache", 1024, 1},
                    {at(".cargo/registry/cache"), "Cargo Crate Archive Cache (.crate)", "dev.cargo.cache", 8000, 1},
                    {at(".cargo/registry/src"), "Cargo Unpacked Crate Source Cache", "dev.cargo.cache", 600, 1},
                    {at(".cargo/git/db"), "Cargo Bare Git Repositories", "dev.cargo.cache", 20, 1},
                    {at(".cargo/git/checkouts"), "Cargo Git Checkout Cache", "dev.cargo.cache", 30, 1},
                    {at(".cargo/.package-cache"), "Cargo Package Cache", "dev.cargo.cache", 0, 1},
                    {at(".local/share/pnpm/store"), "pnpm Virtual Store (~/.local/share/pnpm/store)",
                     "dev.pnpm.store", 111, 1},
                    {at("Library/pnpm/store"), "pnpm Virtual Store (~/Library/pnpm/store)", "dev.pnpm.store", 222,
                     1},
                    {at(".pnpm-store"), "pnpm Virtual Store (~/.pnpm-store)", "dev.pnpm.store", 333, 1},
                });
}

TEST_F(PackageCacheScanTest, NpmFolderIsShownWholeOnlyWhenNoKnownSubfolderGivesAnItem) {
    home.writeFile(".npm/_locks/x", 10);
    home.writeFile(".npm/anonymous-cli-metrics.json", 90);
    expectItems(scanCaches(), {{at(".npm"), "npm Package Cache", "dev.npm.cache", 100, 2}});

    // An empty _npx is an item of its own, and it is enough to hide the whole.
    home.makeDirectory(".npm/_npx");
    expectItems(scanCaches(), {{at(".npm/_npx"), "npm Download Cache (_npx)", "dev.npm.cache", 0, 1}});

    // The subfolders count only inside an existing ~/.npm; an empty one is an item.
    fs::remove_all(at(".npm"));
    home.makeDirectory(".npm");
    expectItems(scanCaches(), {{at(".npm"), "npm Package Cache", "dev.npm.cache", 0, 1}});
}

TEST_F(PackageCacheScanTest, HomeWhosePathHoldsToolGuardsLosesCargoAndGradleItems) {
    // The guards look at the whole path, so a home below ".cargo/bin" and
    // "gradle.properties" silences Cargo and Gradle while npm goes on.
    const std::string oddHome = at(".cargo/bin/gradle.properties/user");
    for (const char* relative : {".cargo/registry/cache/a.crate", ".cargo/git/db/HEAD", ".gradle/caches/x",
                                 ".gradle/daemon/8.5/log", ".npm/_logs/l.log", ".pnpm-store/v3/f"}) {
        home.writeFile(std::string(".cargo/bin/gradle.properties/user/") + relative, 10);
    }
    expectItems(scanCaches(targets(nullptr, nullptr, oddHome)),
                {
                    {oddHome + "/.npm/_logs", "npm Download Cache (_logs)", "dev.npm.cache", 10, 1},
                    {oddHome + "/.pnpm-store", "pnpm Virtual Store (~/.pnpm-store)", "dev.pnpm.store", 10, 1},
                });
}

// ---- Homebrew

class HomebrewScanTest : public PackageCacheScanTest {
protected:
    std::string brew(std::string_view relative = {}) const {
        return relative.empty() ? at("Library/Caches/Homebrew")
                                : at("Library/Caches/Homebrew/" + std::string(relative));
    }
    void write(std::string_view relative, std::uintmax_t size) const {
        home.writeFile("Library/Caches/Homebrew/" + std::string(relative), size);
    }
};

TEST_F(HomebrewScanTest, IncompleteDownloadsBottlesCaskAndApi) {
    write("downloads/aaa--wget-1.24.bottle.tar.gz", 5000);
    write("downloads/.INCOMPLETE", 40);              // hidden, and not abandoned: the name test is exact
    write("downloads/bbb--curl.tar.gz.incomplete.part", 60); // the name must end in it
    write("downloads/nested-bottle/inner.tar.gz", 700);
    write("downloads/ccc--jq.tar.gz.incomplete", 1200);
    write("downloads/x.INCOMPLETE", 300);            // the extension test ignores case
    write("downloads/y.Incomplete", 30);
    write("downloads/.incomplete", 10);              // no extension, but the name ends in it
    for (int i = 0; i < 10; ++i) write("downloads/ddd--node.incomplete/chunk" + std::to_string(i), 100);
    write("Cask/firefox--120.0.dmg", 9000);
    write("api/formula.jws.json", 4000);
    write("api/cask.jws.json", 3000);
    write("portable-ruby-3.3.tar.gz", 50); // outside the known folders: part of no item

    auto items = scanCaches();
    ASSERT_EQ(items.size(), 8u);
    sortRun(items, 0, 5);
    const std::string incomplete = "dev.homebrew.incomplete";
    expectItems(items,
                {
                    {brew("downloads/.incomplete"), "Homebrew Incomplete Download: .incomplete", incomplete, 10, 1,
                     true},
                    {brew("downloads/ccc--jq.tar.gz.incomplete"),
                     "Homebrew Incomplete Download: ccc--jq.tar.gz.incomplete", incomplete, 1200, 1, true},
                    {brew("downloads/ddd--node.incomplete"), "Homebrew Incomplete Download: ddd--node.incomplete",
                     incomplete, 1000, 1, true},
                    {brew("downloads/x.INCOMPLETE"), "Homebrew Incomplete Download: x.INCOMPLETE", incomplete, 300, 1,
                     true},
                    {brew("downloads/y.Incomplete"), "Homebrew Incomplete Download: y.Incomplete", incomplete, 30, 1,
                     true},
                    {brew("downloads"), "Homebrew Downloaded Bottles & Packages", "dev.homebrew.cache",
                     5000 + 40 + 60 + 700, 4, false, RiskTier::safeToDelete,
                     {brew("downloads/aaa--wget-1.24.bottle.tar.gz"), brew("downloads/.INCOMPLETE"),
                      brew("downloads/bbb--curl.tar.gz.incomplete.part"), brew("downloads/nested-bottle")}},
                    {brew("Cask"), "Homebrew Cask Download Cache", "dev.homebrew.cache", 9000, 1},
                    {brew("api"), "Homebrew API Metadata Cache", "dev.homebrew.cache", 7000, 2},
                });
}

TEST_F(HomebrewScanTest, BottlesItemKeepsTheNewestDatesOfItsEntries) {
    write("downloads/old.bottle.tar.gz", 10);
    write("downloads/folder/new.bottle.tar.gz", 10);
    write("downloads/z.incomplete", 10);
    setModified(brew("downloads/old.bottle.tar.gz"), 1'600'000'000);
    setModified(brew("downloads/folder/new.bottle.tar.gz"), 1'650'000'000);
    setModified(brew("downloads/z.incomplete"), 1'700'000'000); // its own item: not in the bottles' dates
    setModified(brew("downloads"), 1'800'000'000);

    const auto items = scanCaches();
    ASSERT_EQ(items.size(), 2u);
    EXPECT_EQ(items[0].lastModifiedDate, instant(1'700'000'000));
    EXPECT_EQ(items[1].itemDescription, "Homebrew Downloaded Bottles & Packages");
    EXPECT_EQ(items[1].lastModifiedDate, instant(1'650'000'000));
    EXPECT_TRUE(items[1].lastAccessedDate);
}

TEST_F(HomebrewScanTest, DownloadsOfNothingOrOfEmptyFilesGiveNoItemAndHideTheWholeCache) {
    write("formula-leftover.json", 500);
    home.makeDirectory("Library/Caches/Homebrew/downloads");
    EXPECT_TRUE(scanCaches().empty());

    // Empty files pass the common keep test but not the bottles' stricter one.
    write("downloads/empty.bottle.tar.gz", 0);
    write("downloads/.empty", 0);
    home.makeDirectory("Library/Caches/Homebrew/downloads/empty-folder");
    EXPECT_TRUE(scanCaches().empty());

    // An empty abandoned download is still an item of its own.
    write("downloads/gone.incomplete", 0);
    expectItems(scanCaches(), {{brew("downloads/gone.incomplete"), "Homebrew Incomplete Download: gone.incomplete",
                                "dev.homebrew.incomplete", 0, 1, true}});
}

TEST_F(HomebrewScanTest, UnfamiliarLayoutIsShownWholeAndAnyKnownFolderPreventsIt) {
    write("formula.rb", 700);
    write("bottles/old.tar.gz", 300);
    expectItems(scanCaches(), {{brew(), "Homebrew Formula & Cask Cache", "dev.homebrew.cache", 1000, 2}});

    for (const char* known : {"api", "Cask"}) {
        SCOPED_TRACE(known);
        home.makeDirectory("Library/Caches/Homebrew/" + std::string(known));
        const auto items = scanCaches();
        ASSERT_EQ(items.size(), 1u);
        EXPECT_EQ(items[0].path, brew(known));
        fs::remove_all(brew(known));
    }

    // Without the Homebrew folder there is nothing at all.
    fs::remove_all(brew());
    home.makeDirectory("Library/Caches/other");
    EXPECT_TRUE(scanCaches().empty());
}

TEST_F(HomebrewScanTest, DownloadsWhoseListingFailsIsMeasuredWhole) {
    write("downloads/a.bottle.tar.gz", 800);
    write("downloads/b.incomplete", 200);
    auto faulty = std::make_shared<FaultyFileSystem>();
    faulty->failOn(FileSystemCall::contentsOfDirectory, brew("downloads"), EACCES);
    expectItems(scanCaches(targets(faulty)),
                {{brew("downloads"), "Homebrew Download Cache", "dev.homebrew.cache", 1000, 2}});
}

TEST_F(HomebrewScanTest, UnreadableBottleFlagsTheSummedItem) {
    write("downloads/a.bottle.tar.gz", 800);
    write("downloads/folder/b.tar.gz", 200);
    write("downloads/folder/c.tar.gz", 100);
    auto faulty = std::make_shared<FaultyFileSystem>();
    faulty->failOn(FileSystemCall::walk, brew("downloads/folder/c.tar.gz"), EACCES);
    const auto items = scanCaches(targets(faulty));
    ASSERT_EQ(items.size(), 1u);
    EXPECT_TRUE(items[0].requiresFullDiskAccess);
    EXPECT_EQ(items[0].logicalSizeBytes, 1000);
    EXPECT_EQ(items[0].fileCount, 2);
}

TEST_F(HomebrewScanTest, RegistryDecidesTierAndRuleButNeverTheIncompleteDownloadsRule) {
    write("downloads/a.bottle.tar.gz", 800);
    write("downloads/b.INCOMPLETE", 200);
    auto registry = std::make_shared<RuleRegistry>(std::nullopt, FileURL(home.path(), true), makeDefaultFileSystem());
    RuleDefinition rule;
    rule.id = "custom.brew";
    rule.name = "Brew Review";
    rule.description = "Everything Homebrew keeps.";
    rule.riskTier = RiskTier::reviewRequired;
    rule.patterns = {"~/Library/Caches/Homebrew/**"};
    registry->registerRule(rule);

    const auto items = scanCaches(targets(nullptr, registry));
    expectItems(items, {
                           {brew("downloads/b.INCOMPLETE"), "Homebrew Incomplete Download: b.INCOMPLETE",
                            "dev.homebrew.incomplete", 200, 1, true, RiskTier::reviewRequired},
                           {brew("downloads"), "Homebrew Downloaded Bottles & Packages", "custom.brew", 800, 1, false,
                            RiskTier::reviewRequired, {brew("downloads/a.bottle.tar.gz")}},
                       });
}

// ---- Gradle

TEST_F(PackageCacheScanTest, GradleGivesItsThreeFoldersAndNeverTheWhole) {
    home.writeFile(".gradle/caches/modules-2/files-2.1/x.jar", 6000);
    home.writeFile(".gradle/wrapper/dists/gradle-8.5-bin/abc/gradle.zip", 7000);
    home.writeFile(".gradle/daemon/8.5/daemon-1.out.log", 400);
    home.writeFile(".gradle/gradle.properties", 30);
    home.writeFile(".gradle/native/lib.so", 50);
    expectItems(scanCaches(),
                {
                    {at(".gradle/caches"), "Gradle Dependency & Transform Cache", "dev.gradle.cache", 6000, 1},
                    {at(".gradle/wrapper/dists"), "Gradle Wrapper Distributions", "dev.gradle.cache", 7000, 1},
                    {at(".gradle/daemon"), "Gradle Daemon Execution Logs & State", "dev.gradle.cache", 400, 1},
                });

    for (const char* gone : {".gradle/caches", ".gradle/wrapper", ".gradle/daemon"}) fs::remove_all(at(gone));
    EXPECT_TRUE(scanCaches().empty());
}

// ---- the scan as a whole

TEST_F(PackageCacheScanTest, SubScansRunInTheirOrderAndReportEachItemByItself) {
    home.writeFile(".gradle/caches/a", 11);
    home.writeFile("Library/Caches/Homebrew/api/b", 22);
    home.writeFile(".pnpm-store/c", 33);
    home.writeFile(".cargo/registry/cache/d", 44);
    home.writeFile("Library/Caches/pip/e", 55);
    home.writeFile(".cache/pip/f", 66);
    home.writeFile(".bun/install/cache/g", 77);
    home.writeFile(".npm/h", 88);
    home.writeFile("Library/Caches/uv/wheels/i", 99);
    home.writeFile(".cache/uv/archive/j", 110);

    const auto items = scanCaches();
    EXPECT_EQ(descriptionsOf(items), (std::vector<std::string>{
                                         "uv Cache (archive)",
                                         "uv Cache (wheels)",
                                         "npm Package Cache",
                                         "Bun Package Install Cache",
                                         "pip HTTP Response and Wheel Cache",
                                         "pip HTTP Response and Wheel Cache",
                                         "Cargo Crate Archive Cache (.crate)",
                                         "pnpm Virtual Store (~/.pnpm-store)",
                                         "Homebrew API Metadata Cache",
                                         "Gradle Dependency & Transform Cache",
                                     }));
    ASSERT_EQ(items.size(), 10u);
    EXPECT_EQ(items[4].path, at(".cache/pip"));
    EXPECT_EQ(items[5].path, at("Library/Caches/pip"));

    ASSERT_EQ(reports.size(), items.size());
    for (std::size_t i = 0; i < items.size(); ++i) {
        SCOPED_TRACE(items[i].path);
        EXPECT_EQ(reports[i], (ScanProgress{.currentCategory = StorageCategory::developerCache,
                                            .currentPath = items[i].path,
                                            .itemsFound = 1,
                                            .totalAllocatedBytesScanned = items[i].allocatedSizeBytes,
                                            .totalLogicalBytesScanned = items[i].logicalSizeBytes,
                                            .fractionCompleted = std::nullopt}));
        EXPECT_GT(items[i].logicalSizeBytes, 0);
    }
}

TEST_F(PackageCacheScanTest, NoCategoriesTouchNothing) {
    home.writeFile(".npm/_cacache/x", 10);
    auto faulty = std::make_shared<FaultyFileSystem>();
    const DeveloperTargets developer = targets(faulty);
    faulty->resetCounts();
    EXPECT_TRUE(developer.scan({}, [this](const ScanProgress& p) { reports.push_back(p); }).empty());
    for (std::size_t call = 0; call < testing::fileSystemCallCount; ++call) {
        EXPECT_EQ(faulty->callCount(static_cast<FileSystemCall>(call)), 0u) << "call kind " << call;
    }
    EXPECT_TRUE(reports.empty());
}

// Forwards to the real file system and writes down every path it is asked about.
class RecordingFileSystem final : public FileSystem {
public:
    std::vector<std::string> paths() const {
        std::lock_guard lock(mutex_);
        return paths_;
    }

    std::optional<FileStatus> status(const std::string& p, std::error_code& e) const override {
        return note(p)->status(p, e);
    }
    std::optional<FileStatus> linkStatus(const std::string& p, std::error_code& e) const override {
        return note(p)->linkStatus(p, e);
    }
    std::vector<DirectoryEntry> contentsOfDirectory(const std::string& p, ListOptions o,
                                                    std::error_code& e) const override {
        return note(p)->contentsOfDirectory(p, o, e);
    }
    void walk(const std::string& p, const WalkOptions& o, const WalkCallbacks& c) const override {
        note(p)->walk(p, o, c);
    }
    std::optional<std::string> destinationOfSymbolicLink(const std::string& p, std::error_code& e) const override {
        return note(p)->destinationOfSymbolicLink(p, e);
    }
    std::string resolvingSymlinks(const std::string& p) const override { return note(p)->resolvingSymlinks(p); }
    std::optional<std::string> readFile(const std::string& p, std::size_t n, std::error_code& e) const override {
        return note(p)->readFile(p, n, e);
    }
    bool writeFileAtomically(const std::string& p, std::string_view c, std::uint32_t m,
                             std::error_code& e) override {
        return note(p)->writeFileAtomically(p, c, m, e);
    }
    bool appendToFile(const std::string& p, std::string_view c, std::uint32_t m, std::error_code& e) override {
        return note(p)->appendToFile(p, c, m, e);
    }
    bool createDirectory(const std::string& p, std::uint32_t m, bool w, std::error_code& e) override {
        return note(p)->createDirectory(p, m, w, e);
    }
    bool moveItem(const std::string& f, const std::string& t, std::error_code& e) override {
        note(t);
        return note(f)->moveItem(f, t, e);
    }
    bool removeItem(const std::string& p, std::error_code& e) override { return note(p)->removeItem(p, e); }
    bool setPermissions(const std::string& p, std::uint32_t m, std::error_code& e) override {
        return note(p)->setPermissions(p, m, e);
    }
    bool isPackage(const std::string& p) const override { return note(p)->isPackage(p); }

private:
    FileSystem* note(const std::string& path) const {
        std::lock_guard lock(mutex_);
        paths_.push_back(paths::standardize(path));
        return inner_.get();
    }

    std::shared_ptr<FileSystem> inner_ = makeDefaultFileSystem();
    mutable std::mutex mutex_;
    mutable std::vector<std::string> paths_;
};

TEST_F(PackageCacheScanTest, ModelWeightsAloneRunNoCacheSubScanAndNoGitSearch) {
    const std::vector<std::string> cachePlaces = {
        ".cache/uv",   "Library/Caches/uv",  ".npm",          ".bun",  ".cache/pip", "Library/Caches/pip",
        ".cargo",      ".local/share/pnpm",  "Library/pnpm",  ".pnpm-store", "Library/Caches/Homebrew",
        ".gradle",     "Developer",
    };
    for (const auto& place : cachePlaces) home.writeFile(place + "/content", 10);
    home.writeFile("Developer/repo/.git/HEAD", "ref: refs/heads/main\n");

    auto recording = std::make_shared<RecordingFileSystem>();
    const DeveloperTargets developer(FileURL(home.path(), true), std::nullopt, std::nullopt, recording, nullptr,
                                     [](const std::string&) { return false; });
    for (const auto& item : developer.scan({StorageCategory::aiModelWeights}, nullptr)) {
        EXPECT_EQ(item.category, StorageCategory::aiModelWeights) << item.path;
    }
    for (const auto& path : recording->paths()) {
        for (const auto& place : cachePlaces) {
            EXPECT_FALSE(paths::isSameOrBelow(path, at(place))) << path << " was touched";
        }
    }

    // The same places are seen when the caches are asked for.
    developer.scan({StorageCategory::developerCache}, nullptr);
    const auto touched = recording->paths();
    EXPECT_TRUE(std::any_of(touched.begin(), touched.end(),
                            [&](const std::string& path) { return paths::isSameOrBelow(path, at(".npm")); }));
}

// ---- the process check

// A child running a copy of sleep under a name of our choosing.
class ProbeProcess {
public:
    ProbeProcess(const std::string& directory, const std::string& name) : executable_(directory + "/" + name) {
        fs::copy_file("/bin/sleep", executable_, fs::copy_options::overwrite_existing);
        fs::permissions(executable_, fs::perms::owner_all);
        std::string seconds = "30";
        char* argv[] = {executable_.data(), seconds.data(), nullptr};
        if (::posix_spawn(&pid_, executable_.c_str(), nullptr, nullptr, argv, environ) != 0) pid_ = -1;
    }
    ~ProbeProcess() { stop(); }
    ProbeProcess(const ProbeProcess&) = delete;
    ProbeProcess& operator=(const ProbeProcess&) = delete;

    bool started() const { return pid_ > 0; }
    void stop() {
        if (pid_ <= 0) return;
        ::kill(pid_, SIGKILL);
        ::waitpid(pid_, nullptr, 0);
        pid_ = -1;
    }

private:
    std::string executable_;
    pid_t pid_ = -1;
};

TEST(DefaultProcessCheckerTest, FindsARunningProcessByAnyPartOfItsNameIgnoringCase) {
    TempHome home;
    const ProcessRunningCheck isRunning = DeveloperTargets::defaultProcessChecker();
    ASSERT_FALSE(isRunning("unbulkprobe")) << "a probe of an earlier run is still alive";

    ProbeProcess probe(home.root(), "unbulkprobe");
    ASSERT_TRUE(probe.started());
    EXPECT_TRUE(isRunning("unbulkprobe"));
    EXPECT_TRUE(isRunning("UNBULKPROBE"));
    EXPECT_TRUE(isRunning("bulkpro"));
    EXPECT_FALSE(isRunning("unbulkprobe-absent"));
    EXPECT_FALSE(isRunning("zq-no-such-process"));

    probe.stop();
    EXPECT_FALSE(isRunning("unbulkprobe"));
}

} // namespace
} // namespace unbulk
