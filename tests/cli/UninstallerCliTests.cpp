#include <filesystem>

#include <gtest/gtest.h>

#include "Support/Json.hpp"
#include "support/AppBundles.hpp"
#include "support/ProcessRunner.hpp"

namespace unbulk {
namespace {

using testing::ProcessResult;

ProcessResult run(const std::vector<std::string>& words) { return testing::runProcess(UNBULK_BINARY, words); }

struct UninstallerCliTest : ::testing::Test {
    UninstallerCliTest() {
        bundle = testing::makeBundle(home, "Applications/Acme.app",
                                     {{"CFBundleIdentifier", "com.acme.app"}, {"CFBundleName", "Acme"}});
        home.writeFile("Applications/Acme.app/Contents/MacOS/Acme", std::string(3000, 'x'));
        home.writeFile("Library/Caches/com.acme.app/cache.db", "cache");
    }
    testing::TempHome home;
    std::string bundle;
};

TEST_F(UninstallerCliTest, ListShowsAppsAndWhatNoInstalledAppAccountsFor) {
    home.writeFile("Library/Application Support/Acme/state", "state");
    home.writeFile("Library/Preferences/com.acme.app.plist", "prefs");
    home.writeFile("Library/Caches/com.gone.tool/cache.db", "cache");
    const ProcessResult text = run({"uninstaller"});
    ASSERT_EQ(text.exitStatus, 0) << text.standardError;
    EXPECT_TRUE(text.standardOutput.starts_with("Installed apps (1):\n  \u2022 Acme (com.acme.app): "))
        << text.standardOutput;
    EXPECT_NE(text.standardOutput.find("\n\nOrphaned files (1):\n  \u2022 com.gone.tool: " +
                                       home.at("Library/Caches/com.gone.tool") + " ("),
              std::string::npos)
        << text.standardOutput;

    const Json list = Json::parse(run({"uninstall", "list", "--json"}).standardOutput);
    EXPECT_EQ(list["installed"][0]["bundleIdentifier"], "com.acme.app");
    EXPECT_TRUE(list.contains("leftovers"));
    EXPECT_EQ(run({"uninstaller", "--json"}).standardOutput, ""); // "--json" is an unknown subcommand
}

TEST_F(UninstallerCliTest, RemoveIsADryRunUntilExecuteAndThenTrashesTheAppAndItsData) {
    const ProcessResult usage = run({"uninstaller", "remove"});
    EXPECT_EQ(std::tuple(usage.exitStatus, usage.standardOutput),
              std::tuple(0, std::string("Usage: unbulk uninstaller remove <bundle_id_or_name> [--execute]\n")));
    const ProcessResult missing = run({"uninstaller", "remove", "--execute", "acme"});
    EXPECT_EQ(std::tuple(missing.exitStatus, missing.standardOutput),
              std::tuple(1, std::string("Error: Application not found matching '--execute'\n")));

    const ProcessResult dry = run({"uninstaller", "remove", "ACME"});
    ASSERT_EQ(dry.exitStatus, 0) << dry.standardError;
    EXPECT_TRUE(dry.standardOutput.starts_with("[DRY RUN] Successfully uninstalled Acme:\n  Unbulked Space: "));
    EXPECT_TRUE(dry.standardOutput.ends_with("\n  Files: 2\n")) << dry.standardOutput;
    EXPECT_TRUE(std::filesystem::exists(bundle));

    const Json summary =
        Json::parse(run({"uninstaller", "uninstall", "com.acme.app", "--execute", "--json"}).standardOutput);
    EXPECT_FALSE(summary["dryRun"].get<bool>());
    EXPECT_EQ(summary["deletedURLs"].size(), 2u);
    EXPECT_FALSE(std::filesystem::exists(bundle));
    const ProcessResult trash = testing::runProcess("/usr/bin/trash-list", {});
    EXPECT_NE(trash.standardOutput.find(bundle), std::string::npos) << trash.standardOutput << trash.standardError;
}

} // namespace
} // namespace unbulk
