#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <system_error>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "Platform/ProcessLauncher.hpp"
#include "Safety/FDAChecker.hpp"
#include "Safety/TCCIsolationHelper.hpp"
#include "support/FaultyFileSystem.hpp"
#include "support/TempHome.hpp"

namespace unbulk {
namespace {

using testing::FaultyFileSystem;
using testing::FileSystemCall;
using testing::TempHome;

// Children of this process that have ended and not been reaped, from /proc.
int zombieChildren() {
    int zombies = 0;
    for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
        std::ifstream stat(entry.path() / "stat");
        std::string line;
        if (!std::getline(stat, line)) continue;
        // "<pid> (<comm>) <state> <ppid> ...": the name may hold anything, so
        // read from the last parenthesis.
        std::istringstream rest(line.substr(line.rfind(')') + 1));
        char state = 0;
        int parent = 0;
        if (rest >> state >> parent && state == 'Z' && parent == ::getpid()) ++zombies;
    }
    return zombies;
}

const std::vector<std::string> guardedFolders{"Library/Safari", "Library/Application Support/MobileSync",
                                              "Library/Mail"};

TEST(FDAChecker, TheFirstGuardedFolderThatExistsDecidesAndNoneMeansGranted) {
    struct Case {
        std::vector<bool> exists;  // per guarded folder
        std::vector<bool> refused; // per guarded folder
        bool granted;
    };
    const std::vector<Case> cases{
        {{false, false, false}, {true, true, true}, true},  // nothing guarded to be refused
        {{true, true, true}, {false, true, true}, true},    // Safari readable: the others are not looked at
        {{true, false, false}, {true, false, false}, false},
        {{false, true, true}, {false, false, true}, true},  // MobileSync readable, Mail refused
        {{false, true, true}, {false, true, false}, false}, // MobileSync refused, Mail readable
        {{false, false, true}, {true, true, true}, false},
        {{false, false, true}, {false, false, false}, true},
    };
    for (const Case& c : cases) {
        TempHome home;
        FaultyFileSystem fileSystem;
        for (std::size_t i = 0; i < guardedFolders.size(); ++i) {
            if (c.exists[i]) home.makeDirectory(guardedFolders[i]);
            if (c.refused[i]) fileSystem.failOn(FileSystemCall::contentsOfDirectory, home.at(guardedFolders[i]), EPERM);
        }
        EXPECT_EQ(FDAChecker::hasFullDiskAccess(FileURL(home.path(), true), fileSystem), c.granted)
            << "case " << (&c - cases.data());
    }
}

TEST(FDAChecker, AnyListingFailureCountsAsNotGrantedAndTheRealHomeIsTheCurrentOne) {
    TempHome home;
    home.writeFile("Library/Safari", "a file, not a folder");
    FaultyFileSystem fileSystem;
    EXPECT_FALSE(FDAChecker::hasFullDiskAccess(FileURL(home.path(), true), fileSystem));
    // The overload without arguments reads $HOME, which the temporary home set.
    EXPECT_FALSE(FDAChecker::hasFullDiskAccess());
    std::filesystem::remove(home.at("Library/Safari"));
    EXPECT_TRUE(FDAChecker::hasFullDiskAccess());
}

TEST(FDAChecker, SettingsLinkAndOpeningItWhereThereIsNoOpenProgram) {
    EXPECT_EQ(FDAChecker::settingsURL(), "x-apple.systempreferences:com.apple.preference.security?Privacy_AllFiles");
    ASSERT_FALSE(std::filesystem::exists("/usr/bin/open")) << "this test expects a machine without /usr/bin/open";
    EXPECT_FALSE(FDAChecker::openSystemSettings());
}

TEST(ProcessLauncher, LaunchesWhatCanRunAndRefusesWhatCannot) {
    TempHome home;
    const std::string notExecutable = home.writeFile("script.sh", "#!/bin/sh\nexit 0\n");
    EXPECT_TRUE(launchDetached("/bin/true", {}));
    EXPECT_TRUE(launchDetached("/bin/true", {"--an", "argument"}));
    EXPECT_FALSE(launchDetached(home.at("missing/program"), {}));
    EXPECT_FALSE(launchDetached(home.at(""), {})); // a directory
    EXPECT_FALSE(launchDetached(notExecutable, {}));

    // Nobody waits for the children, yet they are reaped once they end.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    while (zombieChildren() > 0 && std::chrono::steady_clock::now() < deadline) {
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    EXPECT_EQ(zombieChildren(), 0);
}

TEST(TCCIsolationHelper, OnlyPermissionErrorsOfThePosixCategoriesCount) {
    struct Case {
        std::error_code error;
        bool permission;
    };
    for (const Case& c : {Case{{EPERM, std::generic_category()}, true}, Case{{EACCES, std::generic_category()}, true},
                          Case{{EACCES, std::system_category()}, true}, Case{{ENOENT, std::generic_category()}, false},
                          Case{{EIO, std::system_category()}, false}, Case{{}, false},
                          Case{std::make_error_code(std::io_errc::stream), false},
                          Case{{EACCES, std::iostream_category()}, false}}) {
        EXPECT_EQ(TCCIsolationHelper::isPermissionOrTCCError(c.error), c.permission) << c.error.message();
    }
    EXPECT_EQ(TCCIsolationHelper::fdaWarning("Safari WebKit User Cache", "/Users/me/Library/Caches/com.apple.Safari"),
              "Full Disk Access is required to scan Safari WebKit User Cache at "
              "/Users/me/Library/Caches/com.apple.Safari. Grant Full Disk Access in System Settings > Privacy & "
              "Security > Full Disk Access.");
}

} // namespace
} // namespace unbulk
