#include <gtest/gtest.h>

#include "Uninstaller/DependencyResolver.hpp"
#include "support/AppBundles.hpp"
#include "support/Files.hpp"

namespace unbulk {
namespace {

using Strings = std::set<std::string>;
using L = DependencyLocation;

InstalledApp app(std::string id, std::string name, std::optional<std::string> bundleName = std::nullopt,
                 FileURL bundleURL = FileURL("/Applications/X.app", true)) {
    return InstalledApp::make({.bundleIdentifier = std::move(id),
                               .bundleURL = std::move(bundleURL),
                               .displayName = std::move(name),
                               .bundleName = std::move(bundleName)});
}

TEST(DependencyResolverCandidatesTest, NamesIdentifiersAndVendorPaths) {
    const DependencyResolver resolver(FileURL("/h", true), makeDefaultFileSystem());
    const auto chrome = resolver.makeCandidates(app("com.google.Chrome", "Google Chrome"));
    EXPECT_EQ(chrome.candidateNames,
              (Strings{"Google Chrome", "GoogleChrome", "google chrome", "google-chrome", "google_chrome", "Chrome"}));
    EXPECT_EQ(chrome.candidateBundleIds, (Strings{"com.google.Chrome", "com.google.chrome"}));
    EXPECT_EQ(chrome.vendorSubpaths, (Strings{"Google/Chrome", "Google/Google Chrome"}));
    EXPECT_EQ(chrome.appGroupIds, (Strings{"group.com.google.Chrome"}));

    EXPECT_EQ(resolver.makeCandidates(app("com.foo.bar", "Bar")).vendorSubpaths, (Strings{"Foo/bar", "Foo/Bar"}));
    const auto twoPieces = resolver.makeCandidates(app("acme.tool", "X"));
    EXPECT_TRUE(twoPieces.vendorSubpaths.empty() && twoPieces.candidateNames.empty()); // "X" is too short
    // "more than two characters" counts what a reader sees: "éé" is two, though four bytes.
    EXPECT_EQ(resolver.makeCandidates(app("com.acme.\u00E9\u00E9", "X")).candidateNames, Strings{});
    const auto pages = resolver.makeCandidates(app("com.apple.Pages", "Pages"));
    EXPECT_TRUE(pages.candidateBundleIds.empty());
    EXPECT_EQ(pages.appGroupIds, (Strings{"group.com.apple.Pages"}));
}

struct DependencyResolverTest : ::testing::Test {
    testing::TempHome home;
    FileURL homeURL{home.path(), true};
};

TEST_F(DependencyResolverTest, FindsTheApplicationsDataInEveryLibraryPlace) {
    const std::string bundle =
        testing::makeBundle(home, "Applications/Acme Tool.app", {{"CFBundleIdentifier", "com.acme.tool"}});
    // Under Library: a vendor subpath, a helper's preferences, and a launch agent without a boundary after the
    // identifier all count; the global preferences, another app's report and an unrelated cache do not.
    for (const char* path :
         {"Application Support/com.acme.tool/db", "Application Support/Acme/tool/state",
          "Caches/com.acme.tool.ShipIt/update", "Preferences/com.acme.tool.plist",
          "Preferences/com.acme.tool.helper.plist", "Preferences/ByHost/com.acme.tool.ABCD.plist",
          "Preferences/.GlobalPreferences.plist",
          "Saved Application State/com.acme.tool.savedState/x", "HTTPStorages/com.acme.tool.binarycookies",
          "Group Containers/TEAM123.group.com.acme.tool/x", "Group Containers/TEAM123.com.acme.tool/x",
          "LaunchAgents/com.acme.toolhelper.plist",
          "Logs/DiagnosticReports/Acme Tool-2024-01-01-101010.ips", "Logs/DiagnosticReports/Other-2024.ips",
          "Caches/unrelated/x"})
        home.writeFile(std::string("Library/") + path, "1");
    const AppFootprint footprint = DependencyResolver(homeURL, makeDefaultFileSystem()).resolveDependencies(
        app("com.acme.tool", "Acme Tool", std::nullopt, FileURL(bundle, true)));
    std::multiset<std::string> found;
    for (const auto& dependency : footprint.dependencies)
        found.insert(std::string(rawValue(dependency.location)) + " " +
                     std::filesystem::path(dependency.path).lexically_relative(home.path()).string());
    EXPECT_EQ(found,
              (std::multiset<std::string>{
                  "APPLICATION_BUNDLE Applications/Acme Tool.app", "CACHES Library/Caches/com.acme.tool.ShipIt",
                  "APPLICATION_SUPPORT Library/Application Support/com.acme.tool",
                  "APPLICATION_SUPPORT Library/Application Support/Acme/tool",
                  "PREFERENCES Library/Preferences/com.acme.tool.plist",
                  "PREFERENCES Library/Preferences/ByHost/com.acme.tool.ABCD.plist",
                  "PREFERENCES Library/Preferences/com.acme.tool.helper.plist",
                  "SAVED_APPLICATION_STATE Library/Saved Application State/com.acme.tool.savedState",
                  "HTTP_STORAGES Library/HTTPStorages/com.acme.tool.binarycookies",
                  "GROUP_CONTAINERS Library/Group Containers/TEAM123.group.com.acme.tool",
                  "GROUP_CONTAINERS Library/Group Containers/TEAM123.com.acme.tool",
                  "LAUNCH_AGENTS Library/LaunchAgents/com.acme.toolhelper.plist",
                  "CRASH_REPORTS Library/Logs/DiagnosticReports/Acme Tool-2024-01-01-101010.ips"}));
    EXPECT_EQ(footprint.totalItemCount, 13);
}

// An identifier of one component ("com") is no family name: it takes only
// files named exactly after it, never the other applications' files that
// merely begin with it.
TEST_F(DependencyResolverTest, AOneComponentIdentifierMatchesByEqualityOnly) {
    for (const char* path :
         {"Preferences/com.plist", "Preferences/com.google.Chrome.plist", "Preferences/ByHost/com.ABCD.plist",
          "LaunchAgents/com.plist", "LaunchAgents/com.docker.helper.plist", "LaunchAgents/company.plist",
          "Logs/DiagnosticReports/com.ips", "Logs/DiagnosticReports/com.apple.Safari-2024.ips",
          "Logs/DiagnosticReports/compiler-2024.crash"})
        home.writeFile(std::string("Library/") + path, "1");
    const AppFootprint footprint = DependencyResolver(homeURL, makeDefaultFileSystem()).resolveDependencies(app("com", "X"));
    std::set<std::string> found;
    for (const auto& dependency : footprint.dependencies)
        found.insert(std::filesystem::path(dependency.path).lexically_relative(home.path()).string());
    EXPECT_EQ(found, (Strings{"Library/Preferences/com.plist", "Library/LaunchAgents/com.plist",
                              "Library/Logs/DiagnosticReports/com.ips"}));
}

TEST_F(DependencyResolverTest, AHardLinkBetweenTwoItemsIsChargedOnceAndALinkedFolderIsALink) {
    const std::string a = home.writeFile("Library/Application Support/Linky/blob", std::string(9000, 'x'));
    std::filesystem::create_directories(home.at("Library/Caches/Linky"));
    std::filesystem::create_hard_link(a, home.at("Library/Caches/Linky/blob"));
    home.writeFile("outside/data", std::string(5000, 'y'));
    home.makeSymlink("Library/Application Support/com.acme.linky", home.at("outside"));

    const AppFootprint footprint = DependencyResolver(homeURL, makeDefaultFileSystem()).resolveDependencies(app("com.acme.linky", "Linky"));
    std::map<std::string, ResolvedDependency> byPath;
    for (const auto& dependency : footprint.dependencies) byPath[dependency.path] = dependency;
    ASSERT_EQ(byPath.size(), 3u);
    const auto& support = byPath.at(home.at("Library/Application Support/Linky"));
    const auto& caches = byPath.at(home.at("Library/Caches/Linky"));
    EXPECT_EQ(support.allocatedSizeBytes + caches.allocatedSizeBytes, testing::diskUsage(a).allocated);
    EXPECT_EQ(support.fileCount + caches.fileCount, 2);
    EXPECT_EQ(caches.logicalSizeBytes, 9000);
    const auto& linked = byPath.at(home.at("Library/Application Support/com.acme.linky"));
    EXPECT_TRUE(linked.isSymlink && linked.allocatedSizeBytes == 0) << linked.allocatedSizeBytes;
    // No bundle on disk: the footprint counts it as one more item of its sizes.
    EXPECT_EQ(footprint.totalItemCount, 4);
    EXPECT_EQ(footprint.itemCountByLocation.at(L::applicationBundle), 1);
}

} // namespace
} // namespace unbulk
