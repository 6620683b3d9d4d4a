// SystemTargets over fake homes: what each section finds, item by item, and
// what it makes of places it may not read. Permission errors are injected
// with FaultyFileSystem, as the tests run as root.

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <map>
#include <stop_token>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Scanner/SystemTargets.hpp"
#include "Support/Cancellation.hpp"
#include "Support/Paths.hpp"
#include "support/FaultyFileSystem.hpp"
#include "support/TempHome.hpp"

namespace unbulk {
namespace {

using testing::FaultyFileSystem;
using testing::FileSystemCall;
using testing::TempHome;

constexpr StorageCategory caches = StorageCategory::systemCaches;
constexpr StorageCategory logs = StorageCategory::systemLogs;
constexpr StorageCategory crashes = StorageCategory::crashReports;
constexpr StorageCategory mail = StorageCategory::mailDownloads;
constexpr StorageCategory browsers = StorageCategory::browserCaches;

std::string warningFor(const std::string& label, const std::string& path) {
    return "Full Disk Access is required to scan " + label + " at " + path +
           ". Grant Full Disk Access in System Settings > Privacy & Security > Full Disk Access.";
}

// Logical and allocated bytes of files, as lstat tells them.
std::pair<std::int64_t, std::int64_t> sizesOf(const std::vector<std::string>& files) {
    std::int64_t logical = 0, allocated = 0;
    for (const auto& file : files) {
        struct stat st {};
        EXPECT_EQ(::lstat(file.c_str(), &st), 0) << file;
        logical += st.st_size;
        allocated += static_cast<std::int64_t>(st.st_blocks) * 512;
    }
    return {logical, allocated};
}

// What one item should say. `files` are the files it holds, for the sizes;
// `fileCount` 0 with no files is a placeholder.
struct Expected {
    std::string description;
    std::string path;
    StorageCategory category;
    RiskTier tier;
    std::string ruleId;
    std::int64_t fileCount;
    std::vector<std::string> files;
    bool requiresFullDiskAccess = false;
};

void expectItem(const DiscoveredItem& item, const Expected& expected) {
    SCOPED_TRACE(expected.description);
    EXPECT_EQ(item.itemDescription, expected.description);
    EXPECT_EQ(item.path, expected.path);
    EXPECT_EQ(item.url.path(), expected.path);
    EXPECT_EQ(item.category, expected.category);
    EXPECT_EQ(item.riskTier, expected.tier);
    EXPECT_EQ(item.ruleId, expected.ruleId);
    EXPECT_EQ(item.fileCount, expected.fileCount);
    const auto [logical, allocated] = sizesOf(expected.files);
    EXPECT_EQ(item.logicalSizeBytes, logical);
    EXPECT_EQ(item.allocatedSizeBytes, allocated);
    EXPECT_EQ(item.requiresFullDiskAccess, expected.requiresFullDiskAccess);
    EXPECT_FALSE(item.isOrphaned);
    EXPECT_FALSE(item.isLocked);
    EXPECT_EQ(item.lastModifiedDate.has_value(), !expected.files.empty());
}

void expectItems(const std::vector<DiscoveredItem>& items, const std::vector<Expected>& expected) {
    ASSERT_EQ(items.size(), expected.size());
    for (std::size_t i = 0; i < items.size(); ++i) expectItem(items[i], expected[i]);
}

// Items keyed by description, for sections whose order is the listing's.
std::map<std::string, DiscoveredItem> byDescription(const std::vector<DiscoveredItem>& items) {
    std::map<std::string, DiscoveredItem> out;
    for (const auto& item : items) EXPECT_TRUE(out.emplace(item.itemDescription, item).second) << item.itemDescription;
    return out;
}

// Forwards to the real file system, with every path below `from` read from
// below `to` instead: it lets a test stand in for an absolute place such as
// /Library/Logs/DiagnosticReports, which this machine does not have.
class RedirectingFileSystem final : public FileSystem {
public:
    RedirectingFileSystem(std::string from, std::string to) : from_(std::move(from)), to_(std::move(to)) {}

    std::optional<FileStatus> status(const std::string& p, std::error_code& e) const override {
        return inner_->status(map(p), e);
    }
    std::optional<FileStatus> linkStatus(const std::string& p, std::error_code& e) const override {
        return inner_->linkStatus(map(p), e);
    }
    std::vector<DirectoryEntry> contentsOfDirectory(const std::string& p, ListOptions o,
                                                    std::error_code& e) const override {
        return inner_->contentsOfDirectory(map(p), o, e);
    }
    void walk(const std::string& p, const WalkOptions& o, const WalkCallbacks& c) const override {
        inner_->walk(map(p), o, c);
    }
    std::optional<std::string> destinationOfSymbolicLink(const std::string& p, std::error_code& e) const override {
        return inner_->destinationOfSymbolicLink(map(p), e);
    }
    std::string resolvingSymlinks(const std::string& p) const override { return inner_->resolvingSymlinks(p); }
    std::optional<std::string> readFile(const std::string& p, std::size_t n, std::error_code& e) const override {
        return inner_->readFile(map(p), n, e);
    }
    bool writeFileAtomically(const std::string&, std::string_view, std::uint32_t, std::error_code&) override {
        return false;
    }
    bool appendToFile(const std::string&, std::string_view, std::uint32_t, std::error_code&) override { return false; }
    bool createDirectory(const std::string&, std::uint32_t, bool, std::error_code&) override { return false; }
    bool moveItem(const std::string&, const std::string&, std::error_code&) override { return false; }
    bool removeItem(const std::string&, std::error_code&) override { return false; }
    bool setPermissions(const std::string&, std::uint32_t, std::error_code&) override { return false; }
    bool isPackage(const std::string& p) const override { return inner_->isPackage(map(p)); }

private:
    std::string map(const std::string& path) const {
        return paths::isSameOrBelow(path, from_) ? to_ + path.substr(from_.size()) : path;
    }
    std::shared_ptr<FileSystem> inner_ = makeDefaultFileSystem();
    std::string from_;
    std::string to_;
};

class SystemScanTest : public ::testing::Test {
protected:
    SystemScanOutput scan(const CategorySet& categories, std::stop_token stop = {}) {
        reports_.clear();
        SystemTargets targets(FileURL(home_.path(), true), fileSystem_);
        return targets.scan(
            categories, [this](const ScanProgress& report) { reports_.push_back(report); }, stop);
    }

    std::string at(std::string_view relative) const { return home_.at(relative); }

    TempHome home_;
    std::shared_ptr<FaultyFileSystem> fileSystem_ = std::make_shared<FaultyFileSystem>();
    std::vector<ScanProgress> reports_;
};

TEST_F(SystemScanTest, UserCachesMeasureEachEntryButBrowsersDeveloperToolsAndHiddenOnes) {
    const auto a = home_.writeFile("Library/Caches/com.example.editor/Cache.db", 3000);
    const auto b = home_.writeFile("Library/Caches/com.example.editor/fsCachedData/blob", 12345);
    const auto loose = home_.writeFile("Library/Caches/loose.bin", 1234);
    const auto yarnOld = home_.writeFile("Library/Caches/Yarn-old/x", 10);
    home_.makeDirectory("Library/Caches/Empty");
    for (const char* skipped :
         {"com.google.Keystone", "Google", "com.apple.Safari", "org.mozilla.firefox", "Microsoft Edge",
          "company.thebrowser.Browser", "BraveSoftware", "com.operasoftware.OperaGX", "Vivaldi", "ChromeHelper",
          "uv", "PIP", "pnpm", "yarn", "go-build", "Cargo", "Homebrew", "gradle", ".hidden"}) {
        home_.writeFile(std::string("Library/Caches/") + skipped + "/f", 100);
    }

    SystemScanOutput output = scan({caches});
    EXPECT_TRUE(output.warnings.empty());
    auto items = byDescription(output.items);
    ASSERT_EQ(items.size(), 4u);
    const RiskTier safe = RiskTier::safeToDelete;
    expectItem(items["com.example.editor Cache"], {"com.example.editor Cache", at("Library/Caches/com.example.editor"),
                                                    caches, safe, "sys.user.caches", 2, {a, b}});
    expectItem(items["loose.bin Cache"], {"loose.bin Cache", loose, caches, safe, "sys.user.caches", 1, {loose}});
    expectItem(items["Yarn-old Cache"],
               {"Yarn-old Cache", at("Library/Caches/Yarn-old"), caches, safe, "sys.user.caches", 1, {yarnOld}});
    expectItem(items["Empty Cache"],
               {"Empty Cache", at("Library/Caches/Empty"), caches, safe, "sys.user.caches", 1, {}});
    EXPECT_FALSE(items["loose.bin Cache"].url.isDirectory());
    EXPECT_TRUE(items["Empty Cache"].url.isDirectory());

    // Each item reported by itself, with its own bytes.
    ASSERT_EQ(reports_.size(), output.items.size());
    for (std::size_t i = 0; i < reports_.size(); ++i) {
        EXPECT_EQ(reports_[i].currentPath, output.items[i].path);
        EXPECT_EQ(reports_[i].itemsFound, 1);
        EXPECT_EQ(reports_[i].totalAllocatedBytesScanned, output.items[i].allocatedSizeBytes);
    }
}

TEST_F(SystemScanTest, ARefusedProbeGivesAWarningAndAPlaceholderAndTheNextEntryIsStillScanned) {
    home_.writeFile("Library/Caches/Locked/data", 5000);
    const auto open = home_.writeFile("Library/Caches/Open/data", 700);
    struct Case {
        int error;
        bool refused;
    };
    for (const Case c : {Case{EACCES, true}, Case{EPERM, true}, Case{EIO, false}, Case{ENOTDIR, false}}) {
        SCOPED_TRACE(c.error);
        fileSystem_->clearFailures();
        fileSystem_->failOn(FileSystemCall::contentsOfDirectory, at("Library/Caches/Locked"), c.error);
        SystemScanOutput output = scan({caches});
        auto items = byDescription(output.items);
        ASSERT_EQ(items.size(), 2u);
        expectItem(items["Open Cache"],
                   {"Open Cache", at("Library/Caches/Open"), caches, RiskTier::safeToDelete, "sys.user.caches", 1,
                    {open}});
        if (c.refused) {
            expectItem(items["Locked Cache (Requires Full Disk Access)"],
                       {"Locked Cache (Requires Full Disk Access)", at("Library/Caches/Locked"), caches,
                        RiskTier::safeToDelete, "sys.user.caches", 0, {}, true});
            EXPECT_EQ(output.warnings, std::vector<std::string>{warningFor("Locked", at("Library/Caches/Locked"))});
        } else {
            EXPECT_EQ(items.count("Locked Cache"), 1u);
            EXPECT_EQ(items["Locked Cache"].logicalSizeBytes, 5000);
            EXPECT_TRUE(output.warnings.empty());
        }
    }
}

TEST_F(SystemScanTest, ARefusedBaseListingGivesOnePlaceholderAndAnyOtherFailureNothing) {
    struct Case {
        StorageCategory category;
        std::string base;
        std::string label;
        std::string ruleId;
    };
    for (const Case& c : {Case{caches, "Library/Caches", "User Caches", "sys.user.caches"},
                          Case{logs, "Library/Logs", "User Logs", "sys.user.logs"}}) {
        SCOPED_TRACE(c.label);
        home_.writeFile(c.base + "/Something/file", 100);
        fileSystem_->clearFailures();
        fileSystem_->failOn(FileSystemCall::contentsOfDirectory, at(c.base), EACCES);
        SystemScanOutput refused = scan({c.category});
        expectItems(refused.items, {{c.label + " (Requires Full Disk Access)", at(c.base), c.category,
                                     RiskTier::safeToDelete, c.ruleId, 0, {}, true}});
        EXPECT_EQ(refused.warnings, std::vector<std::string>{warningFor(c.label, at(c.base))});
        ASSERT_EQ(reports_.size(), 1u);
        EXPECT_EQ(reports_[0].totalAllocatedBytesScanned, 0);
        EXPECT_EQ(reports_[0].totalLogicalBytesScanned, 0);

        fileSystem_->clearFailures();
        fileSystem_->failOn(FileSystemCall::contentsOfDirectory, at(c.base), EIO);
        SystemScanOutput failed = scan({c.category});
        EXPECT_TRUE(failed.items.empty());
        EXPECT_TRUE(failed.warnings.empty());
    }
}

TEST_F(SystemScanTest, APermissionErrorInsideAWalkMarksTheItemWithoutAWarning) {
    const auto readable = home_.writeFile("Library/Caches/App/top.db", 2000);
    home_.writeFile("Library/Caches/App/deep/hidden.db", 9000);
    for (const auto& [error, marked] : {std::pair{EACCES, true}, std::pair{EIO, false}}) {
        fileSystem_->clearFailures();
        fileSystem_->failBelow(FileSystemCall::walk, at("Library/Caches/App/deep"), error);
        SystemScanOutput output = scan({caches});
        expectItems(output.items, {{"App Cache", at("Library/Caches/App"), caches, RiskTier::safeToDelete,
                                    "sys.user.caches", 1, {readable}, marked}});
        EXPECT_TRUE(output.warnings.empty());
    }
}

TEST_F(SystemScanTest, UserLogsSkipTheCrashFoldersAndHaveNoProbe) {
    const auto log = home_.writeFile("Library/Logs/app/app.log", 4000);
    const auto install = home_.writeFile("Library/Logs/install.log", 321);
    home_.makeDirectory("Library/Logs/Foo");
    home_.writeFile("Library/Logs/DiagnosticReports/a.ips", 100);
    home_.writeFile("Library/Logs/CrashReporter/b.crash", 100);
    home_.writeFile("Library/Logs/.hidden/c", 100);
    // A refusal here is not looked at: the entry is measured as it is.
    fileSystem_->failOn(FileSystemCall::contentsOfDirectory, at("Library/Logs/app"), EACCES);

    SystemScanOutput output = scan({logs});
    EXPECT_TRUE(output.warnings.empty());
    auto items = byDescription(output.items);
    ASSERT_EQ(items.size(), 3u);
    const RiskTier safe = RiskTier::safeToDelete;
    expectItem(items["app Log Data"], {"app Log Data", at("Library/Logs/app"), logs, safe, "sys.user.logs", 1, {log}});
    expectItem(items["install.log Log Data"],
               {"install.log Log Data", install, logs, safe, "sys.user.logs", 1, {install}});
    expectItem(items["Foo Log Data"], {"Foo Log Data", at("Library/Logs/Foo"), logs, safe, "sys.user.logs", 1, {}});
}

TEST_F(SystemScanTest, CrashReportsInTheirOrderWithOneRuleIdAndTheSystemPlaceAbsentHere) {
    ASSERT_FALSE(std::filesystem::exists("/Library/Logs/DiagnosticReports"))
        << "this test expects a machine without the system-wide place";
    const auto ips = home_.writeFile("Library/Logs/DiagnosticReports/App-2024.ips", 2500);
    const auto panic = home_.writeFile("Library/Logs/DiagnosticReports/old/panic.ips", 800);
    const auto crash = home_.writeFile("Library/Logs/CrashReporter/App.crash", 600);
    const RiskTier safe = RiskTier::safeToDelete;
    const std::string user = "User Diagnostic & Crash Reports (.ips)";

    SystemScanOutput output = scan({crashes});
    EXPECT_TRUE(output.warnings.empty());
    expectItems(output.items,
                {{user, at("Library/Logs/DiagnosticReports"), crashes, safe, "sys.crash.user_reports", 2, {ips, panic}},
                 {"Legacy User Crash Reports", at("Library/Logs/CrashReporter"), crashes, safe,
                  "sys.crash.user_reports", 1, {crash}}});

    fileSystem_->failOn(FileSystemCall::contentsOfDirectory, at("Library/Logs/DiagnosticReports"), EPERM);
    output = scan({crashes});
    expectItems(output.items, {{user + " (Requires Full Disk Access)", at("Library/Logs/DiagnosticReports"), crashes,
                                safe, "sys.crash.user_reports", 0, {}, true},
                               {"Legacy User Crash Reports", at("Library/Logs/CrashReporter"), crashes, safe,
                                "sys.crash.user_reports", 1, {crash}}});
    EXPECT_EQ(output.warnings, std::vector<std::string>{warningFor(user, at("Library/Logs/DiagnosticReports"))});
}

TEST(SystemCrashReports, TheSystemWidePlaceIsMeasuredUnderItsOwnLabelAndTheSharedRuleId) {
    TempHome home;
    const auto panic = home.writeFile("system-reports/Kernel.panic", 4096);
    auto fileSystem = std::make_shared<RedirectingFileSystem>("/Library/Logs/DiagnosticReports",
                                                              home.at("system-reports"));
    SystemTargets targets(FileURL(home.path(), true), fileSystem);
    SystemScanOutput output = targets.scan({crashes}, nullptr);
    // Everything under /Library is kept by the classifier; the id is the
    // fallback all three places share.
    expectItems(output.items, {{"System Diagnostic & Panic Reports", "/Library/Logs/DiagnosticReports", crashes,
                                RiskTier::keep, "sys.crash.user_reports", 1, {panic}}});
    EXPECT_TRUE(output.warnings.empty());
}

TEST_F(SystemScanTest, MailDownloadsCurrentPlaceProbedThroughItsContainerAndTheLegacyPlaceNot) {
    const std::string current = at("Library/Containers/com.apple.mail/Data/Library/Mail Downloads");
    const RiskTier review = RiskTier::reviewRequired;

    // No container: the legacy place alone, with no warning.
    const auto legacyFile = home_.writeFile("Library/Mail Downloads/invoice.pdf", 7000);
    const Expected legacy{"Legacy Mail Downloads", at("Library/Mail Downloads"), mail, review, "sys.mail.downloads", 1,
                          {legacyFile}};
    SystemScanOutput output = scan({mail});
    expectItems(output.items, {legacy});
    EXPECT_TRUE(output.warnings.empty());

    // A container without its Data/Library: nothing more.
    home_.makeDirectory("Library/Containers/com.apple.mail");
    expectItems(scan({mail}).items, {legacy});

    // Refused: the placeholder stands for the current place, which does not exist.
    fileSystem_->failOn(FileSystemCall::contentsOfDirectory, at("Library/Containers/com.apple.mail/Data/Library"),
                        EACCES);
    output = scan({mail});
    expectItems(output.items, {{"Apple Mail Attachment Downloads (Requires Full Disk Access)", current, mail, review,
                                "sys.mail.downloads", 0, {}, true},
                               legacy});
    EXPECT_EQ(output.warnings, std::vector<std::string>{warningFor("Apple Mail Downloads", current)});

    // Readable container: the current place is measured. A refusal of the
    // downloads folder itself is no probe's business.
    fileSystem_->clearFailures();
    const auto attachment = home_.writeFile("Library/Containers/com.apple.mail/Data/Library/Mail Downloads/a/b.png",
                                            12000);
    fileSystem_->failOn(FileSystemCall::contentsOfDirectory, current, EACCES);
    output = scan({mail});
    expectItems(output.items,
                {{"Apple Mail Attachment Downloads", current, mail, review, "sys.mail.downloads", 1, {attachment}},
                 legacy});
    EXPECT_TRUE(output.warnings.empty());
}

TEST_F(SystemScanTest, BrowserCachesInFixedOrderWithOnlySafariGuarded) {
    struct Place {
        std::string relative;
        std::string description;
        std::string ruleId;
    };
    const std::vector<Place> places{
        {"Library/Containers/com.apple.Safari/Data/Library/Caches", "Safari WebKit Container Cache",
         "sys.browser.safari"},
        {"Library/Caches/com.apple.Safari", "Safari WebKit User Cache", "sys.browser.safari"},
        {"Library/Caches/Google/Chrome", "Google Chrome Cache", "sys.browser.chrome"},
        {"Library/Caches/Microsoft Edge", "Microsoft Edge Cache", "sys.browser.edge"},
        {"Library/Caches/company.thebrowser.Browser", "Arc Browser Cache", "sys.browser.arc"},
        {"Library/Caches/BraveSoftware/Brave-Browser", "Brave Browser Cache", "sys.browser.brave"},
        {"Library/Caches/com.operasoftware.Opera", "Opera Browser Cache", "sys.browser.other"},
        {"Library/Caches/Vivaldi", "Vivaldi Browser Cache", "sys.browser.other"},
        {"Library/Caches/Firefox/Profiles", "Mozilla Firefox Profile Caches", "sys.browser.firefox"},
    };
    std::vector<Expected> expected;
    // Written in reverse so that the order found is not the order made.
    for (std::size_t i = places.size(); i-- > 0;) {
        const auto file = home_.writeFile(places[i].relative + "/data_" + std::to_string(i), 1000 * (i + 1));
        expected.insert(expected.begin(), Expected{places[i].description, at(places[i].relative), browsers,
                                                   RiskTier::safeToDelete, places[i].ruleId, 1, {file}});
    }
    home_.writeFile("Library/Caches/Firefox/other/x", 50); // only Profiles counts

    SystemScanOutput output = scan({browsers});
    expectItems(output.items, expected);
    EXPECT_TRUE(output.warnings.empty());

    // Refusals: Safari's places become placeholders with warnings; Chrome's
    // is not probed, so it is measured all the same.
    for (std::size_t i : {0u, 1u, 2u}) {
        fileSystem_->failOn(FileSystemCall::contentsOfDirectory, at(places[i].relative), EACCES);
    }
    output = scan({browsers});
    for (std::size_t i : {0u, 1u}) {
        expected[i].description += " (Requires Full Disk Access)";
        expected[i].fileCount = 0;
        expected[i].files.clear();
        expected[i].requiresFullDiskAccess = true;
    }
    expectItems(output.items, expected);
    EXPECT_EQ(output.warnings,
              (std::vector<std::string>{warningFor("Safari WebKit Container Cache", at(places[0].relative)),
                                        warningFor("Safari WebKit User Cache", at(places[1].relative))}));
}

TEST_F(SystemScanTest, SectionsRunInTheirOrderAndOnlyForTheirCategories) {
    home_.writeFile("Library/Caches/com.apple.Safari/x", 10); // browsers' place, not a user cache
    home_.writeFile("Library/Caches/App/x", 10);
    home_.writeFile("Library/Logs/App/x", 10);
    home_.writeFile("Library/Logs/DiagnosticReports/x.ips", 10);
    home_.writeFile("Library/Containers/com.apple.mail/Data/Library/Mail Downloads/x", 10);

    SystemScanOutput all = scan(allStorageCategorySet());
    std::vector<std::string> descriptions;
    for (const auto& item : all.items) descriptions.push_back(item.itemDescription);
    EXPECT_EQ(descriptions, (std::vector<std::string>{"App Cache", "App Log Data",
                                                      "User Diagnostic & Crash Reports (.ips)",
                                                      "Apple Mail Attachment Downloads", "Safari WebKit User Cache"}));

    fileSystem_->resetCounts();
    EXPECT_TRUE(scan({}).items.empty());
    EXPECT_TRUE(scan({StorageCategory::developerCache, StorageCategory::leftovers}).items.empty());
    for (std::size_t call = 0; call < testing::fileSystemCallCount; ++call) {
        EXPECT_EQ(fileSystem_->callCount(static_cast<FileSystemCall>(call)), 0u) << call;
    }

    // Mail alone lists one thing, its probe, and never the caches.
    fileSystem_->resetCounts();
    EXPECT_EQ(scan({mail}).items.size(), 1u);
    EXPECT_EQ(fileSystem_->callCount(FileSystemCall::contentsOfDirectory), 1u);
}

TEST_F(SystemScanTest, CancellationIsCheckedBeforeSectionsEntriesAndPlacesButNotInsideMailOrBrowsers) {
    home_.writeFile("Library/Caches/A/x", 10);
    home_.writeFile("Library/Caches/B/x", 10);
    home_.writeFile("Library/Logs/A/x", 10);
    home_.writeFile("Library/Logs/B/x", 10);
    home_.writeFile("Library/Logs/DiagnosticReports/x", 10);
    home_.writeFile("Library/Logs/CrashReporter/x", 10);
    home_.writeFile("Library/Mail Downloads/x", 10);
    home_.writeFile("Library/Caches/Vivaldi/x", 10);
    home_.writeFile("Library/Caches/Firefox/Profiles/x", 10);

    struct Case {
        CategorySet categories;
        bool throws;
    };
    // The first item asks to stop; where the next check lies decides.
    for (const Case& c : {Case{{caches}, true}, Case{{logs}, true}, Case{{crashes}, true}, Case{{mail}, false},
                          Case{{browsers}, false}, Case{{mail, browsers}, true}}) {
        std::stop_source source;
        SystemTargets targets(FileURL(home_.path(), true), fileSystem_);
        int reports = 0;
        auto run = [&] {
            return targets.scan(
                c.categories,
                [&](const ScanProgress&) {
                    ++reports;
                    source.request_stop();
                },
                source.get_token());
        };
        if (c.throws) {
            EXPECT_THROW(run(), CancellationError);
            EXPECT_EQ(reports, 1);
        } else {
            const std::size_t found = run().items.size();
            EXPECT_EQ(found, static_cast<std::size_t>(reports));
            EXPECT_GE(reports, 1);
        }
    }

    std::stop_source stopped;
    stopped.request_stop();
    EXPECT_THROW(scan({mail}, stopped.get_token()), CancellationError);
    EXPECT_NO_THROW(scan({}, stopped.get_token()));
}

} // namespace
} // namespace unbulk
