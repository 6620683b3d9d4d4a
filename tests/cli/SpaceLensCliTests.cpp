#include <algorithm>

#include <gtest/gtest.h>

#include "Platform/ByteCountFormatter.hpp"
#include "Support/Json.hpp"
#include "support/ProcessRunner.hpp"
#include "support/TempHome.hpp"

namespace unbulk {
namespace {

using testing::ProcessResult;

ProcessResult run(const std::vector<std::string>& words) { return testing::runProcess(UNBULK_BINARY, words); }

TEST(SpaceLensCliTest, PrintsThePathAsTypedTheTotalAndTenLargestChildren) {
    testing::TempHome home;
    for (int i = 1; i <= 12; ++i)
        home.writeFile("t/f" + std::to_string(i), static_cast<std::uintmax_t>(i) * 5000);
    const ProcessResult result = run({"space", "--depth", "x", "--path", home.at("t/../t")});
    ASSERT_EQ(result.exitStatus, 0) << result.standardError;
    const std::string out = result.standardOutput;
    EXPECT_TRUE(out.starts_with("Contoura: " + home.at("t/../t") + "\nTotal Size: ")) << out;
    EXPECT_NE(out.find("\n  \u2022 f12: "), std::string::npos);
    EXPECT_NE(out.find("\n  \u2022 f3: "), std::string::npos);
    EXPECT_EQ(out.find("\n  \u2022 f2: "), std::string::npos) << "only the ten largest";
    EXPECT_EQ(std::count(out.begin(), out.end(), '\n'), 12);

    // Nothing at the path is an error.
    const ProcessResult gone = run({"spacelens", "--path", home.at("gone")});
    EXPECT_EQ(std::tuple(gone.exitStatus, gone.standardOutput), std::tuple(1, std::string()));
    EXPECT_EQ(gone.standardError,
              "Error: The file \u201Cgone\u201D couldn\u2019t be opened because there is no such file.\n");
}

// How many levels below the root are opened, by the value given to --depth.
TEST(SpaceLensCliTest, TheDepthIsA64BitNumberWithOneSign) {
    testing::TempHome home;
    home.writeFile("t/a/b/c/d/file", 10);
    auto openedLevels = [&](const std::string& depth) {
        const ProcessResult result = run({"spacelens", "--json", "--path", home.at("t"), "--depth", depth});
        EXPECT_EQ(result.exitStatus, 0) << depth << ": " << result.standardError;
        int levels = 0;
        for (Json node = Json::parse(result.standardOutput); node.contains("children"); node = node["children"][0])
            ++levels;
        return levels;
    };
    const std::vector<std::pair<std::string, int>> rows{
        {"2147483648", 5}, {"+3", 3}, {"-1", 0}, {"+-1", 2}, {"--1", 2}, {"9223372036854775808", 2}, {"1.5", 2}};
    for (const auto& [depth, levels] : rows) EXPECT_EQ(openedLevels(depth), levels) << depth;
}

TEST(SpaceLensCliTest, JsonIsTheWholeTreeAndTheDefaultPathIsTheHome) {
    testing::TempHome home;
    home.writeFile("a/b/c/d", 10);
    const ProcessResult result = run({"spacelens", "--json", "--depth", "-1"});
    ASSERT_EQ(result.exitStatus, 0);
    const Json root = Json::parse(result.standardOutput);
    EXPECT_EQ(root["path"], home.path());
    EXPECT_FALSE(root.contains("children")); // a negative depth opens nothing
    EXPECT_EQ(root["logicalSizeBytes"], 10);

    const Json deep = Json::parse(run({"spacelens", "--json"}).standardOutput); // two levels by default
    EXPECT_EQ(deep["children"][0]["children"][0]["name"], "b");
    EXPECT_FALSE(deep["children"][0]["children"][0].contains("children"));
}

} // namespace
} // namespace unbulk
