#include <cerrno>
#include <vector>

#include <gtest/gtest.h>

#include "Platform/ProcessLauncher.hpp"
#include "Safety/FDAChecker.hpp"
#include "support/FaultyFileSystem.hpp"
#include "support/TempHome.hpp"

namespace unbulk {
namespace {

// An empty home (granted) and an unreadable Safari folder (not granted) are CliTest's.
TEST(FDAChecker, TheFirstGuardedFolderThatExistsDecides) {
    const char* guarded[] = {"Library/Safari", "Library/Application Support/MobileSync", "Library/Mail"};
    struct Case { std::vector<bool> exists, refused; bool granted; }; // per guarded folder
    const Case cases[] = {
        {{true, true, true}, {false, true, true}, true},   // Safari readable: the others are not looked at
        {{false, true, true}, {false, true, false}, false}, // MobileSync refused, Mail readable
    };
    for (const Case& c : cases) {
        testing::TempHome home;
        testing::FaultyFileSystem fs;
        for (std::size_t i = 0; i < c.exists.size(); ++i) {
            if (c.exists[i]) home.makeDirectory(guarded[i]);
            if (c.refused[i]) fs.failOn(testing::FileSystemCall::contentsOfDirectory, home.at(guarded[i]), EPERM);
        }
        EXPECT_EQ(FDAChecker::hasFullDiskAccess(FileURL(home.path(), true), fs), c.granted) << &c - cases;
    }
}

TEST(ProcessLauncher, LaunchesWhatCanRunAndRefusesWhatCannot) {
    testing::TempHome home;
    EXPECT_TRUE(launchDetached("/bin/true", {"--an", "argument"}));
    EXPECT_FALSE(launchDetached(home.at("missing/program"), {}));
    EXPECT_FALSE(launchDetached(home.writeFile("script.sh", "#!/bin/sh\nexit 0\n"), {})) << "not executable";

#if !defined(__APPLE__)
    // Nothing on Linux opens the Mac's settings, whatever /usr/bin/open is
    // there (run-mailcap on many Debian machines): nothing is started.
    EXPECT_FALSE(FDAChecker::openSystemSettings());
#endif
}

} // namespace
} // namespace unbulk
