#include <algorithm>
#include <filesystem>
#include <fstream>
#include <map>
#include <ranges>

#include <gtest/gtest.h>

#include <fmt/format.h>

#include "Rules/CacheDirTagDetector.hpp"
#include "Rules/RuleRegistry.hpp"
#include "Scanner/AnomalyDetector.hpp"
#include "support/ForwardingFileSystem.hpp"
#include "support/TempHome.hpp"

namespace unbulk {
namespace {

using testing::TempHome;
using C = StorageCategory;
using R = RiskTier;

constexpr std::int64_t MiB = 1024 * 1024;

struct AnomalyDetectorTest : ::testing::Test {
    std::vector<StorageAnomaly> detect(std::int64_t minSizeBytes = 1, int depth = 2,
                                       std::optional<std::vector<FileURL>> roots = std::nullopt) {
        auto config = AnomalyDetectorConfiguration::make(minSizeBytes, depth, homeURL, std::move(roots));
        return AnomalyDetector(config, registry, fileSystem, systemClock()).detectAnomalies();
    }
    static std::vector<std::string> paths(const std::vector<StorageAnomaly>& anomalies) {
        const auto view = anomalies | std::views::transform(&StorageAnomaly::path);
        return {view.begin(), view.end()};
    }
    void tag(const std::string& directory, std::optional<std::string> application) {
        CacheDirTagDetector::writeTag(fileSystem->fileURL(home.makeDirectory(directory)), application, *fileSystem);
    }

    TempHome home;
    FileURL homeURL{home.path(), true};
    std::shared_ptr<FileSystem> fileSystem = makeDefaultFileSystem();
    std::shared_ptr<RuleRegistry> registry = std::make_shared<RuleRegistry>(std::nullopt, homeURL, fileSystem, systemClock());
};

TEST_F(AnomalyDetectorTest, DecidesByTagKeywordsHashNamesAndFileCount) {
    const struct { std::string name; bool tagged, hashNames; int files; std::optional<double> confidence; R tier;
                   C category; } rows[] = {
        {"photos", true, false, 1, 1.0, R::safeToDelete, C::developerCache},
        {"wheel-cache", false, true, 501, 0.95, R::safeToDelete, C::unknownAnomaly},
        {"wheel-cache", false, true, 500, 0.8999999999999999, R::safeToDelete, C::unknownAnomaly}, // not big yet
        {"tmp", false, false, 501, 0.7499999999999999, R::safeToDelete, C::unknownAnomaly},
        {"tmp", false, false, 3, 0.6499999999999999, R::reviewRequired, C::unknownAnomaly},
        {"blobs", false, true, 501, 0.65, R::reviewRequired, C::unknownAnomaly},
        {"blobs", false, true, 3, 0.55, R::reviewRequired, C::unknownAnomaly},
        {"photos", false, false, 501, std::nullopt, R::keep, C::unknownAnomaly},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(fmt::format("{} tagged={} hashed={} files={}", row.name, row.tagged, row.hashNames, row.files));
        TempHome rowHome;
        homeURL = FileURL(rowHome.path(), true);
        registry = std::make_shared<RuleRegistry>(std::nullopt, homeURL, fileSystem, systemClock());
        const std::string directory = rowHome.makeDirectory(".cache/" + row.name);
        if (row.tagged) CacheDirTagDetector::writeTag(fileSystem->fileURL(directory), "tool", *fileSystem);
        for (int i = 0; i < row.files; ++i)
            rowHome.writeFile(".cache/" + row.name + "/" +
                                  (row.hashNames ? fmt::format("{:040x}.blob", i) : fmt::format("file{}", i)), "x");
        const auto found = detect();
        ASSERT_EQ(found.size(), row.confidence ? 1u : 0u);
        if (!row.confidence) continue;
        const StorageAnomaly& a = found[0];
        EXPECT_EQ(std::tuple(a.confidenceScore, a.suggestedRiskTier, a.suggestedCategory, a.hasCacheDirTag,
                             a.proposedRule->isRegenerable),
                  std::tuple(*row.confidence, row.tier, row.category, row.tagged, row.tagged));
    }
}


// What a person reads about a find: the tag's comment, or the keywords matched.
TEST_F(AnomalyDetectorTest, DescribesEachFindByItsTagOrItsKeywords) {
    tag(".cache/tagged", "tool");
    tag(".cache/PhotoStore", std::nullopt);
    home.writeFile(".cache/Downloads/file", "x");
    home.writeFile(".cache/objects/" + std::string(64, 'a'), "x");
    std::map<std::string, std::tuple<std::string, std::optional<std::string>, std::vector<std::string>>> found;
    for (const auto& a : detect())
        found[a.url.lastComponent()] = {a.anomalyDescription, a.tagApplicationComment, a.matchedKeywords};
    using Keywords = std::vector<std::string>;
    const std::string comment = "This file is a cache directory tag created by tool.";
    EXPECT_EQ(found, (decltype(found){
                         {"tagged", {"Authoritative cache tagged with CACHEDIR.TAG standard (" + comment + ").",
                                     comment, Keywords{}}},
                         {"PhotoStore", {"Authoritative cache tagged with CACHEDIR.TAG standard (photostore).",
                                         std::nullopt, Keywords{}}},
                         {"Downloads", {"Untracked heavy storage directory matching cache heuristics (keywords: "
                                        "download, downloads).",
                                        std::nullopt, Keywords{"download", "downloads"}}},
                         {"objects", {"Untracked heavy storage directory matching cache heuristics (keywords: ).",
                                      std::nullopt, Keywords{}}},
                     }));
}

// Lists a directory in name order, so that a test can say which names come first.
struct SortedListing final : testing::ForwardingFileSystem {
    std::vector<DirectoryEntry> contentsOfDirectory(const std::string& path, ListOptions options,
                                                    PlatformError& error) const override {
        auto entries = ForwardingFileSystem::contentsOfDirectory(path, options, error);
        std::ranges::sort(entries, {}, &DirectoryEntry::name);
        return entries;
    }
};

TEST_F(AnomalyDetectorTest, OnlyTheFirstTwentyNamesAreLookedAtForHashes) {
    fileSystem = std::make_shared<SortedListing>();
    for (const int others : {19, 20}) {
        SCOPED_TRACE(others);
        TempHome rowHome;
        homeURL = FileURL(rowHome.path(), true);
        registry = std::make_shared<RuleRegistry>(std::nullopt, homeURL, fileSystem, systemClock());
        for (int i = 0; i < others; ++i) rowHome.writeFile(fmt::format(".cache/blobs/a{:02}", i), "x");
        rowHome.writeFile(".cache/blobs/" + std::string(40, 'f') + ".bin", "x"); // listed last
        EXPECT_EQ(detect().size(), others < 20 ? 1u : 0u);
    }
}

TEST_F(AnomalyDetectorTest, SizeBelowTheMinimumYieldsNothingEvenWithATag) {
    tag(".cache/small", "tool");
    home.allocateFile(".cache/small/blob", 99 * MiB);
    tag(".cache/large", "tool");
    home.allocateFile(".cache/large/blob", 101 * MiB);
    EXPECT_EQ(paths(detect(100 * MiB)), std::vector<std::string>{home.at(".cache/large")});
}


TEST_F(AnomalyDetectorTest, NestedFindsKeepOnlyTheOutermostAndResultsRunLargestFirst) {
    tag(".cache/outer", "tool");
    home.allocateFile(".cache/outer/a", 1 * MiB);
    tag(".cache/outer/inner", "tool");
    home.allocateFile(".cache/outer/inner/b", 1 * MiB);
    home.allocateFile("Developer/build/c", 3 * MiB);
    EXPECT_EQ(paths(detect()), (std::vector<std::string>{home.at("Developer/build"), home.at(".cache/outer")}));
}

TEST_F(AnomalyDetectorTest, OverlappingRootsReportADirectoryOnce) {
    home.writeFile("Developer/Projects/tmp/file", "x");
    const std::vector<FileURL> roots{FileURL(home.at("Developer/Projects"), true), FileURL(home.at("Developer"), true)};
    EXPECT_EQ(paths(detect(1, 2, roots)), std::vector<std::string>{home.at("Developer/Projects/tmp")});
}

TEST_F(AnomalyDetectorTest, SearchesTwoLevelsAtMostAndSkipsHiddenEntriesAndLinks) {
    home.writeFile("Projects/app/cache/file", "x");     // depth 2: found
    home.writeFile("Projects/a/b/cache/file", "x");     // depth 3: never looked at
    home.writeFile("Projects/.hidden/cache/file", "x"); // below a hidden directory
    home.writeFile("Projects/x/.cache/file", "x");      // hidden itself
    home.writeFile("elsewhere/tmp/file", "x");
    home.makeSymlink("Projects/linked", home.at("elsewhere"));
    home.makeSymlink("Projects/y/tmp", home.at("elsewhere/tmp"));
    EXPECT_EQ(paths(detect(1, 7)), std::vector<std::string>{home.at("Projects/app/cache")});
    EXPECT_TRUE(detect(1, 1).empty());
    EXPECT_TRUE(detect(1, 0).empty());
}

TEST_F(AnomalyDetectorTest, WhatAnEnabledRuleCoversIsNoAnomaly) {
    home.writeFile("Library/Caches/SomeApp/tmp/file", "x"); // the built-in user caches rule covers it
    home.writeFile("Library/Application Support/SomeApp/tmp/file", "x");
    home.writeFile(".cache/toolcache/file", "x");
    registry->registerRule({.id = "custom.tool", .name = "Tool", .patterns = {"~/.cache/toolcache/**"}});
    const std::string support = home.at("Library/Application Support/SomeApp/tmp");
    EXPECT_EQ(paths(detect()), std::vector<std::string>{support});
    registry->setRuleEnabled("custom.tool", false);
    auto found = paths(detect());
    std::ranges::sort(found);
    EXPECT_EQ(found, (std::vector<std::string>{home.at(".cache/toolcache"), support}));
}

TEST_F(AnomalyDetectorTest, ProposesARuleForTheDirectoryThroughTheHome) {
    home.writeFile(".cache/My Cache (2)!/file", "x");
    const auto found = detect();
    ASSERT_EQ(found.size(), 1u);
    const RuleDefinition& rule = *found[0].proposedRule;
    EXPECT_TRUE(rule.createdAt && rule.createdAt == rule.updatedAt);
    const RuleDefinition expected{
        .id = "dynamic.anomaly.my-cache-2", .name = "Untracked Cache (My Cache (2)!)",
        .description = "Synthesized cleanup rule for uncataloged directory at ~/.cache/My Cache (2)!/**.",
        .category = C::unknownAnomaly, .riskTier = R::reviewRequired, .patterns = {"~/.cache/My Cache (2)!/**"},
        .synthesizedBy = "anomaly_detector", .createdAt = rule.createdAt, .updatedAt = rule.updatedAt};
    EXPECT_EQ(rule, expected);
}

TEST_F(AnomalyDetectorTest, APathOutsideTheHomeKeepsItsAbsoluteFormOrIsRefused) {
    const std::string outside = home.root() + "/srv-data";
    std::filesystem::create_directories(outside + "/tmp");
    std::ofstream(outside + "/tmp/file") << "x";
    const auto found = detect(1, 2, std::vector<FileURL>{FileURL(outside, true)});
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ(found[0].proposedRule->patterns, std::vector<std::string>{outside + "/tmp/**"});

    // Inside a protected place the sandbox refuses the rule, and without a
    // rule there is no anomaly, however cache-like the name.
    home.writeFile("Documents/tmp/file", "x");
    EXPECT_TRUE(detect(1, 2, std::vector<FileURL>{FileURL(home.at("Documents"), true)}).empty());
}

TEST(AnomalyDetectorSlugTest, KeepsLettersDigitsDotsAndUnderscoresAndFoldsTheRest) {
    const std::vector<std::pair<std::string, std::string>> rows{
        {"My Cache (2)!", "my-cache-2"}, {"node_modules.cache", "node_modules.cache"}, {"v1.2.-", "v1.2"},
        {"ÜBER Größe", "über-größe"}, {"a\xff" "b", "a-b"},
        {"日本語 キャッシュ", "日本語-キャッシュ"}, {"!!!", "untracked"}, {"", "untracked"}};
    for (const auto& [text, slug] : rows) EXPECT_EQ(AnomalyDetector::sanitizeSlug(text), slug) << text;
}


} // namespace
} // namespace unbulk
