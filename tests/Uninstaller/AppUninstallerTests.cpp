#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Uninstaller/AppUninstaller.hpp"
#include "Uninstaller/UninstallerError.hpp"
#include "support/AppBundles.hpp"

namespace unbulk {
namespace {

namespace fs = std::filesystem;

struct AppUninstallerTest : ::testing::Test {
    AppUninstallerTest() {
        bundle = testing::makeBundle(home, "Applications/Acme.app", {{"CFBundleIdentifier", "com.acme.app"}});
        home.writeFile("Applications/Acme.app/Contents/MacOS/Acme", "binary");
        home.writeFile("Library/Caches/com.acme.app/cache.db", "cache");
        home.writeFile("Library/Preferences/com.acme.app.plist", "prefs");
    }
    AppUninstaller uninstaller(std::function<bool(const std::string&)> running = [](auto&) { return false; }) {
        return AppUninstaller({.auditLogger = std::make_shared<AuditLogger>(std::nullopt, homeURL),
                               .runningAppsProvider = std::move(running),
                               .homeURL = homeURL});
    }
    InstalledApp acme(std::string id = "com.acme.app", std::optional<std::string> path = std::nullopt) {
        return InstalledApp::make({.bundleIdentifier = std::move(id), .bundleURL = FileURL(path.value_or(bundle), true),
                                   .displayName = "Acme"});
    }
    testing::TempHome home;
    FileURL homeURL{home.path(), true};
    std::string bundle;
};

// That a dry run leaves the application and a real run puts it in the Trash
// is checked through the program in UninstallerCliTests.
TEST_F(AppUninstallerTest, BothRunsAreLoggedForTheUninstallerWithEveryItem) {
    EXPECT_EQ(uninstaller().uninstall(acme(), true).records.size(), 3u);
    const UninstallSummary real = uninstaller().uninstall(acme(), false);
    EXPECT_EQ(real.deletedURLs.size(), 3u);
    EXPECT_GT(real.unbulkedAllocatedBytes, 0);
    const auto entries = AuditLogger(std::nullopt, homeURL).readEntries();
    ASSERT_EQ(entries.size(), 2u);
    EXPECT_EQ(entries.back().client, "uninstaller");
    EXPECT_EQ(entries.back().itemsCount, 3);
}

// A hostile bundle named "Other App<NUL>x" probes "Application Support/Other
// App<NUL>x", which the kernel reads as another application's folder. Such
// a path never reaches the kernel, and the sandbox would refuse it anyway.
TEST_F(AppUninstallerTest, ANameWithANulDoesNotTakeAnotherApplicationsFolder) {
    const std::string other = home.writeFile("Library/Application Support/Other App/data", "another app's");
    InstalledApp hostile = acme();
    hostile.displayName = "Other App" + std::string(1, '\0') + "x";
    const UninstallSummary summary = uninstaller().uninstall(hostile, false);
    EXPECT_TRUE(fs::exists(other));
    for (const auto& record : summary.records) {
        if (record.sourcePath.find('\0') == std::string::npos) continue;
        EXPECT_EQ(record.status, TrashItemStatus::failed);
        EXPECT_EQ(record.errorMessage, "Sandbox violation: Path contains a NUL character");
    }
}

TEST_F(AppUninstallerTest, RefusesProtectedAndRunningApplicationsBeforeTouchingAnything) {
    using ::testing::ThrowsMessage;
    // An Apple identifier outside the home is refused, where the guard alone would let /Applications through.
    const std::string outside = home.root() + "/Applications/Xcode.app";
    fs::create_directories(outside);
    EXPECT_THAT([&] { uninstaller().uninstall(acme("com.apple.dt.Xcode", outside), true); },
                ThrowsMessage<AppUninstallerError>("Application 'Acme' (com.apple.dt.Xcode) is a protected macOS "
                                                   "system component and cannot be uninstalled."));
    EXPECT_THAT([&] { uninstaller([](const std::string&) { return true; }).uninstall(acme(), true); },
                ThrowsMessage<AppUninstallerError>("Application 'Acme' (com.acme.app) is currently running. Please "
                                                   "terminate the process before uninstalling."));
    EXPECT_TRUE(fs::exists(bundle));
    EXPECT_FALSE(fs::exists(home.at(".unbulk/audit.jsonl"))) << "a refusal leaves no audit entry";
}

TEST_F(AppUninstallerTest, LookingUpAnIdentifierNeedsAScannerAndAMatch) {
    EXPECT_THROW(uninstaller().uninstall(std::string("com.acme.app"), true), AppUninstallerError);
    auto scanner = std::make_shared<const AppScanner>(AppScanner::Configuration{
        .applicationsURLs = std::vector<FileURL>{FileURL(home.at("Applications"), true)}, .homeURL = homeURL});
    const AppUninstaller withScanner(
        {.appScanner = scanner, .runningAppsProvider = [](const std::string&) { return false; }, .homeURL = homeURL});
    EXPECT_EQ(withScanner.uninstall(std::string("com.acme.app"), true).appName, "Acme");
    EXPECT_THAT([&] { withScanner.uninstall(std::string("com.acme.none"), true); },
                ::testing::ThrowsMessage<AppUninstallerError>("Application bundle not found: No installed application "
                                                              "with bundle identifier 'com.acme.none' was found."));
}

} // namespace
} // namespace unbulk
