#include <atomic>
#include <chrono>
#include <condition_variable>
#include <future>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Scanner/DeepScanEngine.hpp"
#include "Scanner/ScanEventStream.hpp"
#include "Scanner/ThermalGovernor.hpp"
#include "Support/Cancellation.hpp"

namespace unbulk {
namespace {

using namespace std::chrono;
using namespace std::chrono_literals;

DiscoveredItem::Fields fields(const std::string& path, RiskTier tier, std::int64_t allocated,
                              StorageCategory category = StorageCategory::developerCache, bool isDirectory = true) {
    DiscoveredItem::Fields f;
    f.url = FileURL(path, isDirectory);
    f.category = category;
    f.riskTier = tier;
    f.logicalSizeBytes = allocated;
    f.allocatedSizeBytes = allocated;
    f.fileCount = 1;
    f.itemDescription = path;
    return f;
}

DiscoveredItem makeItem(const std::string& path, RiskTier tier, std::int64_t allocated,
                        StorageCategory category = StorageCategory::developerCache) {
    return DiscoveredItem::make(fields(path, tier, allocated, category));
}

ScanProgress report(StorageCategory category, std::string path, std::int64_t allocated = 0,
                    std::optional<double> fraction = {}) {
    ScanProgress p;
    p.currentCategory = category;
    p.currentPath = std::move(path);
    p.itemsFound = 1;
    p.totalAllocatedBytesScanned = allocated;
    p.totalLogicalBytesScanned = allocated * 2;
    p.fractionCompleted = fraction;
    return p;
}

std::vector<std::string> pathsOf(const std::vector<DiscoveredItem>& items) {
    std::vector<std::string> out;
    for (const auto& item : items) out.push_back(item.path);
    return out;
}

Date day(int n) { return Date{} + hours(24 * n); }

// Stub stages that record what reached them and hand back what a test set up.
struct StubStages {
    std::optional<CategorySet> developerSaw;
    std::optional<CategorySet> systemSaw;
    std::vector<DiscoveredItem> developerItems;
    SystemScanOutput systemOutput;
    std::vector<ScanProgress> developerReports;
    std::vector<ScanProgress> systemReports;
    std::function<void(std::stop_token)> developerAction = [](std::stop_token) {};
    std::function<void(std::stop_token)> systemAction = [](std::stop_token) {};

    // The stages reference this object; it must outlive the engine's scans.
    DeepScanEngine::Stages stages() {
        return {
            .developer =
                [this](const CategorySet& categories, const ScanProgressHandler& progress, std::stop_token stop) {
                    developerSaw = categories;
                    for (const auto& report : developerReports) progress(report);
                    developerAction(stop);
                    return developerItems;
                },
            .system =
                [this](const CategorySet& categories, const ScanProgressHandler& progress, std::stop_token stop) {
                    systemSaw = categories;
                    for (const auto& report : systemReports) progress(report);
                    systemAction(stop);
                    return systemOutput;
                },
        };
    }
};

class DeepScanEngineTest : public ::testing::Test {
protected:
    DeepScanEngine engine() {
        DeepScanEngine::Configuration configuration;
        configuration.homeURL = FileURL("/home/tester", true);
        configuration.thermalGovernor = governor;
        return DeepScanEngine(std::move(configuration), stubs.stages());
    }

    std::shared_ptr<ThermalGovernor> governor = ThermalGovernor::unrestricted(4);
    StubStages stubs;
};

// ---- routing ------------------------------------------------------------------

TEST_F(DeepScanEngineTest, RoutesCategoriesToTheirStages) {
    using C = StorageCategory;
    struct Case {
        const char* name;
        std::optional<CategorySet> asked;
        std::optional<CategorySet> developer;
        std::optional<CategorySet> system;
    };
    const CategorySet developerSet{C::developerCache, C::aiModelWeights, C::dockerVM, C::xcodeArtifacts,
                                   C::strayDependencies};
    const CategorySet systemSet{C::systemCaches, C::systemLogs, C::crashReports, C::mailDownloads, C::browserCaches};
    const std::vector<Case> cases{
        {"absent", std::nullopt, developerSet, systemSet},
        {"empty", CategorySet{}, developerSet, systemSet},
        {"mixed", CategorySet{C::dockerVM, C::systemLogs, C::largeFiles}, CategorySet{C::dockerVM},
         CategorySet{C::systemLogs}},
        {"developer only", CategorySet{C::developerCache, C::strayDependencies},
         CategorySet{C::developerCache, C::strayDependencies}, std::nullopt},
        {"system only", CategorySet{C::browserCaches}, std::nullopt, CategorySet{C::browserCaches}},
        {"no stage", CategorySet{C::largeFiles, C::applicationBundles, C::leftovers, C::startupItems, C::dynamicRule,
                                 C::unknownAnomaly},
         std::nullopt, std::nullopt},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        stubs.developerSaw.reset();
        stubs.systemSaw.reset();
        engine().scan(c.asked);
        EXPECT_EQ(stubs.developerSaw, c.developer);
        EXPECT_EQ(stubs.systemSaw, c.system);
    }
}

TEST_F(DeepScanEngineTest, ScannedCategoriesAreSortedByRawValue) {
    using C = StorageCategory;
    const std::vector<StorageCategory> allByRawValue{
        C::aiModelWeights, C::applicationBundles, C::browserCaches, C::crashReports,   C::developerCache,
        C::dockerVM,       C::dynamicRule,        C::largeFiles,    C::leftovers,      C::mailDownloads,
        C::startupItems,   C::strayDependencies,  C::systemCaches,  C::systemLogs,     C::unknownAnomaly,
        C::xcodeArtifacts};
    EXPECT_EQ(engine().scan(std::nullopt).scannedCategories, allByRawValue);
    EXPECT_EQ(engine().scan(CategorySet{}).scannedCategories, allByRawValue);
    EXPECT_EQ(engine().scan(CategorySet{C::xcodeArtifacts, C::largeFiles, C::aiModelWeights}).scannedCategories,
              (std::vector<StorageCategory>{C::aiModelWeights, C::largeFiles, C::xcodeArtifacts}));
}

TEST_F(DeepScanEngineTest, CategoriesWithoutAStageGiveAnEmptyResult) {
    const ScanResult result = engine().scan(CategorySet{StorageCategory::largeFiles});
    EXPECT_TRUE(result.items.empty());
    EXPECT_TRUE(result.warnings.empty());
    EXPECT_EQ(result.summary, ScanSummary{});
    EXPECT_EQ(result.scannedCategories, std::vector<StorageCategory>{StorageCategory::largeFiles});
    EXPECT_LE(result.startedAt, result.completedAt);
    EXPECT_GE(result.durationSeconds, 0.0);
}

// ---- results ------------------------------------------------------------------

TEST_F(DeepScanEngineTest, MergesAcrossStagesSortsAndSums) {
    stubs.developerItems = {makeItem("/h/a", RiskTier::safeToDelete, 10), makeItem("/h/b", RiskTier::safeToDelete, 30)};
    DiscoveredItem kept = makeItem("/h/./a", RiskTier::keep, 5, StorageCategory::systemCaches);
    stubs.systemOutput.items = {kept, makeItem("/h/c", RiskTier::reviewRequired, 20, StorageCategory::systemLogs)};

    const ScanResult result = engine().scan(std::nullopt);
    ASSERT_EQ(result.items.size(), 3u);
    EXPECT_EQ(pathsOf(result.items), (std::vector<std::string>{"/h/b", "/h/c", "/h/./a"}));
    const DiscoveredItem& merged = result.items[2];
    EXPECT_EQ(merged.id, kept.id);
    EXPECT_EQ(merged.category, StorageCategory::systemCaches);
    EXPECT_EQ(merged.riskTier, RiskTier::keep);
    EXPECT_EQ(merged.allocatedSizeBytes, 10);
    EXPECT_EQ(result.summary, ScanSummary::from(result.items));
    EXPECT_EQ(result.summary.totalAllocatedBytes, 60);
}

TEST_F(DeepScanEngineTest, StageFailuresBecomeWarningsInTheOrderTheyArose) {
    struct Case {
        const char* name;
        bool developerFails;
        bool systemFails;
        std::vector<std::string> paths;
        std::vector<std::string> warnings;
    };
    const std::vector<Case> cases{
        {"none", false, false, {"/h/sys", "/h/dev"}, {"Mail: permission denied", "Safari: permission denied"}},
        {"developer",
         true,
         false,
         {"/h/sys"},
         {"Developer targets scan error: disk on fire", "Mail: permission denied", "Safari: permission denied"}},
        {"system", false, true, {"/h/dev"}, {"System targets scan error: logs unreadable"}},
        {"both",
         true,
         true,
         {},
         {"Developer targets scan error: disk on fire", "System targets scan error: logs unreadable"}},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        stubs.developerItems = {makeItem("/h/dev", RiskTier::safeToDelete, 1)};
        stubs.systemOutput = {{makeItem("/h/sys", RiskTier::safeToDelete, 2, StorageCategory::systemLogs)},
                              {"Mail: permission denied", "Safari: permission denied"}};
        stubs.developerAction = [&](std::stop_token) {
            if (c.developerFails) throw std::runtime_error("disk on fire");
        };
        stubs.systemAction = [&](std::stop_token) {
            if (c.systemFails) throw std::invalid_argument("logs unreadable");
        };
        const ScanResult result = engine().scan(std::nullopt);
        EXPECT_EQ(pathsOf(result.items), c.paths);
        EXPECT_EQ(result.warnings, c.warnings);
        EXPECT_EQ(governor->activePermits(), 0);
    }
}

TEST_F(DeepScanEngineTest, ProgressReportsPassThroughUnchanged) {
    stubs.developerReports = {report(StorageCategory::dockerVM, "/h/Docker.raw", 4096)};
    stubs.systemReports = {report(StorageCategory::crashReports, "/h/a.ips"),
                           report(StorageCategory::systemLogs, "/h/b.log", 7, 0.5)};
    std::vector<ScanProgress> seen;
    engine().scan(std::nullopt, [&](const ScanProgress& progress) { seen.push_back(progress); });
    std::vector<ScanProgress> expected = stubs.developerReports;
    expected.insert(expected.end(), stubs.systemReports.begin(), stubs.systemReports.end());
    EXPECT_EQ(seen, expected);
}

// ---- cancellation -------------------------------------------------------------

TEST_F(DeepScanEngineTest, CancellationFromAStageEndsTheScanWithoutResult) {
    struct Case {
        const char* name;
        std::optional<CategorySet> categories;
        bool developerCancels; // else the system stage cancels
        bool stageThrows;      // else it requests stop and returns normally
        bool systemShouldRun;
    };
    const std::vector<Case> cases{
        {"developer throws", std::nullopt, true, true, false},
        {"system throws", std::nullopt, false, true, true},
        {"stop requested in the developer stage", std::nullopt, true, false, false},
        {"stop requested in the last stage", std::nullopt, false, false, true},
        {"stop requested in the only stage", CategorySet{StorageCategory::dockerVM}, true, false, false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        std::stop_source source;
        bool systemRan = false;
        auto cancel = [&](std::stop_token) {
            if (c.stageThrows) throw CancellationError{};
            source.request_stop();
        };
        stubs.developerItems = {makeItem("/h/dev", RiskTier::safeToDelete, 1)};
        stubs.developerAction = c.developerCancels ? std::function<void(std::stop_token)>(cancel)
                                                   : [](std::stop_token) {};
        stubs.systemAction = [&](std::stop_token stop) {
            systemRan = true;
            if (!c.developerCancels) cancel(stop);
        };
        EXPECT_THROW(engine().scan(c.categories, {}, source.get_token()), CancellationError);
        EXPECT_EQ(systemRan, c.systemShouldRun);
        EXPECT_EQ(governor->activePermits(), 0);
    }
}

TEST_F(DeepScanEngineTest, StopRequestedBeforehandRunsNoStage) {
    std::stop_source source;
    source.request_stop();
    EXPECT_THROW(engine().scan(std::nullopt, {}, source.get_token()), CancellationError);
    EXPECT_FALSE(stubs.developerSaw.has_value());
    EXPECT_FALSE(stubs.systemSaw.has_value());
}

// ---- deduplicate --------------------------------------------------------------

TEST(DeepScanEngineDeduplicateTest, PrimaryIsTheHigherTierThenTheLargerThenTheExisting) {
    struct Case {
        const char* name;
        RiskTier firstTier;
        std::int64_t firstAllocated;
        RiskTier secondTier;
        std::int64_t secondAllocated;
        bool secondIsPrimary;
    };
    const std::vector<Case> cases{
        {"higher tier arrives", RiskTier::safeToDelete, 500, RiskTier::keep, 100, true},
        {"higher tier stays", RiskTier::reviewRequired, 100, RiskTier::safeToDelete, 500, false},
        {"equal tiers, larger arrives", RiskTier::reviewRequired, 100, RiskTier::reviewRequired, 200, true},
        {"equal tiers, larger stays", RiskTier::keep, 200, RiskTier::keep, 100, false},
        {"equal both", RiskTier::safeToDelete, 100, RiskTier::safeToDelete, 100, false},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        auto firstFields = fields("/h/x", c.firstTier, c.firstAllocated);
        firstFields.itemDescription = "first";
        auto secondFields = fields("/h/x/", c.secondTier, c.secondAllocated, StorageCategory::systemCaches, false);
        secondFields.itemDescription = "second";
        const DiscoveredItem first = DiscoveredItem::make(firstFields);
        const DiscoveredItem second = DiscoveredItem::make(secondFields);
        const auto merged = DeepScanEngine::deduplicate({first, second});
        ASSERT_EQ(merged.size(), 1u);
        const DiscoveredItem& primary = c.secondIsPrimary ? second : first;
        EXPECT_EQ(merged[0].id, primary.id);
        EXPECT_EQ(merged[0].url, primary.url);
        EXPECT_EQ(merged[0].category, primary.category);
        EXPECT_EQ(merged[0].itemDescription, primary.itemDescription);
        EXPECT_EQ(merged[0].riskTier, std::max(c.firstTier, c.secondTier));
        EXPECT_EQ(merged[0].allocatedSizeBytes, std::max(c.firstAllocated, c.secondAllocated));
    }
}

TEST(DeepScanEngineDeduplicateTest, FieldsMergeOneByOne) {
    auto p = fields("/a/b/../c", RiskTier::keep, 500, StorageCategory::dockerVM);
    p.logicalSizeBytes = 10;
    p.fileCount = 2;
    p.lastAccessedDate = day(1);
    p.isOrphaned = true;
    p.requiresFullDiskAccess = true;
    auto o = fields("/a/c", RiskTier::safeToDelete, 100);
    o.logicalSizeBytes = 900;
    o.fileCount = 7;
    o.lastAccessedDate = day(5);
    o.lastModifiedDate = day(3);
    o.isLocked = true;
    o.ruleId = "dev.docker.cache";
    const DiscoveredItem primary = DiscoveredItem::make(p);
    const DiscoveredItem other = DiscoveredItem::make(o);
    for (const auto& input : {std::vector{primary, other}, std::vector{other, primary}}) {
        const auto merged = DeepScanEngine::deduplicate(input);
        ASSERT_EQ(merged.size(), 1u);
        const DiscoveredItem& m = merged[0];
        EXPECT_EQ(m.id, primary.id);
        EXPECT_EQ(m.path, "/a/b/../c");
        EXPECT_EQ(m.path, m.url.path());
        EXPECT_EQ(m.logicalSizeBytes, 900);
        EXPECT_EQ(m.allocatedSizeBytes, 500);
        EXPECT_EQ(m.fileCount, 7);
        EXPECT_EQ(m.lastAccessedDate, day(5));  // the later one, though the secondary's
        EXPECT_EQ(m.lastModifiedDate, day(3));  // present on one side only
        EXPECT_FALSE(m.isOrphaned);
        EXPECT_TRUE(m.isLocked);
        EXPECT_TRUE(m.requiresFullDiskAccess);
        EXPECT_EQ(m.ruleId, "dev.docker.cache"); // the primary has none
    }
}

TEST(DeepScanEngineDeduplicateTest, PrimaryKeepsItsRuleIdAndAbsentDatesStayAbsent) {
    auto first = fields("/x//y/", RiskTier::reviewRequired, 2);
    first.isOrphaned = true;
    first.ruleId = "user.first";
    auto second = fields("/x/y", RiskTier::reviewRequired, 1);
    second.isOrphaned = true;
    second.ruleId = "user.second";
    const auto merged = DeepScanEngine::deduplicate({DiscoveredItem::make(first), DiscoveredItem::make(second)});
    ASSERT_EQ(merged.size(), 1u);
    EXPECT_EQ(merged[0].ruleId, "user.first");
    EXPECT_TRUE(merged[0].isOrphaned);
    EXPECT_FALSE(merged[0].isLocked);
    EXPECT_FALSE(merged[0].requiresFullDiskAccess);
    EXPECT_FALSE(merged[0].lastAccessedDate.has_value());
    EXPECT_FALSE(merged[0].lastModifiedDate.has_value());
}

TEST(DeepScanEngineDeduplicateTest, KeysAreStandardisedPathsAndOrderIsBySizeAfterMerging) {
    const auto result = DeepScanEngine::deduplicate({
        makeItem("/p", RiskTier::keep, 10),
        makeItem("/q", RiskTier::safeToDelete, 50),
        makeItem("/pp", RiskTier::safeToDelete, 70), // a sibling, not the same path
        makeItem("/r/./s/../", RiskTier::safeToDelete, 5),
        makeItem("/p", RiskTier::safeToDelete, 100),
        makeItem("//r", RiskTier::safeToDelete, 60),
    });
    // /p keeps its keep item but takes the larger size, which moves it first.
    EXPECT_EQ(pathsOf(result), (std::vector<std::string>{"/p", "/pp", "//r", "/q"}));
    EXPECT_EQ(result[0].riskTier, RiskTier::keep);
    EXPECT_EQ(result[0].allocatedSizeBytes, 100);
    EXPECT_EQ(result[2].allocatedSizeBytes, 60);
    EXPECT_TRUE(DeepScanEngine::deduplicate({}).empty());
}

// ---- scanStream ---------------------------------------------------------------

std::vector<ScanProgressEvent> drain(ScanEventStream& stream) {
    std::vector<ScanProgressEvent> events;
    while (auto event = stream.next()) events.push_back(std::move(*event));
    return events;
}

TEST_F(DeepScanEngineTest, StreamGivesProgressThenFinalItemsThenTheResult) {
    stubs.developerReports = {report(StorageCategory::developerCache, "/h/a", 10),
                              report(StorageCategory::xcodeArtifacts, "/h/b", 5)};
    stubs.systemReports = {report(StorageCategory::systemCaches, "/h/a", 1)};
    stubs.developerItems = {makeItem("/h/a", RiskTier::safeToDelete, 10), makeItem("/h/b", RiskTier::safeToDelete, 5)};
    stubs.systemOutput.items = {makeItem("/h/a", RiskTier::keep, 1, StorageCategory::systemCaches),
                                makeItem("/h/c", RiskTier::safeToDelete, 7, StorageCategory::systemCaches)};

    auto stream = engine().scanStream(std::nullopt);
    const auto events = drain(stream);
    ASSERT_EQ(events.size(), 3u + 3u + 1u);
    std::vector<ScanProgress> expectedReports = stubs.developerReports;
    expectedReports.push_back(stubs.systemReports[0]);
    for (std::size_t i = 0; i < 3; ++i) {
        ASSERT_TRUE(std::holds_alternative<ScanProgress>(events[i])) << i;
        EXPECT_EQ(std::get<ScanProgress>(events[i]), expectedReports[i]);
    }
    ASSERT_TRUE(std::holds_alternative<ScanResult>(events[6]));
    const auto& result = std::get<ScanResult>(events[6]);
    ASSERT_EQ(result.items.size(), 3u);
    for (std::size_t i = 0; i < 3; ++i) {
        ASSERT_TRUE(std::holds_alternative<DiscoveredItem>(events[3 + i])) << i;
        EXPECT_EQ(std::get<DiscoveredItem>(events[3 + i]), result.items[i]);
    }
    EXPECT_EQ(pathsOf(result.items), (std::vector<std::string>{"/h/a", "/h/c", "/h/b"}));
    EXPECT_EQ(result.items[0].riskTier, RiskTier::keep);
    EXPECT_FALSE(stream.next().has_value());
}

TEST_F(DeepScanEngineTest, StreamRethrowsCancellationAfterWhatCameBefore) {
    stubs.developerReports = {report(StorageCategory::dockerVM, "/h/d", 3)};
    stubs.developerAction = [](std::stop_token) { throw CancellationError{}; };
    auto stream = engine().scanStream(CategorySet{StorageCategory::dockerVM, StorageCategory::systemLogs});
    auto first = stream.next();
    ASSERT_TRUE(first.has_value());
    EXPECT_EQ(std::get<ScanProgress>(*first), stubs.developerReports[0]);
    EXPECT_THROW(stream.next(), CancellationError);
    EXPECT_FALSE(stream.next().has_value());
    EXPECT_FALSE(stubs.systemSaw.has_value());
}

// A stage that blocks until its stop token fires, as a long walk would.
struct BlockingStage {
    std::promise<void> started;
    std::atomic<bool> sawStop{false};

    void run(std::stop_token stop) {
        std::mutex mutex;
        std::condition_variable_any wake;
        started.set_value();
        std::unique_lock lock(mutex);
        wake.wait(lock, stop, [] { return false; });
        sawStop = stop.stop_requested();
        throwIfCancelled(stop);
    }
};

TEST_F(DeepScanEngineTest, DroppingTheStreamCancelsABlockedStage) {
    BlockingStage blocking;
    stubs.developerAction = [&](std::stop_token stop) { blocking.run(stop); };
    auto started = blocking.started.get_future();
    {
        auto stream = engine().scanStream(std::nullopt);
        ASSERT_EQ(started.wait_for(30s), std::future_status::ready);
    } // the destructor requests stop and waits for the scan
    EXPECT_TRUE(blocking.sawStop);
    EXPECT_FALSE(stubs.systemSaw.has_value());
    EXPECT_EQ(governor->activePermits(), 0);
}

TEST_F(DeepScanEngineTest, CancellingTheStreamEndsItWithCancellation) {
    BlockingStage blocking;
    stubs.developerAction = [&](std::stop_token stop) { blocking.run(stop); };
    auto started = blocking.started.get_future();
    auto stream = engine().scanStream(std::nullopt);
    ASSERT_EQ(started.wait_for(30s), std::future_status::ready);
    stream.cancel();
    EXPECT_THROW(drain(stream), CancellationError);
    EXPECT_TRUE(blocking.sawStop);
}

} // namespace
} // namespace unbulk
