#include <map>
#include <stdexcept>
#include <tuple>

#include <gtest/gtest.h>

#include "Rules/RuleRegistry.hpp"
#include "Scanner/DeepScanEngine.hpp"
#include "Scanner/ThermalGovernor.hpp"
#include "support/ForwardingFileSystem.hpp"
#include "support/TempHome.hpp"

namespace unbulk {
namespace {

using testing::TempHome;
using C = StorageCategory;
using R = RiskTier;

constexpr std::int64_t MiB = 1024 * 1024;

// An engine over a temporary home with a real registry, and stub developer
// and system stages that only record that they ran.
struct RegistryStagesTest : ::testing::Test {
    DeepScanEngine engine(std::shared_ptr<FileSystem> files = nullptr) {
        auto developer = [this](const CategorySet&, const ScanProgressHandler&, StopToken) {
            developerRan = true;
            return std::vector<DiscoveredItem>{};
        };
        auto system = [this](const CategorySet&, const ScanProgressHandler&, StopToken) {
            systemRan = true;
            return SystemScanOutput{};
        };
        return DeepScanEngine({.homeURL = homeURL, .fileSystem = files ? files : fileSystem, .ruleRegistry = registry,
                               .thermalGovernor = ThermalGovernor::unrestricted(2), .clock = systemClock()},
                              {developer, system});
    }
    void addRule(const std::string& id, C category, std::vector<std::string> patterns,
                 std::vector<std::string> excluded = {}) {
        registry->registerRule({.id = id, .name = "Rule " + id, .description = "about " + id, .category = category,
                                .riskTier = R::reviewRequired, .patterns = std::move(patterns),
                                .excludedPatterns = std::move(excluded)});
    }

    TempHome home;
    FileURL homeURL{home.path(), true};
    std::shared_ptr<FileSystem> fileSystem = makeDefaultFileSystem();
    std::shared_ptr<RuleRegistry> registry = std::make_shared<RuleRegistry>(std::nullopt, homeURL, fileSystem, systemClock());
    bool developerRan = false, systemRan = false;
};

TEST_F(RegistryStagesTest, AnomaliesAloneRunTheAnomalyStageAndTheRuleStageOnThatCategory) {
    home.allocateFile(".cache/modelcache/blob", 101 * MiB);
    home.writeFile("stuff/a", "x");
    home.writeFile("other/b", "x");
    addRule("custom.stuff", C::unknownAnomaly, {"~/stuff/**"});
    addRule("custom.other", C::developerCache, {"~/other/**"});

    const ScanResult result = engine().scan(CategorySet{C::unknownAnomaly});
    EXPECT_FALSE(developerRan || systemRan);
    EXPECT_TRUE(result.warnings.empty());
    std::map<std::string, DiscoveredItem> items;
    for (const auto& item : result.items) items[item.ruleId.value_or("")] = item;
    ASSERT_EQ(items.size(), 2u);
    const DiscoveredItem& anomaly = items.at("dynamic.anomaly.modelcache");
    EXPECT_EQ(std::tuple(anomaly.path, anomaly.category, anomaly.allocatedSizeBytes, anomaly.isOrphaned,
                         anomaly.lastModifiedDate.has_value()),
              std::tuple(home.at(".cache/modelcache"), C::unknownAnomaly, 101 * MiB, true, false));
    EXPECT_EQ(items.at("custom.stuff").path, home.at("stuff"));
}

TEST_F(RegistryStagesTest, TheAnomalyStageRunsOnlyForAnomaliesOrDynamicRules) {
    home.allocateFile(".cache/modelcache/blob", 101 * MiB);
    for (const auto& [categories, runs] : std::vector<std::pair<CategorySet, bool>>{
             {{C::unknownAnomaly}, true}, {{C::dynamicRule}, true}, {{C::developerCache, C::systemCaches}, false}}) {
        bool anomalyFound = false;
        for (const auto& item : engine().scan(categories).items)
            anomalyFound = anomalyFound || item.ruleId == "dynamic.anomaly.modelcache";
        EXPECT_EQ(anomalyFound, runs) << ::testing::PrintToString(categories);
    }
}

TEST_F(RegistryStagesTest, BuiltInRulesTheTargetsServeAreLeftToThemAndTheOthersResolveOnDisk) {
    home.writeFile(".npm/_cacache/index", "npm");
    home.writeFile("go/pkg/mod/cache/download/x", "go module");
    std::vector<ScanProgress> reports;
    const ScanResult result =
        engine().scan(CategorySet{C::developerCache}, [&](const ScanProgress& p) { reports.push_back(p); });

    ASSERT_EQ(result.items.size(), 1u);
    const DiscoveredItem& item = result.items[0];
    EXPECT_EQ(std::tuple(item.ruleId, item.itemDescription, item.path, item.logicalSizeBytes, item.fileCount,
                         item.lastModifiedDate.has_value(), item.isOrphaned),
              std::tuple("dev.go.cache", "Go Module & Build Cache", home.at("go/pkg/mod/cache"), 9, 1, true, false));
    EXPECT_EQ(reports, (std::vector{ScanProgress{.currentCategory = C::developerCache, .currentPath = item.path,
                                                 .itemsFound = 1, .totalAllocatedBytesScanned = item.allocatedSizeBytes,
                                                 .totalLogicalBytesScanned = 9}}));
}

TEST_F(RegistryStagesTest, ExcludedPathsAndRulesOfOtherCategoriesGiveNothing) {
    home.writeFile("proj/app/out/x", "x");
    home.writeFile("proj/keep/out/x", "x");
    addRule("custom.out", C::dynamicRule, {"~/proj/*/out"}, {"~/proj/keep/**"});
    addRule("custom.logs", C::systemLogs, {"~/proj/**"});
    const ScanResult result = engine().scan(CategorySet{C::dynamicRule});
    ASSERT_EQ(result.items.size(), 1u);
    const DiscoveredItem& item = result.items[0];
    EXPECT_EQ(std::tuple(item.path, item.itemDescription, item.riskTier),
              std::tuple(home.at("proj/app/out"), "Rule custom.out", R::reviewRequired));
}

TEST_F(RegistryStagesTest, AFailingStageBecomesItsWarningLine) {
    struct BrokenWalks : testing::ForwardingFileSystem {
        void walk(const std::string&, const WalkOptions&, const WalkCallbacks&) const override {
            throw std::runtime_error("disk on fire");
        }
    };
    home.writeFile(".cache/tmp/x", "x");
    home.writeFile("stuff/a", "x");
    addRule("custom.stuff", C::dynamicRule, {"~/stuff/**"});
    const ScanResult result = engine(std::make_shared<BrokenWalks>()).scan(CategorySet{C::dynamicRule});
    EXPECT_EQ(result.warnings,
              (std::vector<std::string>{"Anomaly scan error: disk on fire", "Dynamic rules scan error: disk on fire"}));
    EXPECT_TRUE(result.items.empty());
}

TEST_F(RegistryStagesTest, AStopDuringTheRuleStageEndsTheScanWithoutAResult) {
    home.writeFile("a/x", "x");
    home.writeFile("b/x", "x");
    addRule("custom.a", C::dynamicRule, {"~/a/**"});
    addRule("custom.b", C::dynamicRule, {"~/b/**"});
    StopSource source;
    int reported = 0;
    auto stopAtFirst = [&](const ScanProgress&) { ++reported; source.requestStop(); };
    EXPECT_THROW(engine().scan(CategorySet{C::dynamicRule}, stopAtFirst, source.token()), CancellationError);
    EXPECT_EQ(reported, 1);
}

} // namespace
} // namespace unbulk
