#include <gtest/gtest.h>

#include "Uninstaller/InstalledAppsIndex.hpp"
#include "Uninstaller/LeftoversHunter.hpp"
#include "Uninstaller/LeftoversWhitelist.hpp"
#include "support/TempHome.hpp"

namespace unbulk {
namespace {

InstalledApp app(std::string id, std::string name, std::string bundle) {
    return InstalledApp::make({.id = Uuid::random(), .bundleIdentifier = std::move(id),
                               .bundleURL = FileURL("/Applications/" + bundle, true), .displayName = std::move(name)});
}

TEST(InstalledAppsIndexTest, MatchesGenerouslyThroughEveryStep) {
    const InstalledAppsIndex index({app("com.vendor.app", "Vendor App", "Vendor App.app"),
                                    app("com.acme.foo", "Foo", "Foo.app"), app("org.x.foobar", "Foo Bar", "FB.app"),
                                    app("com.ms.code", "Visual Studio Code", "VSCode.app")});
    for (const char* name : {"com.vendor.app", "group.com.vendor.app", "vendor app", "Foo2", "foo-bar",
                             "com.vendor.app.helper", "com.vendor", "Visual Studio"})
        EXPECT_TRUE(index.matchesInstalledApp(name)) << name;
    for (const char* name : {"Firefox", "Visual Other Stuff Here", "x", "com.other.app"})
        EXPECT_FALSE(index.matchesInstalledApp(name)) << name;
}

TEST(LeftoversHunterTest, ReportsWhatNoApplicationAccountsForInTableOrder) {
    testing::TempHome home;
    home.writeFile("Library/Application Support/Firefox/profile", "12345");
    for (const char* path : {"Application Support/Docker/x", "Application Support/Foo/x",
                             "Application Support/.hidden/x", "Caches/com.gone.app/x", "Preferences/com.gone.app.plist",
                             "Preferences/com.apple.something.plist", "LaunchAgents/com.gone.agent.plist",
                             "Containers/Plain Name/x"})
        home.writeFile(std::string("Library/") + path, "1");

    std::vector<std::pair<double, std::string>> progress;
    const auto leftovers = LeftoversHunter(FileURL(home.path(), true), makeDefaultFileSystem())
                               .scanForLeftovers(std::vector<InstalledApp>{app("com.acme.foo", "Foo", "Foo.app")},
                                                 [&](double f, const std::string& m) { progress.emplace_back(f, m); });
    std::vector<std::string> summary;
    for (const auto& l : leftovers)
        summary.push_back(l.candidateAppName + " " + std::string(rawValue(l.location)) + " " +
                          std::to_string(l.confidence).substr(0, 4) + " " + std::string(rawValue(l.suggestedRiskTier)));
    EXPECT_EQ(summary,
              (std::vector<std::string>{
                  "Firefox APPLICATION_SUPPORT 0.90 SAFE_TO_DELETE", "com.gone.app CACHES 1.00 SAFE_TO_DELETE",
                  "com.gone.app PREFERENCES 1.00 SAFE_TO_DELETE", "Plain Name CONTAINERS 0.75 REVIEW_REQUIRED",
                  "com.gone.agent.plist LAUNCH_AGENTS 0.85 REVIEW_REQUIRED"})); // only preferences drop ".plist"
    EXPECT_EQ(leftovers[0].orphanReason,
              "Application Support directory 'Firefox' has no corresponding installed application.");
    EXPECT_EQ(leftovers[2].bundleIdentifier, "com.gone.app");
    ASSERT_EQ(progress.size(), 11u);
    EXPECT_EQ(progress[0], std::pair(0.0, std::string("Scanning Application Support...")));
    EXPECT_EQ(progress.back(), std::pair(1.0, std::string("Complete")));
}

TEST(LeftoversHunterTest, WithoutAnyListEverythingNotWhitelistedIsAnOrphan) {
    testing::TempHome home;
    home.writeFile("Library/Application Support/Foo/x", "1");
    home.writeFile("Library/Application Support/Sparkle/x", "1");
    const auto leftovers = LeftoversHunter(FileURL(home.path(), true), makeDefaultFileSystem()).scanForLeftovers(std::nullopt);
    ASSERT_EQ(leftovers.size(), 1u);
    EXPECT_EQ(leftovers[0].candidateAppName, "Foo");
    EXPECT_TRUE(Whitelist::isProtected("x", std::string("Group.com.apple.notes")));
}

} // namespace
} // namespace unbulk
