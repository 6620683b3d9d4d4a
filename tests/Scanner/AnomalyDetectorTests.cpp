#include <filesystem>
#include <fstream>
#include <map>

#include <gtest/gtest.h>

#include <fmt/format.h>

#include "Rules/CacheDirTagDetector.hpp"
#include "Rules/RuleRegistry.hpp"
#include "Scanner/AnomalyDetector.hpp"
#include "support/TempHome.hpp"

namespace unbulk {
namespace {

using testing::TempHome;
using C = StorageCategory;
using R = RiskTier;

constexpr std::int64_t MiB = 1024 * 1024;
const std::string sha1Name = "0123456789abcdef0123456789abcdef01234567";

struct AnomalyDetectorTest : ::testing::Test {
    std::vector<StorageAnomaly> detect(std::int64_t minSizeBytes = 1, int depth = 2,
                                       std::optional<std::vector<FileURL>> roots = std::nullopt) {
        auto config = AnomalyDetectorConfiguration::make(minSizeBytes, depth, homeURL, std::move(roots));
        return AnomalyDetector(config, registry, fileSystem).detectAnomalies();
    }
    std::vector<std::string> paths(const std::vector<StorageAnomaly>& anomalies) {
        std::vector<std::string> out;
        for (const auto& anomaly : anomalies)
            out.push_back(anomaly.path);
        return out;
    }
    // `count` small files in a directory below the home, named by `name(i)`.
    void fill(const std::string& directory, int count, const std::function<std::string(int)>& name) {
        for (int i = 0; i < count; ++i)
            home.writeFile(directory + "/" + name(i), "x");
    }
    void tag(const std::string& directory, std::optional<std::string> application) {
        CacheDirTagDetector::writeTag(fileSystem->fileURL(home.makeDirectory(directory)), application, *fileSystem);
    }

    TempHome home;
    FileURL homeURL{home.path(), true};
    std::shared_ptr<FileSystem> fileSystem = makeDefaultFileSystem();
    std::shared_ptr<RuleRegistry> registry = std::make_shared<RuleRegistry>(std::nullopt, homeURL, fileSystem);
};

TEST_F(AnomalyDetectorTest, DecidesByTagKeywordsHashNamesAndFileCount) {
    struct Row {
        std::string name;
        bool tagged, hashNames;
        int files;
        std::optional<double> confidence;
        R tier;
        C category;
    };
    const std::vector<Row> rows{
        {"photos", true, false, 1, 1.0, R::safeToDelete, C::developerCache},
        {"wheel-cache", false, true, 501, 0.95, R::safeToDelete, C::unknownAnomaly},
        {"wheel-cache", false, true, 3, 0.8999999999999999, R::safeToDelete, C::unknownAnomaly},
        {"tmp", false, false, 501, 0.7499999999999999, R::safeToDelete, C::unknownAnomaly},
        {"tmp", false, false, 3, 0.6499999999999999, R::reviewRequired, C::unknownAnomaly},
        {"blobs", false, true, 501, 0.65, R::reviewRequired, C::unknownAnomaly},
        {"blobs", false, true, 3, 0.55, R::reviewRequired, C::unknownAnomaly},
        {"photos", false, false, 501, std::nullopt, R::keep, C::unknownAnomaly},
    };
    for (const auto& row : rows) {
        TempHome rowHome;
        homeURL = FileURL(rowHome.path(), true);
        registry = std::make_shared<RuleRegistry>(std::nullopt, homeURL, fileSystem);
        const std::string directory = ".cache/" + row.name;
        rowHome.makeDirectory(directory);
        if (row.tagged) CacheDirTagDetector::writeTag(fileSystem->fileURL(rowHome.at(directory)), "tool", *fileSystem);
        for (int i = 0; i < row.files; ++i) {
            const std::string file = row.hashNames ? fmt::format("{:040x}.blob", i) : fmt::format("file{}", i);
            rowHome.writeFile(directory + "/" + file, "x");
        }
        const auto found = detect();
        const std::string label =
            fmt::format("{} tagged={} hashed={} files={}", row.name, row.tagged, row.hashNames, row.files);
        if (!row.confidence) {
            EXPECT_TRUE(found.empty()) << label;
            continue;
        }
        ASSERT_EQ(found.size(), 1u) << label;
        EXPECT_EQ(found[0].confidenceScore, *row.confidence) << label;
        EXPECT_EQ(found[0].suggestedRiskTier, row.tier) << label;
        EXPECT_EQ(found[0].suggestedCategory, row.category) << label;
        EXPECT_EQ(found[0].hasCacheDirTag, row.tagged) << label;
        EXPECT_EQ(found[0].proposedRule->isRegenerable, row.tagged) << label;
    }
}

TEST_F(AnomalyDetectorTest, DescribesTaggedAndHeuristicFindsInTheirOwnWords) {
    tag(".cache/Tagged", "Bazel");
    tag(".cache/Bare", std::nullopt);
    fill(".cache/Downloads", 2, [](int i) { return std::to_string(i); });
    fill(".cache/objects", 2, [](int i) { return fmt::format("{:064x}", i); });
    fill(".cache/Outlook Data", 2, [](int i) { return std::to_string(i); });
    std::map<std::string, StorageAnomaly> byName;
    for (auto& anomaly : detect())
        byName[anomaly.url.lastComponent()] = anomaly;

    EXPECT_EQ(byName["Tagged"].anomalyDescription, "Authoritative cache tagged with CACHEDIR.TAG standard (This file "
                                                   "is a cache directory tag created by Bazel.).");
    EXPECT_EQ(byName["Tagged"].tagApplicationComment, "This file is a cache directory tag created by Bazel.");
    EXPECT_EQ(byName["Bare"].anomalyDescription, "Authoritative cache tagged with CACHEDIR.TAG standard (bare).");
    EXPECT_EQ(byName["Downloads"].matchedKeywords, (std::vector<std::string>{"download", "downloads"}));
    EXPECT_EQ(byName["Downloads"].anomalyDescription,
              "Untracked heavy storage directory matching cache heuristics (keywords: download, downloads).");
    EXPECT_EQ(byName["objects"].anomalyDescription,
              "Untracked heavy storage directory matching cache heuristics (keywords: ).");
    EXPECT_EQ(byName["Outlook Data"].matchedKeywords, std::vector<std::string>{"out"}); // a substring counts
}

TEST_F(AnomalyDetectorTest, ExactlyFiveHundredFilesIsNotBig) {
    fill(".cache/cache-500", 500, [](int i) { return fmt::format("{:032x}", i); });
    fill(".cache/cache-501", 501, [](int i) { return fmt::format("{:032x}", i); });
    std::map<std::string, double> confidence;
    for (const auto& anomaly : detect())
        confidence[anomaly.url.lastComponent()] = anomaly.confidenceScore;
    EXPECT_EQ(confidence["cache-500"], 0.8999999999999999);
    EXPECT_EQ(confidence["cache-501"], 0.95);
}

TEST_F(AnomalyDetectorTest, OnlyTheFirstTwentyNamesAreLookedAtForHashes) {
    // Listing order is the file system's, so the store is made of 21 names of
    // which only one is a hash, and then of 20 of which one is.
    fill(".cache/photos", 20, [](int i) { return fmt::format("photo{}.jpg", i); });
    const auto plain = detect();
    home.writeFile(".cache/photos/" + sha1Name, "x");
    std::error_code error;
    const auto names = fileSystem->contentsOfDirectory(home.at(".cache/photos"), {}, error);
    const bool hashAmongFirstTwenty = std::find_if(names.begin(), names.begin() + 20, [](const DirectoryEntry& e) {
                                          return e.name == sha1Name;
                                      }) != names.begin() + 20;
    EXPECT_TRUE(plain.empty());
    EXPECT_EQ(detect().size(), hashAmongFirstTwenty ? 1u : 0u);
}

TEST_F(AnomalyDetectorTest, SizeBelowTheMinimumYieldsNothingEvenWithATag) {
    tag(".cache/small", "tool");
    home.allocateFile(".cache/small/blob", 99 * MiB);
    tag(".cache/large", "tool");
    home.allocateFile(".cache/large/blob", 101 * MiB);
    EXPECT_EQ(paths(detect(100 * MiB)), std::vector<std::string>{home.at(".cache/large")});
}

TEST_F(AnomalyDetectorTest, MeasuresHiddenFilesAndNotLinks) {
    home.allocateFile(".cache/cache/.hidden/blob", 2 * MiB);
    home.makeSymlink(".cache/cache/link", home.allocateFile("elsewhere/big", 8 * MiB));
    const auto found = detect();
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ(found[0].allocatedSizeBytes, 2 * MiB);
    EXPECT_EQ(found[0].logicalSizeBytes, 2 * MiB);
    EXPECT_EQ(found[0].fileCount, 1);
}

TEST_F(AnomalyDetectorTest, NestedFindsKeepOnlyTheOutermostAndResultsRunLargestFirst) {
    tag(".cache/outer", "tool");
    home.allocateFile(".cache/outer/a", 1 * MiB);
    tag(".cache/outer/inner", "tool");
    home.allocateFile(".cache/outer/inner/b", 1 * MiB);
    home.allocateFile("Developer/build/c", 3 * MiB);
    EXPECT_EQ(paths(detect()), (std::vector<std::string>{home.at("Developer/build"), home.at(".cache/outer")}));
}

TEST_F(AnomalyDetectorTest, WhatTheCatalogAlreadyCoversIsNoAnomaly) {
    home.writeFile("Library/Caches/SomeApp/tmp/file", "x"); // the user caches rule covers it
    home.writeFile("Library/Application Support/SomeApp/tmp/file", "x");
    EXPECT_EQ(paths(detect()), std::vector<std::string>{home.at("Library/Application Support/SomeApp/tmp")});
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

TEST_F(AnomalyDetectorTest, AnEnabledRuleCoversADirectoryAndADisabledOneDoesNot) {
    home.writeFile(".cache/toolcache/file", "x");
    RuleDefinition rule{.id = "custom.tool", .name = "Tool", .description = "d", .patterns = {"~/.cache/toolcache/**"}};
    registry->registerRule(rule);
    EXPECT_TRUE(detect().empty());
    registry->setRuleEnabled("custom.tool", false);
    EXPECT_EQ(paths(detect()), std::vector<std::string>{home.at(".cache/toolcache")});
}

TEST_F(AnomalyDetectorTest, ProposesARuleForTheDirectoryThroughTheHome) {
    home.writeFile(".cache/My Cache (2)!/file", "x");
    const auto found = detect();
    ASSERT_EQ(found.size(), 1u);
    const RuleDefinition& rule = *found[0].proposedRule;
    EXPECT_EQ(rule.id, "dynamic.anomaly.my-cache-2");
    EXPECT_EQ(rule.name, "Untracked Cache (My Cache (2)!)");
    EXPECT_EQ(rule.description, "Synthesized cleanup rule for uncataloged directory at ~/.cache/My Cache (2)!/**.");
    EXPECT_EQ(rule.patterns, std::vector<std::string>{"~/.cache/My Cache (2)!/**"});
    EXPECT_EQ(rule.category, C::unknownAnomaly);
    EXPECT_EQ(rule.riskTier, R::reviewRequired);
    EXPECT_TRUE(rule.excludedPatterns.empty());
    EXPECT_FALSE(rule.isBuiltIn);
    EXPECT_TRUE(rule.enabled);
    EXPECT_EQ(rule.synthesizedBy, "anomaly_detector");
    EXPECT_TRUE(rule.createdAt && rule.createdAt == rule.updatedAt);
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
        {"My Cache (2)!", "my-cache-2"},
        {"node_modules.cache", "node_modules.cache"},
        {"--Leading and trailing--", "leading-and-trailing"},
        {"v1.2.-", "v1.2"},
        {"ÜBER Größe", "über-größe"},
        {"日本語 キャッシュ", "日本語-キャッシュ"},
        {"a\xff"
         "b",
         "a-b"},
        {"!!!", "untracked"},
        {"", "untracked"},
    };
    for (const auto& [text, slug] : rows)
        EXPECT_EQ(AnomalyDetector::sanitizeSlug(text), slug) << text;
}

TEST(StorageAnomalyTest, JsonFormAndScanItem) {
    StorageAnomaly anomaly = StorageAnomaly::make({
        .id = *Uuid::parse("E621E1F8-C36C-495A-93FC-0C247A3E6E5F"),
        .url = FileURL("/h/.cache/tmp", true),
        .allocatedSizeBytes = 4096,
        .logicalSizeBytes = 10,
        .fileCount = 2,
        .confidenceScore = 0.8999999999999999,
        .matchedKeywords = {"tmp"},
        .suggestedRiskTier = R::safeToDelete,
        .anomalyDescription = "d",
        .proposedRule = RuleDefinition{.id = "dynamic.anomaly.tmp", .createdAt = Date{}},
    });
    const Json json = toJson(anomaly);
    EXPECT_EQ(json["path"], "/h/.cache/tmp");
    EXPECT_EQ(json["url"], "file:///h/.cache/tmp/");
    EXPECT_EQ(json["suggestedRiskTier"], "SAFE_TO_DELETE");
    EXPECT_EQ(json["suggestedCategory"], "UNKNOWN_ANOMALY");
    EXPECT_FALSE(json.contains("tagApplicationComment"));
    EXPECT_EQ(json["proposedRule"]["createdAt"], -978307200.0);
    EXPECT_NE(json.dump().find("\"confidenceScore\":0.8999999999999999"), std::string::npos);

    const DiscoveredItem item = anomaly.toDiscoveredItem();
    EXPECT_EQ(item.id, anomaly.id);
    EXPECT_EQ(item.path, "/h/.cache/tmp");
    EXPECT_EQ(item.category, C::unknownAnomaly);
    EXPECT_EQ(item.riskTier, R::safeToDelete);
    EXPECT_EQ(item.allocatedSizeBytes, 4096);
    EXPECT_EQ(item.fileCount, 2);
    EXPECT_TRUE(item.isOrphaned);
    EXPECT_FALSE(item.lastModifiedDate);
    EXPECT_EQ(item.itemDescription, "d");
    EXPECT_EQ(item.ruleId, "dynamic.anomaly.tmp");
}

} // namespace
} // namespace unbulk
