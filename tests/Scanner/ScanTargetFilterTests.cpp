#include "Scanner/ScanTargetFilter.hpp"

#include <optional>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/TempHome.hpp"

namespace unbulk {
namespace {

using C = StorageCategory;
using T = ScanTarget;
const std::string home = "/Users/dev";
const FileURL homeURL(home, true);

// The item keeps its path as given, for the filter to normalise.
DiscoveredItem makeItem(const std::string& path, C category, std::optional<std::string> ruleId = {}) {
    auto item = DiscoveredItem::make({.url = FileURL(path), .category = category, .logicalSizeBytes = 100,
                                      .allocatedSizeBytes = 100, .fileCount = 1, .itemDescription = "item",
                                      .ruleId = std::move(ruleId)});
    item.path = path;
    return item;
}

TEST(ScanTargetFilterTest, NormalisationTrimsExpandsStandardisesOrRefuses) {
    // Standardising itself is PathsTest's.
    const std::vector<std::pair<std::string, std::optional<std::string>>> cases{
        {"~", home}, {"~/", home}, {"  ~/Downloads/ \n", home + "/Downloads"}, {"\u00A0/opt/y\u2028", "/opt/y"},
        {"\t/tmp/x//\r\n", "/tmp/x"}, {"relative/x", std::nullopt}, {" \n\t ", std::nullopt}, {"~user/x", std::nullopt},
    };
    for (const auto& [in, expected] : cases) EXPECT_EQ(ScanTargetFilter::normalize(in, homeURL), expected) << in;
}

TEST(ScanTargetFilterTest, CategoriesToScanLeaveOutOwnedCategories) {
    EXPECT_EQ(ScanTargetFilter({T::cargo}, {}, homeURL, makeDefaultFileSystem()).categoriesToScan(), std::nullopt);
    CategorySet expected = allStorageCategorySet();
    expected.erase(C::dockerVM);
    EXPECT_EQ(ScanTargetFilter({T::dockerVM, T::cargo}, {}, homeURL, makeDefaultFileSystem()).categoriesToScan(), expected);
    for (C owned : {C::systemCaches, C::systemLogs, C::crashReports}) expected.erase(owned);
    EXPECT_EQ(ScanTargetFilter({T::dockerVM, T::systemCaches}, {}, homeURL, makeDefaultFileSystem()).categoriesToScan(), expected);
}

TEST(ScanTargetFilterTest, DisabledTargetByCategoryRuleIdPrefixOrPlaceBelowTheHome) {
    // disabled target, item path, category, rule id, claimed
    const std::vector<std::tuple<T, std::string, C, std::optional<std::string>, bool>> cases{
        {T::xcode, "/elsewhere/x", C::xcodeArtifacts, std::nullopt, true},
        {T::cargo, "/elsewhere/x", C::developerCache, "dev.cargo.registry", true},
        {T::systemCaches, "/elsewhere/x", C::dynamicRule, "sys.user.cachesX", true},
        {T::cargo, home + "/.cargo/registry/cache", C::developerCache, std::nullopt, true},
        {T::cargo, home + "/.cargo2", C::developerCache, std::nullopt, false},
        {T::xcode, home + "/Library/Developer/Tmp/../Xcode/DerivedData", C::developerCache, std::nullopt, true},
    };
    for (const auto& [disabled, path, category, ruleId, claimed] : cases) {
        const ScanTargetFilter filter({disabled}, {}, homeURL, makeDefaultFileSystem());
        const auto item = makeItem(path, category, ruleId);
        EXPECT_EQ(filter.disabledTarget(item), claimed ? std::optional(disabled) : std::nullopt) << path;
        EXPECT_EQ(filter.allows(item), !claimed) << path;
    }
}

TEST(ScanTargetFilterTest, ExclusionsWorkOnWholeComponentsAndThroughLinks) {
    testing::TempHome temp;
    const FileURL tempHome(temp.path(), true);
    temp.writeFile("real/data/file.bin", 10);
    temp.makeSymlink("link", temp.at("real"));
    const std::vector<std::tuple<std::string, std::string, bool>> cases{
        {"  ~/Projects/ ", temp.at("Projects/app/node_modules"), true},
        {"~/Projects", temp.at("ProjectsOld/app"), false},
        {"~/Projects", temp.path(), false},
        {"/", "/nowhere/at/all", true},
        {"/", "relative/path", false},
        // The resolved place of the item, or of the exclusion, counts as well.
        {"~/real", temp.at("link/data/file.bin"), true},
        {"~/link", temp.at("real/data/file.bin"), true},
    };
    for (const auto& [excluded, path, expected] : cases)
        EXPECT_EQ(ScanTargetFilter({}, {excluded}, tempHome, makeDefaultFileSystem()).isExcluded(path), expected) << excluded << " vs " << path;
}

TEST(ScanTargetFilterTest, ApplyRebuildsTheSummaryOnlyWhenItemsAreDropped) {
    // The summary is one no recomputation gives: it shows whether apply() rebuilt it.
    const ScanResult input{.scanId = Uuid::random(), .startedAt = Date{} + std::chrono::seconds(1000),
                           .completedAt = Date{} + std::chrono::seconds(1012), .durationSeconds = 12.5,
                           .items = {makeItem(home + "/.cargo/registry", C::developerCache, "dev.cargo.registry"),
                                     makeItem(home + "/.npm/_cacache", C::developerCache, "dev.npm.cache"),
                                     makeItem("/opt/cache/tool", C::dynamicRule, "dev.cargo.git"),
                                     makeItem(home + "/Projects/app/node_modules", C::strayDependencies)},
                           .summary = {.totalItems = 99}, .warnings = {"Skipped Mail: Full Disk Access required"},
                           .scannedCategories = {C::developerCache, C::strayDependencies}};
    EXPECT_EQ(ScanTargetFilter({}, {"", "relative"}, homeURL, makeDefaultFileSystem()).apply(input), input);
    EXPECT_EQ(ScanTargetFilter({T::homebrew}, {"~/Documents"}, homeURL, makeDefaultFileSystem()).apply(input), input);

    ScanResult expected = input;
    expected.items = {input.items[1]};
    expected.summary = ScanSummary::from(expected.items);
    EXPECT_EQ(ScanTargetFilter({T::cargo}, {"~/Projects"}, homeURL, makeDefaultFileSystem()).apply(input), expected);
}

} // namespace
} // namespace unbulk
