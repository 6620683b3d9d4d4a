#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Platform/Trash.hpp"
#include "Uninstaller/AppUninstaller.hpp"
#include "Uninstaller/UninstallerError.hpp"
#include "support/AppBundles.hpp"

namespace unbulk {
namespace {

namespace fs = std::filesystem;

// Acme installed in a temporary home, with a cache and its preferences.
struct AcmeInstalled {
    AcmeInstalled() {
        bundle = testing::makeBundle(home, "Applications/Acme.app", {{"CFBundleIdentifier", "com.acme.app"}});
        home.writeFile("Applications/Acme.app/Contents/MacOS/Acme", "binary");
        home.writeFile("Library/Caches/com.acme.app/cache.db", "cache");
        home.writeFile("Library/Preferences/com.acme.app.plist", "prefs");
    }
    // The real services, the Trash and the audit log in the temporary home.
    AppUninstaller::Configuration configuration(
        std::function<bool(const std::string&)> running = [](auto&) { return false; }) {
        const auto fileSystem = makeDefaultFileSystem();
        return {.fileSystem = fileSystem,
                .trashPipeline = std::make_shared<const TrashPipeline>(
                    fileSystem, makeDefaultTrash(), std::make_shared<AuditLogger>(std::nullopt, homeURL, fileSystem),
                    homeURL, systemClock()),
                .runningAppsProvider = running,
                .homeURL = homeURL,
                .protectedAppGuard = std::make_shared<const ProtectedAppGuard>(fileSystem, makeDefaultCodeSigning(),
                                                                               makeDefaultProcesses(), running),
                .clock = systemClock()};
    }
    AppUninstaller uninstaller(std::function<bool(const std::string&)> running = [](auto&) { return false; }) {
        return AppUninstaller(configuration(std::move(running)));
    }
    InstalledApp acme(std::string id = "com.acme.app", std::optional<std::string> path = std::nullopt) {
        return InstalledApp::make({.bundleIdentifier = std::move(id), .bundleURL = FileURL(path.value_or(bundle), true),
                                   .displayName = "Acme"});
    }
    testing::TempHome home;
    FileURL homeURL{home.path(), true};
    std::string bundle;
};

struct AppUninstallerTest : ::testing::Test, AcmeInstalled {};

// That a dry run leaves the application and a real run puts it in the Trash
// is checked through the program in UninstallerCliTests.
TEST_F(AppUninstallerTest, BothRunsAreLoggedForTheUninstallerWithEveryItem) {
    EXPECT_EQ(uninstaller().uninstall(acme(), true).records.size(), 3u);
    const UninstallSummary real = uninstaller().uninstall(acme(), false);
    EXPECT_EQ(real.deletedURLs.size(), 3u);
    EXPECT_GT(real.unbulkedAllocatedBytes, 0);
    const auto entries = AuditLogger(std::nullopt, homeURL, makeDefaultFileSystem()).readEntries();
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
    AppUninstaller::Configuration withScannerConfiguration = configuration();
    withScannerConfiguration.appScanner = std::make_shared<const AppScanner>(AppScanner::Configuration{
        .applicationsURLs = std::vector<FileURL>{FileURL(home.at("Applications"), true)},
        .fileSystem = makeDefaultFileSystem(),
        .homeURL = homeURL,
        .protectedAppGuard = withScannerConfiguration.protectedAppGuard});
    const AppUninstaller withScanner(withScannerConfiguration);
    EXPECT_EQ(withScanner.uninstall(std::string("com.acme.app"), true).appName, "Acme");
    EXPECT_THAT([&] { withScanner.uninstall(std::string("com.acme.none"), true); },
                ::testing::ThrowsMessage<AppUninstallerError>("Application bundle not found: No installed application "
                                                              "with bundle identifier 'com.acme.none' was found."));
}

// Moves to the real Trash, except the one path it refuses, as a locked bundle would be.
struct RefusingTrash final : Trash {
    explicit RefusingTrash(std::string refused) : refusedPath(std::move(refused)) {}
    TrashMove trashItem(const std::string& path, const Identity& expected, const AnchorCheck& check) override {
        if (path != refusedPath) return inner->trashItem(path, expected, check);
        return TrashMove{.error = {std::make_error_code(std::errc::permission_denied), ""}};
    }
    std::string refusedPath;
    std::shared_ptr<Trash> inner = makeDefaultTrash();
};

TEST_F(AppUninstallerTest, ABundleThatCannotBeMovedFailsTheUninstallAfterItsDataHasGone) {
    AppUninstaller::Configuration refusingConfiguration = configuration();
    refusingConfiguration.trashPipeline = std::make_shared<const TrashPipeline>(
        refusingConfiguration.fileSystem, std::make_shared<RefusingTrash>(bundle), nullptr, homeURL, systemClock());
    const AppUninstaller refusing(refusingConfiguration);
    EXPECT_THAT([&] { refusing.uninstall(acme(), false); },
                ::testing::ThrowsMessage<UninstallerError>("Failed to delete item at '" + bundle + "': Could not move '" +
                                                           bundle + "' to the Trash: Permission denied"));
    EXPECT_TRUE(fs::exists(bundle));
    EXPECT_FALSE(fs::exists(home.at("Library/Caches/com.acme.app"))) << "nothing is rolled back";
}

TEST_F(AppUninstallerTest, OptionsChooseTheItemsAndWhetherTheyAreMovedOrDeleted) {
    const struct { const char* name; bool dryRun; UninstallOptions options; bool bundleStays, dataStays, inTrash; } rows[] = {
        {"dependencies only", false, {.includeBundle = false}, true, false, true},
        {"permanent purge", false, {.permanentPurge = true}, false, false, false},
        {"permanent purge in a dry run", true, {.permanentPurge = true}, true, true, false},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.name);
        AcmeInstalled fresh; // each row on its own home, with the application in place
        const UninstallSummary summary = fresh.uninstaller().uninstall(fresh.acme(), row.dryRun, row.options);
        EXPECT_EQ(fs::exists(fresh.bundle), row.bundleStays);
        EXPECT_EQ(fs::exists(fresh.home.at("Library/Preferences/com.acme.app.plist")), row.dataStays);
        EXPECT_EQ(fs::exists(fresh.home.at(".local/share/Trash/files/com.acme.app.plist")), row.inTrash);
        EXPECT_EQ(summary.records.size(), row.options.includeBundle ? 3u : 2u);
        const auto entries = AuditLogger(std::nullopt, fresh.homeURL, makeDefaultFileSystem()).readEntries();
        ASSERT_EQ(entries.size(), 1u);
        EXPECT_EQ(entries[0].operationType, row.dryRun                 ? AuditOperationType::dryRun
                                            : row.options.permanentPurge ? AuditOperationType::purge
                                                                         : AuditOperationType::trash);
    }
}

TEST_F(AppUninstallerTest, ForceTerminatesARunningApplicationFirstAndFailsWhenItWillNotEnd) {
    for (const bool ends : {true, false}) {
        SCOPED_TRACE(ends);
        std::vector<std::pair<std::string, bool>> asked;
        const auto running = [](const std::string&) { return true; };
        AppUninstaller::Configuration forcedConfiguration = configuration(running);
        forcedConfiguration.protectedAppGuard = std::make_shared<const ProtectedAppGuard>(
            makeDefaultFileSystem(), makeDefaultCodeSigning(), makeDefaultProcesses(), running,
            [&](const std::string& id, bool force) {
                asked.emplace_back(id, force);
                return ends;
            });
        const AppUninstaller forced(forcedConfiguration);
        if (ends) {
            EXPECT_EQ(forced.uninstall(acme(), true, {.force = true}).records.size(), 3u);
        } else {
            EXPECT_THAT([&] { forced.uninstall(acme(), true, {.force = true}); },
                        ::testing::ThrowsMessage<UninstallerError>(
                            "Cannot uninstall 'com.acme.app' (com.acme.app) because it is currently running."));
        }
        EXPECT_EQ(asked, (std::vector<std::pair<std::string, bool>>{{"com.acme.app", true}}));
    }
}

TEST(UninstallerErrorTest, EveryCaseHasItsWords) {
    const std::vector<std::pair<std::string, std::string>> rows{
        {UninstallerError::applicationNotFound("/A.app").what(), "Application bundle not found at path: /A.app"},
        {UninstallerError::bundleInspectionFailed("/A.app", "why").what(),
         "Failed to inspect application bundle at '/A.app': why"},
        {UninstallerError::uninstallationFailed("/A.app", "why").what(),
         "Failed to uninstall application at '/A.app': why"},
        {UninstallerError::permissionDenied("/A.app").what(),
         "Access denied to application bundle at '/A.app'. Full Disk Access may be required."},
        {UninstallerError::deletionFailed("/A.app", "why").what(), "Failed to delete item at '/A.app': why"},
        {AppUninstallerError::pipelineFailure("why").what(), "Trash pipeline execution failed: why"},
        {AppUninstallerError::deletionFailed("/A.app", "why").what(), "Failed to delete item at '/A.app': why"},
        {AppUninstallerError::uninstallationBlocked("why").what(), "Uninstallation blocked: why"},
    };
    for (const auto& [text, expected] : rows) EXPECT_EQ(text, expected);
}

} // namespace
} // namespace unbulk
