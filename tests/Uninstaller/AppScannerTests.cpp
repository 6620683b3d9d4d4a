#include <gtest/gtest.h>

#include "Uninstaller/AppScanner.hpp"
#include "support/AppBundles.hpp"
#include "support/Files.hpp"

namespace unbulk {
namespace {

using testing::makeBundle;
using testing::PlistFormat;

struct AppScannerTest : ::testing::Test {
    AppScanner scanner() {
        return AppScanner({.applicationsURLs = std::vector<FileURL>{FileURL(home.at("Applications"), true)},
                           .systemApplicationsURLs = std::vector<FileURL>{FileURL(home.at("System"), true)},
                           .fileSystem = makeDefaultFileSystem(),
                           .homeURL = FileURL(home.path(), true),
                           .protectedAppGuard = std::make_shared<const ProtectedAppGuard>(
                               makeDefaultFileSystem(), makeDefaultCodeSigning(), makeDefaultProcesses())});
    }
    testing::TempHome home;
};

TEST_F(AppScannerTest, FindsBundlesTwoLevelsDownOnceEachAndNeverInsideOne) {
    const std::vector<std::pair<std::string, std::string>> bundles{
        {"Applications/Alpha.app", "alpha"}, {"Applications/Group/Sub/Beta.app", "beta"},
        {"Applications/Group/Sub/Deep/Gamma.app", "gamma"}, {"Applications/.hidden/Hidden.app", "hidden"},
        {"Applications/Alpha.app/Contents/Helpers/Inner.app", "inner"}, {"Elsewhere/Linked.app", "linked"},
        {"System/Sys.app", "sys"}};
    for (const auto& [path, id] : bundles) makeBundle(home, path, {{"CFBundleIdentifier", "com.acme." + id}});
    makeBundle(home, "Applications/Tool.APP", nlohmann::json(nullptr));
    home.makeSymlink("Applications/Linked.app", home.at("Elsewhere/Linked.app"));
    home.makeSymlink("Applications/Zlinked-again.app", home.at("Elsewhere/Linked.app"));
    home.makeSymlink("Applications/LinkedFolder", home.at("Elsewhere"));

    // Two links to one bundle count once, as whichever the listing gives first.
    std::vector<std::string> found;
    for (const auto& app : scanner().scanInstalledApps(false)) found.push_back(app.displayName);
    ASSERT_EQ(found.size(), 4u);
    EXPECT_EQ(found[0] + " " + found[1], "Alpha Beta");
    const std::string linked = found[2] == "Tool" ? found[3] : found[2];
    EXPECT_TRUE(linked == "Linked" || linked == "Zlinked-again") << linked;
    EXPECT_NE(std::find(found.begin(), found.end(), "Tool"), found.end());
    EXPECT_EQ(scanner().scanInstalledApps(true).size(), 5u);
}

// A person's order: an accented first letter sorts with its letter, case is ignored.
TEST_F(AppScannerTest, ListsByDisplayNameAsAPersonReadsIt) {
    for (const char* name : {"Zed", "\u00C9clair", "apple", "Dock"})
        makeBundle(home, std::string("Applications/") + name + ".app", Json::object());
    std::vector<std::string> found;
    for (const auto& app : scanner().scanInstalledApps(false)) found.push_back(app.displayName);
    EXPECT_EQ(found, (std::vector<std::string>{"apple", "Dock", "\u00C9clair", "Zed"}));
}

TEST_F(AppScannerTest, ReadsInfoPlistsInBothFormatsAndFallsBackWithout) {
    const Json info{{"CFBundleIdentifier", "com.acme.editor"}, {"CFBundleName", "EditorName"},
                    {"CFBundleDisplayName", "Editor Pro"},      {"CFBundleShortVersionString", "2.1"},
                    {"CFBundleVersion", "210"}, {"CFBundleExecutable", "editor"}, {"CFBundleIconFile", "Editor"}};
    const std::string xml =
        makeBundle(home, "Applications/Editor.app", info, PlistFormat::xml, "editor", testing::thinArm64Header());
    makeBundle(home, "Applications/Bin.app",
               {{"CFBundleIdentifier", ""}, {"CFBundleVersion", "7"}, {"CFBundleName", 42}}, PlistFormat::binary);
    makeBundle(home, "Applications/Foo.app", nlohmann::json(nullptr), PlistFormat::xml, "Foo", "#!/bin/sh\n");

    std::map<std::string, InstalledApp> apps; // by the file name of the bundle
    for (auto& app : scanner().scanInstalledApps(false)) apps[app.bundleURL.lastComponent()] = app;
    const InstalledApp& editor = apps.at("Editor.app");
    EXPECT_EQ(std::tie(editor.displayName, editor.version, editor.bundleName, editor.architecture),
              std::tuple("Editor Pro", "2.1", "EditorName", "arm64"));
    EXPECT_EQ(editor.executablePath, xml + "/Contents/MacOS/editor");
    EXPECT_FALSE(editor.isProtected || editor.codeSignatureAuthority);

    // An empty identifier, a number for a name; then no Info.plist at all.
    const InstalledApp& binary = apps.at("Bin.app");
    EXPECT_EQ(std::tie(binary.bundleIdentifier, binary.displayName, binary.version),
              std::tuple("com.unknown.bin", "Bin", "7"));
    EXPECT_FALSE(binary.executablePath);
    const InstalledApp& bare = apps.at("Foo.app");
    EXPECT_EQ(std::tie(bare.displayName, bare.version, bare.bundleIdentifier, bare.architecture),
              std::tuple("Foo", "Unknown", "com.unknown.foo", "Unknown"));
    EXPECT_TRUE(bare.executablePath);
}

TEST_F(AppScannerTest, MeasuresHardLinksOnceAndLinksNotAtAll) {
    const std::string bundle = makeBundle(home, "Applications/Sized.app", {{"CFBundleIdentifier", "com.acme.sized"}});
    const std::string data = home.writeFile("Applications/Sized.app/Contents/Resources/data", std::string(10000, 'd'));
    std::filesystem::create_hard_link(data, bundle + "/Contents/Resources/data-again");
    home.makeSymlink("Applications/Sized.app/Contents/Resources/link", "/usr/bin");
    const auto once = testing::diskUsage(data), plist = testing::diskUsage(bundle + "/Contents/Info.plist");
    const InstalledApp app = scanner().inspectBundle(FileURL(bundle, true)).value();
    EXPECT_EQ(app.logicalSizeBytes, once.logical + plist.logical);
    EXPECT_EQ(app.bundleSizeBytes, once.allocated + plist.allocated);
    EXPECT_FALSE(scanner().inspectBundle(FileURL(home.at("Applications/None.app"), true)));
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
