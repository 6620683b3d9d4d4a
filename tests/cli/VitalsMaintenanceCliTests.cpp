#include <regex>

#include <gtest/gtest.h>

#include "support/ProcessRunner.hpp"
#include "support/TempHome.hpp"

namespace unbulk {
namespace {

using testing::ProcessResult;

ProcessResult run(const std::vector<std::string>& words) { return testing::runProcess(UNBULK_BINARY, words); }

TEST(VitalsCliTest, TheTextReportHasItsLinesInOrder) {
    testing::TempHome home;
    const ProcessResult result = run({"vitals"});
    ASSERT_EQ(result.exitStatus, 0) << result.standardError;
    const std::regex report(R"(System vitals:
  CPU Usage:       \d+\.\d% \(\d+ cores\)
  Memory Used:     .+ / .+ \((NORMAL|WARNING|CRITICAL)\)
  Free Storage:    .+ of .+
(  Battery:         \d+% \((Charging|Battery)\)
)?  Thermal State:   (NOMINAL|FAIR|SERIOUS|CRITICAL)
)");
    EXPECT_TRUE(std::regex_match(result.standardOutput, report)) << result.standardOutput;
}

// This machine has none of the Mac's maintenance tools: each task fails at
// its launch, with the call that failed and the platform's reason, after
// what it printed first.
TEST(MaintenanceCliTest, AMissingToolIsALaunchErrorAndAnUnknownWordRunsEverything) {
    testing::TempHome home;
    const std::string all = "Running all maintenance tasks...\n", missing = "'): No such file or directory\n";
    const std::vector<std::tuple<std::vector<std::string>, std::string, std::string>> cases{
        {{"maintenance", "foo", "--json"}, all, "dscacheutil"}, {{"maintenance", "spotlight"}, "", "mdutil"},
        {{"maintenance", "purgeable"}, "", "tmutil"},
    };
    for (const auto& [words, out, tool] : cases) {
        const ProcessResult result = run(words);
        EXPECT_EQ(result.exitStatus, 1) << words.back();
        EXPECT_EQ(result.standardOutput, out) << words.back();
        const std::string program = "/usr/bin/" + tool;
        EXPECT_EQ(result.standardError, "Error: Could not launch '" + program + "': posix_spawn('" + program + missing)
            << words.back();
    }
}

} // namespace
} // namespace unbulk
