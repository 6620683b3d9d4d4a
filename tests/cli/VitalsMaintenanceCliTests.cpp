#include <regex>
#include <sstream>

#include <gtest/gtest.h>

#include "Support/Json.hpp"
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

TEST(VitalsCliTest, JsonHasTheRecordsKeysWithIsoDatesAndABatteryOnlyWhenThereIsOne) {
    testing::TempHome home;
    const ProcessResult result = run({"vitals", "--json"});
    ASSERT_EQ(result.exitStatus, 0);
    const Json vitals = Json::parse(result.standardOutput);
    EXPECT_EQ(result.standardOutput, json::pretty(vitals) + "\n");
    for (const char* key : {"timestamp", "cpu", "memory", "disk", "thermalState"})
        EXPECT_TRUE(vitals.contains(key));
    EXPECT_TRUE(
        std::regex_match(vitals["timestamp"].get<std::string>(), std::regex(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ)")));
    EXPECT_EQ(vitals["disk"]["volumePath"], "/");
    EXPECT_EQ(vitals.contains("battery"), run({"vitals"}).standardOutput.find("Battery:") != std::string::npos);
}

// This machine has none of the Mac's maintenance tools: each task fails at
// its launch, with the platform's reason, after what it printed first.
TEST(MaintenanceCliTest, AMissingToolIsALaunchErrorAndAnUnknownWordRunsEverything) {
    testing::TempHome home;
    const std::string all = "Running all maintenance tasks...\n", missing = "': No such file or directory\n";
    const std::vector<std::tuple<std::vector<std::string>, std::string, std::string>> cases{
        {{"maintenance"}, all, "dscacheutil"}, {{"maintenance", "all"}, all, "dscacheutil"},
        {{"maintenance", "foo", "--json"}, all, "dscacheutil"}, {{"maintenance", "spotlight"}, "", "mdutil"},
        {{"maintenance", "purgeable"}, "", "tmutil"},
    };
    for (const auto& [words, out, tool] : cases) {
        const ProcessResult result = run(words);
        EXPECT_EQ(result.exitStatus, 1) << words.back();
        EXPECT_EQ(result.standardOutput, out) << words.back();
        EXPECT_EQ(result.standardError, "Error: Could not launch '/usr/bin/" + tool + missing) << words.back();
    }
}

} // namespace
} // namespace unbulk
