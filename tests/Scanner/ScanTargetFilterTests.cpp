#include "Scanner/ScanTargetFilter.hpp"

#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/TempHome.hpp"

namespace unbulk {
namespace {

using testing::TempHome;

DiscoveredItem makeItem(const std::string& path, StorageCategory category = StorageCategory::developerCache,
                        std::optional<std::string> ruleId = std::nullopt, std::int64_t bytes = 100,
                        RiskTier tier = RiskTier::safeToDelete) {
    DiscoveredItem::Fields fields;
    fields.url = FileURL(path);
    fields.category = category;
    fields.riskTier = tier;
    fields.logicalSizeBytes = bytes;
    fields.allocatedSizeBytes = bytes;
    fields.fileCount = 1;
    fields.itemDescription = "item";
    fields.ruleId = std::move(ruleId);
    return DiscoveredItem::make(std::move(fields));
}

TEST(ScanTargetTest, RawValuesAreTheCaseNamesInTableOrder) {
    std::vector<std::string> raw;
    for (ScanTarget target : allScanTargets()) raw.emplace_back(rawValue(target));
    EXPECT_EQ(raw, (std::vector<std::string>{"uvPython", "dockerVM", "xcode", "aiModels", "npmBun", "cargo",
                                              "homebrew", "systemCaches", "browserCaches"}));
    for (ScanTarget target : allScanTargets()) EXPECT_EQ(scanTargetFromRawValue(rawValue(target)), target);
    EXPECT_FALSE(scanTargetFromRawValue("Cargo"));
    EXPECT_FALSE(scanTargetFromRawValue("DOCKER_VM"));
    EXPECT_EQ(nlohmann::json(ScanTarget::npmBun), "npmBun");
    EXPECT_EQ(nlohmann::json("aiModels").get<ScanTarget>(), ScanTarget::aiModels);
    EXPECT_THROW(nlohmann::json("ai").get<ScanTarget>(), nlohmann::json::exception);
}

TEST(ScanTargetFilterNormalizeTest, TrimsExpandsStandardisesOrRefuses) {
    const FileURL home("/Users/dev", true);
    struct Case {
        std::string input;
        std::optional<std::string> expected;
    };
    const std::vector<Case> cases{
        {"~", "/Users/dev"},
        {"~/", "/Users/dev"},
        {"~/Downloads", "/Users/dev/Downloads"},
        {"  ~/Downloads/ \n", "/Users/dev/Downloads"},
        {"\t/tmp/x//\r\n", "/tmp/x"},
        {"\u00A0/opt/y\u2028", "/opt/y"},
        {"/", "/"},
        {"///", "/"},
        {"/a/./b/../c", "/a/c"},
        {"/a/b/..", "/a"},
        {"~/../shared", "/Users/shared"},
        {"relative/x", std::nullopt},
        {"./x", std::nullopt},
        {"", std::nullopt},
        {" \n\t ", std::nullopt},
        {"~user/x", std::nullopt},
        {"~user", std::nullopt},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(ScanTargetFilter::normalize(c.input, home), c.expected) << "input: \"" << c.input << "\"";
    }
}

TEST(ScanTargetFilterNormalizeTest, ConstructionDropsRefusedPathsAndKeepsOrder) {
    const FileURL home("/Users/dev", true);
    ScanTargetFilter filter({}, {" ~/.cache/ ", "relative", "", "/b/", "~other/x", "/a"}, home);
    EXPECT_EQ(filter.excludedPaths(), (std::vector<std::string>{"/Users/dev/.cache", "/b", "/a"}));
    EXPECT_FALSE(filter.isPassThrough());

    ScanTargetFilter onlyRefused({}, {"", "relative"}, home);
    EXPECT_TRUE(onlyRefused.excludedPaths().empty());
    EXPECT_TRUE(onlyRefused.isPassThrough());
    EXPECT_FALSE(ScanTargetFilter({ScanTarget::cargo}, {}, home).isPassThrough());
}

TEST(ScanTargetFilterTest, EqualityComparesNormalisedValuesNotTheFileSystem) {
    const FileURL home("/Users/dev", true);
    ScanTargetFilter a({ScanTarget::cargo}, {"~/x/"}, home);
    ScanTargetFilter b({ScanTarget::cargo}, {"/Users/dev/x", "relative"}, home, makeDefaultFileSystem());
    EXPECT_EQ(a, b);
    EXPECT_NE(a, ScanTargetFilter({ScanTarget::homebrew}, {"~/x"}, home));
    EXPECT_NE(a, ScanTargetFilter({ScanTarget::cargo}, {"~/y"}, home));
    EXPECT_NE(a, ScanTargetFilter({ScanTarget::cargo}, {"/Users/dev/x"}, FileURL("/Users/other", true)));
}

TEST(ScanTargetFilterTest, CategoriesToScanLeavesOutOwnedCategories) {
    const FileURL home("/Users/dev", true);
    const auto all = allStorageCategorySet();
    auto allBut = [&](std::initializer_list<StorageCategory> owned) {
        CategorySet out = all;
        for (auto category : owned) out.erase(category);
        return out;
    };
    struct Case {
        ScanTargetSet disabled;
        std::optional<CategorySet> expected;
    };
    const std::vector<Case> cases{
        {{}, std::nullopt},
        {{ScanTarget::cargo}, std::nullopt},
        {{ScanTarget::cargo, ScanTarget::homebrew, ScanTarget::npmBun, ScanTarget::uvPython}, std::nullopt},
        {{ScanTarget::systemCaches},
         allBut({StorageCategory::systemCaches, StorageCategory::systemLogs, StorageCategory::crashReports})},
        {{ScanTarget::dockerVM, ScanTarget::cargo}, allBut({StorageCategory::dockerVM})},
        {{ScanTarget::xcode, ScanTarget::aiModels, ScanTarget::browserCaches},
         allBut({StorageCategory::xcodeArtifacts, StorageCategory::aiModelWeights, StorageCategory::browserCaches})},
    };
    for (const auto& c : cases) {
        ScanTargetFilter filter(c.disabled, {}, home);
        EXPECT_EQ(filter.categoriesToScan(), c.expected) << "with " << c.disabled.size() << " disabled";
    }
}

TEST(ScanTargetFilterTest, DisabledTargetByCategoryRuleIdOrHomePath) {
    const std::string home = "/Users/dev";
    const FileURL homeURL(home, true);
    struct Case {
        ScanTarget disabled;
        std::string path;
        StorageCategory category;
        std::optional<std::string> ruleId;
        bool claimed;
    };
    const auto dev = StorageCategory::developerCache;
    const std::vector<Case> cases{
        // by category
        {ScanTarget::xcode, "/elsewhere/x", StorageCategory::xcodeArtifacts, std::nullopt, true},
        {ScanTarget::systemCaches, "/elsewhere/x", StorageCategory::crashReports, std::nullopt, true},
        {ScanTarget::xcode, "/elsewhere/x", StorageCategory::dockerVM, std::nullopt, false},
        // by rule id, a plain prefix
        {ScanTarget::cargo, "/elsewhere/x", dev, "dev.cargo.registry", true},
        {ScanTarget::cargo, "/elsewhere/x", dev, "dev.cargo", false},
        {ScanTarget::cargo, "/elsewhere/x", dev, "xdev.cargo.registry", false},
        {ScanTarget::systemCaches, "/elsewhere/x", StorageCategory::dynamicRule, "sys.user.caches", true},
        {ScanTarget::systemCaches, "/elsewhere/x", StorageCategory::dynamicRule, "sys.user.cachesX", true},
        {ScanTarget::systemCaches, "/elsewhere/x", StorageCategory::dynamicRule, "sys.user.cache", false},
        {ScanTarget::aiModels, "/elsewhere/x", StorageCategory::dynamicRule, "ai.ollama", true},
        // by a place below the home, on whole components
        {ScanTarget::cargo, home + "/.cargo", dev, std::nullopt, true},
        {ScanTarget::cargo, home + "/.cargo/registry/cache", dev, std::nullopt, true},
        {ScanTarget::cargo, home + "/.cargo2", dev, std::nullopt, false},
        {ScanTarget::cargo, home + "/.cargo2/registry", dev, std::nullopt, false},
        {ScanTarget::cargo, "/Users/other/.cargo", dev, std::nullopt, false},
        {ScanTarget::npmBun, home + "/.local/share/pnpm/store", dev, std::nullopt, true},
        {ScanTarget::uvPython, home + "/Library/Caches/pip", dev, std::nullopt, true},
        {ScanTarget::homebrew, home + "/Library/Caches", dev, std::nullopt, false},
        {ScanTarget::dockerVM, home + "/Library/Containers/com.docker.docker/Data", dev, std::nullopt, true},
        // the item's path is normalised first
        {ScanTarget::xcode, home + "/Library/Developer/Tmp/../Xcode/DerivedData", dev, std::nullopt, true},
        {ScanTarget::cargo, "~/.cargo/git", dev, std::nullopt, true},
        // systemCaches and browserCaches own no places
        {ScanTarget::systemCaches, home + "/Library/Caches/com.example", dev, std::nullopt, false},
    };
    for (const auto& c : cases) {
        ScanTargetFilter filter({c.disabled}, {}, homeURL);
        auto item = makeItem(home + "/placeholder", c.category, c.ruleId);
        item.path = c.path;
        const auto expected = c.claimed ? std::optional<ScanTarget>(c.disabled) : std::nullopt;
        EXPECT_EQ(filter.disabledTarget(item), expected) << rawValue(c.disabled) << " " << c.path;
        EXPECT_EQ(filter.allows(item), !c.claimed) << rawValue(c.disabled) << " " << c.path;
    }
    EXPECT_FALSE(ScanTargetFilter({}, {}, homeURL).disabledTarget(makeItem(home + "/.cargo", dev, "dev.cargo.x")));
}

TEST(ScanTargetFilterTest, ExclusionsWorkOnWholeComponents) {
    TempHome temp;
    const FileURL home(temp.path(), true);
    ScanTargetFilter filter({}, {"  ~/Projects/ "}, home);
    struct Case {
        std::string path;
        bool excluded;
    };
    const std::vector<Case> cases{
        {temp.at("Projects"), true},
        {temp.at("Projects/app/node_modules"), true},
        {temp.at("Projects/"), true},
        {temp.at("Other/../Projects/app"), true},
        {"~/Projects/app", true},
        {temp.at("ProjectsOld"), false},
        {temp.at("ProjectsOld/app"), false},
        {temp.path(), false},
        {"/elsewhere/Projects", false},
        {"Projects/app", false},
    };
    for (const auto& c : cases) EXPECT_EQ(filter.isExcluded(c.path), c.excluded) << c.path;

    EXPECT_FALSE(ScanTargetFilter({}, {}, home).isExcluded(temp.at("Projects")));
}

TEST(ScanTargetFilterTest, ExcludingTheRootExcludesEveryAbsolutePath) {
    TempHome temp;
    ScanTargetFilter filter({}, {"/"}, FileURL(temp.path(), true));
    EXPECT_EQ(filter.excludedPaths(), std::vector<std::string>{"/"});
    EXPECT_TRUE(filter.isExcluded("/"));
    EXPECT_TRUE(filter.isExcluded(temp.at("a/b")));
    EXPECT_TRUE(filter.isExcluded("/nowhere/at/all"));
    EXPECT_FALSE(filter.isExcluded("relative/path"));
    EXPECT_FALSE(filter.allows(makeItem(temp.at("x"))));
}

TEST(ScanTargetFilterTest, SymbolicLinksExcludeByStatedOrResolvedLocation) {
    TempHome temp;
    const FileURL home(temp.path(), true);
    temp.writeFile("real/data/file.bin", 10);
    temp.makeDirectory("realm");
    temp.makeSymlink("link", temp.at("real"));
    temp.makeSymlink("relative-link", "real/data");

    struct Case {
        std::string excluded;
        std::string path;
        bool isExcluded;
    };
    const std::vector<Case> cases{
        // the item's real place is excluded
        {"~/real", temp.at("link/data/file.bin"), true},
        {"~/real/data", temp.at("relative-link/file.bin"), true},
        // the item's stated place is excluded
        {"~/link", temp.at("link/data/file.bin"), true},
        // an excluded link covers what lies under its target
        {"~/link", temp.at("real/data/file.bin"), true},
        {"~/relative-link", temp.at("real/data"), true},
        // neither place is below the exclusion
        {"~/real", temp.at("realm"), false},
        {"~/link", temp.at("realm"), false},
        {"~/relative-link", temp.at("real"), false},
        {"~/other", temp.at("link/data/file.bin"), false},
    };
    for (const auto& c : cases) {
        ScanTargetFilter filter({}, {c.excluded}, home);
        EXPECT_EQ(filter.isExcluded(c.path), c.isExcluded) << c.excluded << " vs " << c.path;
    }
}

class ScanTargetFilterApplyTest : public ::testing::Test {
protected:
    ScanTargetFilterApplyTest() : homeURL(temp.path(), true) {
        input.scanId = Uuid::random();
        input.startedAt = Date{} + std::chrono::seconds(1000);
        input.completedAt = Date{} + std::chrono::seconds(1012);
        input.durationSeconds = 12.5;
        input.items = {
            makeItem(temp.at(".cargo/registry"), StorageCategory::developerCache, "dev.cargo.registry", 400),
            makeItem(temp.at(".npm/_cacache"), StorageCategory::developerCache, "dev.npm.cache", 300),
            makeItem(temp.at("Library/Developer/Xcode/DerivedData"), StorageCategory::xcodeArtifacts, std::nullopt,
                     200),
            makeItem("/opt/cache/tool", StorageCategory::dynamicRule, "dev.cargo.git", 150),
            makeItem(temp.at("Projects/app/node_modules"), StorageCategory::strayDependencies, std::nullopt, 100,
                     RiskTier::reviewRequired),
        };
        // A summary that a recomputation would not give: it shows whether
        // apply() rebuilt it.
        input.summary = ScanSummary::from(input.items);
        input.summary.totalItems = 99;
        input.warnings = {"Skipped Mail: Full Disk Access required"};
        input.scannedCategories = {StorageCategory::developerCache, StorageCategory::xcodeArtifacts,
                                   StorageCategory::strayDependencies};
    }

    TempHome temp;
    FileURL homeURL;
    ScanResult input;
};

TEST_F(ScanTargetFilterApplyTest, PassThroughReturnsTheResultUnchanged) {
    ScanTargetFilter filter({}, {"", "relative"}, homeURL);
    ASSERT_TRUE(filter.isPassThrough());
    EXPECT_EQ(filter.apply(input), input);
}

TEST_F(ScanTargetFilterApplyTest, NothingDroppedReturnsTheResultUnchanged) {
    ScanTargetFilter filter({ScanTarget::homebrew, ScanTarget::browserCaches}, {"~/Documents"}, homeURL);
    ASSERT_FALSE(filter.isPassThrough());
    EXPECT_EQ(filter.apply(input), input);
}

TEST_F(ScanTargetFilterApplyTest, DroppedItemsGiveANewSummaryAndKeepTheRest) {
    ScanTargetFilter filter({ScanTarget::cargo}, {"~/Projects"}, homeURL);
    const ScanResult output = filter.apply(input);

    // cargo owns no category: developerCache stays, only its place and rules go.
    ASSERT_EQ(output.items.size(), 2u);
    EXPECT_EQ(output.items[0], input.items[1]);
    EXPECT_EQ(output.items[1], input.items[2]);
    EXPECT_EQ(output.summary, ScanSummary::from(output.items));
    EXPECT_EQ(output.summary.totalItems, 2);
    EXPECT_EQ(output.summary.totalAllocatedBytes, 500);
    EXPECT_EQ(output.summary.reviewUnbulkableBytes, 0);

    EXPECT_EQ(output.scanId, input.scanId);
    EXPECT_EQ(output.startedAt, input.startedAt);
    EXPECT_EQ(output.completedAt, input.completedAt);
    EXPECT_EQ(output.durationSeconds, input.durationSeconds);
    EXPECT_EQ(output.warnings, input.warnings);
    EXPECT_EQ(output.scannedCategories, input.scannedCategories);
}

} // namespace
} // namespace unbulk
