#include <algorithm>
#include <filesystem>
#include <map>
#include <mutex>

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "Uninstaller/AppScanner.hpp"
#include "support/AppBundles.hpp"

namespace unbulk {
namespace {

using testing::makeBundle;
using testing::PlistFormat;

struct AppScannerTest : ::testing::Test {
    AppScanner scanner(std::function<bool(const std::string&)> running = {}) {
        return AppScanner({.applicationsURLs = std::vector<FileURL>{FileURL(home.at("Applications"), true)},
                           .systemApplicationsURLs = std::vector<FileURL>{FileURL(home.at("System"), true)},
                           .homeURL = FileURL(home.path(), true),
                           .runningAppsProvider = std::move(running)});
    }
    std::vector<std::string> names(const std::vector<InstalledApp>& apps) {
        std::vector<std::string> out;
        for (const auto& app : apps)
            out.push_back(app.displayName);
        return out;
    }
    testing::TempHome home;
};

TEST_F(AppScannerTest, FindsBundlesTwoLevelsDownOnceEachAndNeverInsideOne) {
    makeBundle(home, "Applications/Alpha.app", {{"CFBundleIdentifier", "com.acme.alpha"}});
    makeBundle(home, "Applications/Group/Sub/Beta.app", {{"CFBundleIdentifier", "com.acme.beta"}});
    makeBundle(home, "Applications/Group/Sub/Deep/Gamma.app", {{"CFBundleIdentifier", "com.acme.gamma"}});
    makeBundle(home, "Applications/Alpha.app/Contents/Helpers/Inner.app", {{"CFBundleIdentifier", "com.acme.inner"}});
    makeBundle(home, "Applications/Tool.APP", nlohmann::json(nullptr));
    makeBundle(home, "Applications/.hidden/Hidden.app", {{"CFBundleIdentifier", "com.acme.hidden"}});
    makeBundle(home, "Elsewhere/Linked.app", {{"CFBundleIdentifier", "com.acme.linked"}});
    home.makeSymlink("Applications/Linked.app", home.at("Elsewhere/Linked.app"));
    home.makeSymlink("Applications/Zlinked-again.app", home.at("Elsewhere/Linked.app"));
    home.makeSymlink("Applications/LinkedFolder", home.at("Elsewhere"));
    makeBundle(home, "System/Sys.app", {{"CFBundleIdentifier", "com.acme.sys"}});

    // Two links to one bundle count once, as whichever the listing gives first.
    std::vector<std::string> found = names(scanner().scanInstalledApps(false));
    ASSERT_EQ(found.size(), 4u);
    EXPECT_EQ(found[0], "Alpha");
    EXPECT_EQ(found[1], "Beta");
    const std::string linked = found[2] == "Tool" ? found[3] : found[2];
    EXPECT_TRUE(linked == "Linked" || linked == "Zlinked-again") << linked;
    EXPECT_NE(std::find(found.begin(), found.end(), "Tool"), found.end());
    EXPECT_EQ(names(scanner().scanInstalledApps(true)).size(), 5u);
    EXPECT_TRUE(AppScanner({.applicationsURLs = std::vector<FileURL>{}, .homeURL = FileURL(home.path(), true)})
                    .scanInstalledApps(false)
                    .empty());
}

TEST_F(AppScannerTest, ReadsInfoPlistsInBothFormatsAndFallsBackWithout) {
    const std::string xml = makeBundle(home, "Applications/Editor.app",
                                       {{"CFBundleIdentifier", "com.acme.editor"},
                                        {"CFBundleName", "EditorName"},
                                        {"CFBundleDisplayName", "Editor Pro"},
                                        {"CFBundleShortVersionString", "2.1"},
                                        {"CFBundleVersion", "210"},
                                        {"CFBundleExecutable", "editor"},
                                        {"CFBundleIconFile", "Editor"}},
                                       PlistFormat::xml, "editor", testing::thinArm64Header());
    home.writeFile("Applications/Editor.app/Contents/Resources/Editor.icns", "icon");
    makeBundle(home, "Applications/Bin.app",
               {{"CFBundleIdentifier", ""}, {"CFBundleVersion", "7"}, {"CFBundleName", 42}}, PlistFormat::binary);
    makeBundle(home, "Applications/Foo.app", nlohmann::json(nullptr), PlistFormat::xml, "Foo", "#!/bin/sh\n");
    const std::string array = home.makeDirectory("Applications/Arr.app/Contents");
    testing::writePlist(array + "/../../Arr.app/Contents/Info.plist", {{"ignored", true}});
    home.writeFile("Applications/Arr.app/Contents/Info.plist", "<plist><array/></plist>");

    std::map<std::string, InstalledApp> apps;
    for (auto& app : scanner().scanInstalledApps(false))
        apps[app.bundleURL.lastComponent()] = app;
    const InstalledApp& editor = apps.at("Editor.app");
    EXPECT_EQ(editor.displayName, "Editor Pro");
    EXPECT_EQ(editor.version, "2.1");
    EXPECT_EQ(editor.bundleName, "EditorName");
    EXPECT_EQ(editor.architecture, "arm64");
    EXPECT_EQ(editor.executablePath, xml + "/Contents/MacOS/editor");
    EXPECT_EQ(editor.iconURL->path(), xml + "/Contents/Resources/Editor.icns");
    EXPECT_FALSE(editor.isProtected);
    EXPECT_FALSE(editor.codeSignatureAuthority);

    const InstalledApp& binary = apps.at("Bin.app");
    EXPECT_EQ(binary.bundleIdentifier, "com.unknown.bin"); // empty identifier
    EXPECT_EQ(binary.displayName, "Bin");                  // a number is no name
    EXPECT_EQ(binary.version, "7");
    EXPECT_FALSE(binary.executablePath);

    const InstalledApp& bare = apps.at("Foo.app");
    EXPECT_EQ(std::tie(bare.displayName, bare.version, bare.bundleIdentifier),
              std::tie("Foo", "Unknown", "com.unknown.foo"));
    EXPECT_EQ(bare.architecture, "Unknown");
    EXPECT_TRUE(bare.executablePath);
    EXPECT_EQ(apps.at("Arr.app").displayName, "Arr"); // an array at the top reads as empty
}

TEST_F(AppScannerTest, MeasuresHardLinksOnceAndLinksNotAtAll) {
    const std::string bundle = makeBundle(home, "Applications/Sized.app", {{"CFBundleIdentifier", "com.acme.sized"}});
    const std::string data = home.writeFile("Applications/Sized.app/Contents/Resources/data", std::string(10000, 'd'));
    std::filesystem::create_hard_link(data, bundle + "/Contents/Resources/data-again");
    home.makeSymlink("Applications/Sized.app/Contents/Resources/link", "/usr/bin");
    const std::string plistPath = bundle + "/Contents/Info.plist";
    struct stat dataStat {
    }, plistStat{};
    ::lstat(data.c_str(), &dataStat);
    ::lstat(plistPath.c_str(), &plistStat);
    const InstalledApp app = scanner().inspectBundle(FileURL(bundle, true)).value();
    EXPECT_EQ(app.logicalSizeBytes, 10000 + plistStat.st_size);
    EXPECT_EQ(app.bundleSizeBytes, (dataStat.st_blocks + plistStat.st_blocks) * 512);
    EXPECT_FALSE(scanner().inspectBundle(FileURL(home.at("Applications/None.app"), true)));
}

TEST_F(AppScannerTest, RunningAndProtectionComeFromTheGuard) {
    makeBundle(home, "Applications/Busy.app", {{"CFBundleIdentifier", "com.acme.busy"}});
    makeBundle(home, "Applications/Mail.app", {{"CFBundleIdentifier", "com.apple.mail"}});
    std::map<std::string, InstalledApp> apps;
    for (auto& app : scanner([](const std::string& id) { return id == "com.acme.busy"; }).scanInstalledApps(false)) {
        apps[app.displayName] = app;
    }
    EXPECT_TRUE(apps.at("Busy").isRunning);
    EXPECT_TRUE(apps.at("Mail").isProtected);
    EXPECT_TRUE(apps.at("Mail").isSystemApp);
    EXPECT_EQ(apps.at("Mail").protectionReason, "Protected Apple core operating system bundle 'com.apple.mail'");
}

TEST_F(AppScannerTest, ProgressHearsOfEachInspectedBundleWithItsSize) {
    makeBundle(home, "Applications/Alpha.app", {{"CFBundleIdentifier", "com.acme.alpha"}});
    makeBundle(home, "Applications/Group/Beta.app", {{"CFBundleIdentifier", "com.acme.beta"}});
    std::mutex mutex;
    std::map<std::string, std::int64_t> heard;
    const auto apps = scanner().scanInstalledApps(false, {}, [&](const std::string& path, std::int64_t bytes) {
        std::lock_guard lock(mutex);
        heard[path] += bytes;
    });
    ASSERT_EQ(apps.size(), 2u);
    EXPECT_EQ(heard.size(), 2u);
    for (const auto& app : apps) EXPECT_EQ(heard[app.bundleURL.path()], app.bundleSizeBytes) << app.displayName;
}

} // namespace
} // namespace unbulk
