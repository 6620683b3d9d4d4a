// SystemTargets over fake homes: what each section finds, item by item, and
// what it makes of places it may not read. Permission errors are injected
// with FaultyFileSystem, as the tests run as root.

#include <algorithm>
#include <cerrno>
#include <string>
#include <vector>

#include <fmt/format.h>
#include <gtest/gtest.h>

#include "Scanner/SystemTargets.hpp"
#include "Support/Cancellation.hpp"
#include "support/FaultyFileSystem.hpp"
#include "support/TempHome.hpp"

namespace unbulk {
namespace {

using Lines = std::vector<std::string>;
using enum StorageCategory;
constexpr testing::FileSystemCall listing = testing::FileSystemCall::contentsOfDirectory;

class SystemScanTest : public ::testing::Test {
protected:
    SystemScanOutput scan(const CategorySet& categories, const ScanProgressHandler& progress = nullptr,
                          StopToken stop = {}) {
        return SystemTargets(FileURL(home_.path(), true), home_.root() + "/system", fileSystem_)
            .scan(categories, progress, stop);
    }

    // One line per item, its path shown from ~/Library: what it says, what it
    // weighs, and "FDA" when it is marked as needing Full Disk Access. (The
    // categories are checked by the section order.)
    Lines lines(const std::vector<DiscoveredItem>& items) const {
        Lines out;
        for (const auto& item : items)
            out.push_back(fmt::format("{} | {} | {} {} | {} files {} bytes{}", item.itemDescription,
                                      item.path.substr(home_.at("Library/").size()), rawValue(item.riskTier),
                                      item.ruleId.value_or("-"), item.fileCount, item.logicalSizeBytes,
                                      item.requiresFullDiskAccess ? " | FDA" : ""));
        return out;
    }

    Lines warning(const std::string& label, const std::string& relative) const {
        return {"Full Disk Access is required to scan " + label + " at " + home_.at("Library/" + relative) +
                ". Grant Full Disk Access in System Settings > Privacy & Security > Full Disk Access."};
    }

    testing::TempHome home_;
    std::shared_ptr<testing::FaultyFileSystem> fileSystem_ = std::make_shared<testing::FaultyFileSystem>();
};

TEST_F(SystemScanTest, UserCachesItemByItemWithoutBrowsersDeveloperToolsAndHiddenOnes) {
    home_.writeFile("Library/Caches/com.example.editor/Cache.db", 3000);
    home_.writeFile("Library/Caches/com.example.editor/fsCachedData/blob", 12345);
    home_.writeFile("Library/Caches/Yarn-old/x", 10);
    home_.writeFile("Library/Caches/Locked/data", 5000);
    home_.writeFile("Library/Caches/App/top.db", 2000);
    home_.writeFile("Library/Caches/App/deep/hidden.db", 9000);
    for (const char* skipped : {"com.google.Keystone", "com.apple.Safari", "Vivaldi", "uv", "PIP", "Homebrew", ".x"})
        home_.writeFile(std::string("Library/Caches/") + skipped + "/f", 100);
    // A refused probe gives a placeholder and a warning and the scan goes on;
    // a refusal inside a walk only marks the item.
    fileSystem_->failOn(listing, home_.at("Library/Caches/Locked"), EACCES);
    fileSystem_->failBelow(testing::FileSystemCall::walk, home_.at("Library/Caches/App/deep"), EACCES);

    SystemScanOutput output = scan({systemCaches});
    Lines found = lines(output.items);
    std::sort(found.begin(), found.end()); // listing order
    const std::string rule = " | SAFE_TO_DELETE sys.user.caches | ";
    EXPECT_EQ(found, (Lines{"App Cache | Caches/App" + rule + "1 files 2000 bytes | FDA",
                            "Locked Cache (Requires Full Disk Access) | Caches/Locked" + rule + "0 files 0 bytes | FDA",
                            "Yarn-old Cache | Caches/Yarn-old" + rule + "1 files 10 bytes",
                            "com.example.editor Cache | Caches/com.example.editor" + rule + "2 files 15345 bytes"}));
    EXPECT_EQ(output.warnings, warning("Locked", "Caches/Locked"));

    // A refused base listing gives one placeholder; any other failure nothing.
    fileSystem_->failOn(listing, home_.at("Library/Caches"), EACCES);
    output = scan({systemCaches});
    EXPECT_EQ(lines(output.items),
              Lines{"User Caches (Requires Full Disk Access) | Caches" + rule + "0 files 0 bytes | FDA"});
    EXPECT_EQ(output.warnings, warning("User Caches", "Caches"));
    fileSystem_->clearFailures();
    fileSystem_->failOn(listing, home_.at("Library/Caches"), EIO);
    output = scan({systemCaches});
    EXPECT_EQ(output.items.size() + output.warnings.size(), 0u);
}


TEST_F(SystemScanTest, MailProbedThroughItsContainerAndOfTheBrowsersOnlySafari) {
    const std::string current = "Containers/com.apple.mail/Data/Library/Mail Downloads";
    const std::string mail = " | REVIEW_REQUIRED sys.mail.downloads | ";
    home_.writeFile("Library/Mail Downloads/invoice.pdf", 7000);
    const std::string legacy = "Legacy Mail Downloads | Mail Downloads" + mail + "1 files 7000 bytes";
    // Without a container its refusal is never met.
    fileSystem_->failOn(listing, home_.at("Library/Containers/com.apple.mail/Data/Library"), EACCES);
    EXPECT_EQ(lines(scan({mailDownloads}).items), Lines{legacy});

    // Refused: the placeholder stands for the current place, which does not exist.
    home_.makeDirectory("Library/Containers/com.apple.mail");
    SystemScanOutput output = scan({mailDownloads});
    EXPECT_EQ(lines(output.items),
              (Lines{"Apple Mail Attachment Downloads (Requires Full Disk Access) | " + current + mail +
                         "0 files 0 bytes | FDA",
                     legacy}));
    EXPECT_EQ(output.warnings, warning("Apple Mail Downloads", current));

    // Readable, next to the browsers' fixed places, of which only Safari's are probed.
    fileSystem_->clearFailures();
    home_.writeFile("Library/" + current + "/a/b.png", 12000);
    const std::string container = "Containers/com.apple.Safari/Data/Library/Caches";
    for (const std::string place :
         {container.c_str(), "Caches/com.apple.Safari", "Caches/Google/Chrome", "Caches/Firefox/Profiles/p"})
        home_.writeFile("Library/" + place + "/data", 100);
    fileSystem_->failOn(listing, home_.at("Library/" + container), EACCES);
    fileSystem_->failOn(listing, home_.at("Library/Caches/Google/Chrome"), EACCES);
    output = scan({mailDownloads, browserCaches});
    const std::string browser = " | SAFE_TO_DELETE sys.browser.";
    EXPECT_EQ(lines(output.items),
              (Lines{"Apple Mail Attachment Downloads | " + current + mail + "1 files 12000 bytes", legacy,
                     "Safari WebKit Container Cache (Requires Full Disk Access) | " + container + browser +
                         "safari | 0 files 0 bytes | FDA",
                     "Safari WebKit User Cache | Caches/com.apple.Safari" + browser + "safari | 1 files 100 bytes",
                     "Google Chrome Cache | Caches/Google/Chrome" + browser + "chrome | 1 files 100 bytes",
                     "Mozilla Firefox Profile Caches | Caches/Firefox/Profiles" + browser +
                         "firefox | 1 files 100 bytes"}));
    EXPECT_EQ(output.warnings, warning("Safari WebKit Container Cache", container));
}

TEST_F(SystemScanTest, SectionsRunInOrderAndCancellationIsCheckedOnlyWhereTheyCheckIt) {
    for (const char* file : {"Caches/A", "Caches/B", "Logs/A", "Logs/B", "Logs/DiagnosticReports/x", "Mail Downloads/x",
                             "Logs/CrashReporter/x", "Caches/Vivaldi/x", "Caches/Firefox/Profiles/x"})
        home_.writeFile(std::string("Library/") + file, 10);
    std::vector<StorageCategory> order;
    for (const auto& item : scan(allStorageCategorySet()).items)
        if (order.empty() || order.back() != item.category) order.push_back(item.category);
    EXPECT_EQ(order, (std::vector{systemCaches, systemLogs, crashReports, mailDownloads, browserCaches}));
    fileSystem_->resetCounts();
    EXPECT_EQ(scan({mailDownloads}).items.size(), 1u);
    EXPECT_EQ(fileSystem_->callCount(listing), 0u); // Mail alone never lists the caches

    // The first item asks to stop; where the next check lies decides. 0: cancelled there.
    const std::vector<std::pair<CategorySet, std::size_t>> cases{
        {{systemCaches}, 0},  {{systemLogs}, 0},    {{crashReports}, 0},
        {{mailDownloads}, 1}, {{browserCaches}, 2}, {{mailDownloads, browserCaches}, 0}};
    for (const auto& [only, found] : cases) {
        StopSource source;
        std::size_t reports = 0;
        const auto stop = [&](const ScanProgress&) { ++reports; source.requestStop(); };
        if (found == 0) {
            EXPECT_THROW(scan(only, stop, source.token()), CancellationError);
        } else {
            EXPECT_EQ(scan(only, stop, source.token()).items.size(), found);
        }
        EXPECT_EQ(reports, std::max<std::size_t>(found, 1));
    }
}

} // namespace
} // namespace unbulk
