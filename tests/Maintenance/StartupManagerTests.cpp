#include <filesystem>
#include <map>

#include <gtest/gtest.h>

#include "Maintenance/StartupManager.hpp"
#include "Support/NoSuchFileError.hpp"
#include "support/AppBundles.hpp"

namespace unbulk {
namespace {

using testing::PlistFormat;
using testing::writePlist;

// Records what launchctl would have been asked; can also be missing.
class RecordingRunner final : public ProcessRunner {
public:
    ProcessOutput run(const std::string& executable, const std::vector<std::string>& arguments) const override {
        calls.push_back(executable + " " + arguments.at(0) + " " + arguments.at(1) + " " + arguments.at(2));
        if (missing) throw ProcessLaunchError(std::make_error_code(std::errc::no_such_file_or_directory), executable);
        return {"", 1};
    }
    mutable std::vector<std::string> calls;
    bool missing = false;
};

struct StartupManagerTest : ::testing::Test {
    StartupManager manager() {
        return StartupManager(
            {FileURL(home.at("user"), true), FileURL(home.at("agents"), true), FileURL(home.at("daemons"), true)},
            makeDefaultFileSystem(), runner);
    }
    std::string plist(const std::string& relative, const Json& contents, PlistFormat format = PlistFormat::xml) {
        home.makeDirectory(std::filesystem::path(relative).parent_path().string());
        writePlist(home.at(relative), contents, format);
        return home.at(relative);
    }
    testing::TempHome home;
    std::shared_ptr<RecordingRunner> runner = std::make_shared<RecordingRunner>();
};

TEST_F(StartupManagerTest, RatesAndSortsItemsFromEveryDirectory) {
    const std::string program = home.writeFile("bin/tool", "#!/bin/sh\n");
    plist("user/com.acme.quiet.plist", {{"Label", "com.acme.quiet"}, {"Program", program}});
    plist("user/com.acme.agent.plist", {{"RunAtLoad", true}, {"ProgramArguments", {program, "--flag"}}},
          PlistFormat::binary);
    plist("agents/com.acme.keeper.plist", {{"Label", "com.acme.keeper"}, {"KeepAlive", false}});
    plist("daemons/com.acme.gone.plist.disabled", {{"Label", "com.acme.gone"}, {"Program", home.at("bin/deleted")}});
    plist("daemons/com.acme.off.plist.disabled", {{"Label", "com.acme.off"}});
    home.writeFile("user/corrupt.plist", "not a property list");
    plist("user/array.plist", Json::array());
    home.writeFile("user/readme.txt", "x");

    const auto items = manager().listStartupItems();
    std::vector<std::string> summary;
    for (const auto& item : items) {
        summary.push_back(item.label + " " + std::string(rawValue(item.impact)) + " " +
                          std::string(rawValue(item.status)) + (item.isEnabled ? " on" : " off"));
    }
    // readdir order is the file system's: compare as sets within each impact.
    ASSERT_EQ(summary.size(), 5u) << ::testing::PrintToString(summary);
    EXPECT_EQ(summary[0], "com.acme.keeper HIGH ENABLED on");  // KeepAlive false still counts
    EXPECT_EQ(summary[1], "com.acme.agent MEDIUM ENABLED on"); // label from the file name
    EXPECT_EQ(std::set<std::string>(summary.begin() + 2, summary.end()),
              (std::set<std::string>{"com.acme.quiet LOW ENABLED on", "com.acme.gone LOW ORPHAN off",
                                     "com.acme.off LOW DISABLED off"}));
    EXPECT_EQ(std::tuple(items[1].name, items[1].targetExecutablePath, items[0].type, items[0].requiresAdministrator),
              std::tuple(std::string("agent"), program, StartupType::systemLaunchAgent, true));
}

// KeepAlive counts with any value at all; ProgramArguments only as an array of strings.
TEST_F(StartupManagerTest, ReadsKeepAliveOfAnyTypeAndOnlyStringArgumentsFromTheHomeByItself) {
    const auto xml = [](const std::string& body) {
        return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict>" + body + "</dict></plist>";
    };
    home.writeFile("Library/LaunchAgents/a.date.plist", xml("<key>KeepAlive</key><date>2024-01-01T00:00:00Z</date>"));
    home.writeFile("Library/LaunchAgents/b.data.plist", xml("<key>KeepAlive</key><data>AA==</data>"));
    home.writeFile("Library/LaunchAgents/c.mixed.plist",
                   xml("<key>ProgramArguments</key><array><string>/nowhere/tool</string><integer>3</integer></array>"));
    std::map<std::string, std::string> found;
    for (const auto& item : StartupManager(StartupManager::defaultDirectories(FileURL(home.path(), true), "/"),
                                             makeDefaultFileSystem(), runner)
                                  .listStartupItems()) {
        if (item.type != StartupType::userLaunchAgent) continue; // the machine's own /Library may hold some
        found[item.label] = std::string(rawValue(item.impact)) + " " + std::string(rawValue(item.status)) +
                            (item.targetExecutablePath ? " " + *item.targetExecutablePath : "");
    }
    EXPECT_EQ(found, (std::map<std::string, std::string>{
                         {"a.date", "HIGH ENABLED"}, {"b.data", "HIGH ENABLED"}, {"c.mixed", "LOW ENABLED"}}));
}

TEST_F(StartupManagerTest, TogglingRenamesAndAsksLaunchctlInTheRightOrder) {
    const std::string path = plist("user/com.acme.agent.plist", {{"Label", "com.acme.agent"}});
    StartupItem item = manager().listStartupItems().at(0);
    const FileURL off = manager().toggle(item, false);
    EXPECT_EQ(off.path(), path + ".disabled");
    EXPECT_FALSE(std::filesystem::exists(path));
    EXPECT_EQ(manager().toggle(StartupItem{.fileURL = off}, false), off); // already off: nothing to do

    runner->missing = true; // launchctl missing changes nothing
    item.fileURL = off;
    EXPECT_EQ(manager().toggle(item, true).path(), path);
    EXPECT_TRUE(std::filesystem::exists(path));
    EXPECT_EQ(runner->calls,
              (std::vector<std::string>{"/bin/launchctl unload -w " + path, "/bin/launchctl load -w " + path}));

    EXPECT_THROW(manager().toggle(StartupItem{.fileURL = FileURL(home.at("user/none.plist"))}, false), NoSuchFileError);
    // A disabled copy already standing there is never replaced.
    home.writeFile("user/com.acme.agent.plist.disabled", "other");
    EXPECT_THROW(manager().toggle(StartupItem{.fileURL = FileURL(path)}, false), std::system_error);
    EXPECT_TRUE(std::filesystem::exists(path));
}

} // namespace
} // namespace unbulk
