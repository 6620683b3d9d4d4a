// unbulk clean against homes arranged the way an attacker, or an unusual
// setup, would arrange them. The program runs as a child in a temporary home.

#include <filesystem>
#include <string>

#include <gtest/gtest.h>
#include <unistd.h>

#include "Support/Json.hpp"
#include "support/ProcessRunner.hpp"
#include "support/TempHome.hpp"

namespace {

namespace fs = std::filesystem;
using unbulk::Json;

TEST(CleanSafetyTest, ALinkedHomeStillProtectsDocumentsFromAPermanentPurge) {
    unbulk::testing::TempHome home;
    const std::string thesis = home.writeFile("Documents/thesis.txt", "years of work");
    home.makeSymlink("Library/Caches", "../Documents");
    const std::string linkedHome = home.root() + "/linked-home";
    ASSERT_EQ(::symlink(home.path().c_str(), linkedHome.c_str()), 0);

    unbulk::testing::ProcessOptions options;
    options.environment = {{"HOME", linkedHome}};
    const auto run = unbulk::testing::runProcess(
        UNBULK_BINARY, {"clean", "--permanent", "--execute", "--yes", "--category", "SYSTEM_CACHES", "--json"},
        options);
    ASSERT_EQ(run.exitStatus, 0) << run.standardError;
    EXPECT_TRUE(fs::exists(thesis)) << run.standardOutput;
    const Json summary = Json::parse(run.standardOutput);
    ASSERT_FALSE(summary["records"].empty()) << "the scan took the linked folder for a cache";
    for (const Json& record : summary["records"]) {
        EXPECT_EQ(record["status"], "FAILED");
        EXPECT_NE(record["errorMessage"].get<std::string>().find("protected user directory 'Documents'"),
                  std::string::npos)
            << record;
    }
}

} // namespace
