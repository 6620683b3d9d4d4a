#include <chrono>
#include <future>
#include <stdexcept>
#include <tuple>

#include <gtest/gtest.h>

#include "Scanner/DeepScanEngine.hpp"
#include "Scanner/ScanEventStream.hpp"
#include "Scanner/ThermalGovernor.hpp"

namespace unbulk {
namespace {

using namespace std::chrono;
using C = StorageCategory;
using R = RiskTier;

DiscoveredItem makeItem(const std::string& path, R tier, std::int64_t bytes, C category = C::developerCache) {
    return DiscoveredItem::make({.url = FileURL(path), .category = category, .riskTier = tier,
                                 .allocatedSizeBytes = bytes});
}

Date day(int n) { return Date{} + hours(24 * n); }

// Stub stages that record what reached them and hand back what the test set up. The developer stage reports each
// of its items as it goes.
struct DeepScanEngineTest : ::testing::Test {
    DeepScanEngine engine() {
        auto developer = [this](const CategorySet& asked, const ScanProgressHandler& progress, StopToken stop) {
            developerSaw = asked;
            if (progress) for (const auto& item : developerItems) progress(ScanProgress{.currentPath = item.path});
            developerAction(stop);
            return developerItems;
        };
        auto system = [this](const CategorySet& asked, const ScanProgressHandler&, StopToken stop) {
            systemSaw = asked;
            systemAction(stop);
            return systemOutput;
        };
        return DeepScanEngine({.homeURL = FileURL("/h", true), .thermalGovernor = governor, .clock = systemClock()}, {developer, system});
    }

    std::shared_ptr<ThermalGovernor> governor = ThermalGovernor::unrestricted(4);
    std::optional<CategorySet> developerSaw, systemSaw;
    std::vector<DiscoveredItem> developerItems;
    SystemScanOutput systemOutput;
    std::function<void(StopToken)> developerAction = [](StopToken) {}, systemAction = developerAction;
};

// The categories a scan lists, by raw value, are the command-line tests' (all
// sixteen, and DOCKER_VM alone).
TEST_F(DeepScanEngineTest, RoutesCategoriesToTheirStages) {
    const CategorySet dev{C::developerCache, C::aiModelWeights, C::dockerVM, C::xcodeArtifacts, C::strayDependencies};
    const CategorySet sys{C::systemCaches, C::systemLogs, C::crashReports, C::mailDownloads, C::browserCaches};
    // No list, or an empty one, is all of them.
    const struct { std::optional<CategorySet> asked, developer, system; } cases[] = {
        {std::nullopt, dev, sys},
        {CategorySet{}, dev, sys},
        {CategorySet{C::systemLogs, C::largeFiles, C::dockerVM}, CategorySet{C::dockerVM}, CategorySet{C::systemLogs}},
        {CategorySet{C::startupItems, C::leftovers}, std::nullopt, std::nullopt},
    };
    for (const auto& c : cases) {
        developerSaw = systemSaw = std::nullopt;
        engine().scan(c.asked);
        EXPECT_EQ(std::tie(developerSaw, systemSaw), std::tie(c.developer, c.system));
    }
}

TEST(DeepScanEngineDeduplicateTest, TheStricterOrLargerItemLeadsAndFieldsMergeOneByOne) {
    const struct { R existingTier, incomingTier; std::int64_t existingAllocated, incomingAllocated, allocated;
                   std::optional<std::string> incomingRule, rule; bool incomingLeads; } cases[] = {
        {R::safeToDelete, R::keep, 500, 100, 500, std::nullopt, "existing", true},           // higher tier arrives
        {R::reviewRequired, R::reviewRequired, 100, 200, 200, "incoming", "incoming", true}, // equal, larger arrives
        {R::reviewRequired, R::safeToDelete, 100, 500, 500, "incoming", "existing", false},  // higher tier stays
        {R::keep, R::keep, 100, 100, 100, "incoming", "existing", false},                    // all equal
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(&c - cases);
        const auto existing = DiscoveredItem::make(
            {.url = FileURL("/h/x"), .category = C::dockerVM, .riskTier = c.existingTier, .logicalSizeBytes = 900,
             .allocatedSizeBytes = c.existingAllocated, .fileCount = 2, .lastAccessedDate = day(1), .isOrphaned = true,
             .requiresFullDiskAccess = true, .itemDescription = "existing", .ruleId = "existing"});
        const auto incoming = DiscoveredItem::make(
            {.url = FileURL("/h/./y/../x/", true), .category = C::systemCaches, .riskTier = c.incomingTier,
             .logicalSizeBytes = 10, .allocatedSizeBytes = c.incomingAllocated, .fileCount = 7,
             .lastAccessedDate = day(5), .lastModifiedDate = day(3), .isLocked = true, .itemDescription = "incoming",
             .ruleId = c.incomingRule});
        const DiscoveredItem kept = DeepScanEngine::deduplicate({existing, incoming}).at(0);
        const DiscoveredItem& lead = c.incomingLeads ? incoming : existing;
        EXPECT_EQ(std::tie(kept.id, kept.url, kept.path, kept.category, kept.itemDescription, kept.riskTier),
                  std::tie(lead.id, lead.url, lead.path, lead.category, lead.itemDescription, lead.riskTier));
        EXPECT_EQ(std::tie(kept.allocatedSizeBytes, kept.ruleId), std::tie(c.allocated, c.rule));
        // Whichever side leads or comes first: sizes and counts the larger, dates the later of those present,
        // orphaned only if both are, locked or needing Full Disk Access if either is.
        for (const auto& m : {kept, DeepScanEngine::deduplicate({incoming, existing}).at(0)}) {
            EXPECT_EQ(std::tuple(m.logicalSizeBytes, m.fileCount, m.lastAccessedDate, m.lastModifiedDate, m.isOrphaned,
                                 m.isLocked, m.requiresFullDiskAccess),
                      std::tuple(900, 7, day(5), day(3), false, true, true));
        }
    }
    // Dates absent on both sides stay absent; orphaned on both sides stays orphaned.
    const auto orphan = DiscoveredItem::make({.url = FileURL("/h/z"), .isOrphaned = true});
    const auto merged = DeepScanEngine::deduplicate({orphan, orphan});
    EXPECT_TRUE(merged.at(0).isOrphaned && !merged[0].lastAccessedDate && !merged[0].lastModifiedDate);
}

TEST_F(DeepScanEngineTest, AFailingStageBecomesAWarningAndKeepsTheOthersButCancellationLeavesNoResult) {
    systemOutput = {{makeItem("/h/sys", R::safeToDelete, 2, C::systemLogs)}, {"Mail: permission denied"}};
    developerAction = [](StopToken) { throw std::runtime_error("disk on fire"); };
    const ScanResult result = engine().scan(std::nullopt);
    EXPECT_EQ(result.items, systemOutput.items);
    EXPECT_EQ(result.warnings,
              (std::vector<std::string>{"Developer targets scan error: disk on fire", "Mail: permission denied"}));

    developerAction = [](StopToken) {};
    systemAction = [](StopToken) { throw std::invalid_argument("logs unreadable"); };
    EXPECT_EQ(engine().scan(std::nullopt).warnings,
              std::vector<std::string>{"System targets scan error: logs unreadable"});

    // Cancellation inside a stage is no failure: it leaves no result.
    StopSource source;
    systemAction = [&](StopToken) { source.requestStop(); }; // and returns as if done, as the last stage
    EXPECT_THROW(engine().scan(std::nullopt, {}, source.token()), CancellationError);
    systemAction = [](StopToken) { throw CancellationError{}; };
    EXPECT_THROW(engine().scan(std::nullopt), CancellationError);
    EXPECT_EQ(governor->activePermits(), 0);

    // The stream rethrows it, then ends.
    auto stream = engine().scanStream(std::nullopt);
    EXPECT_THROW(stream.next(), CancellationError);
    EXPECT_FALSE(stream.next().has_value());
}

TEST_F(DeepScanEngineTest, StreamGivesProgressThenMergedItemsInResultOrderThenTheResultAndDroppingItCancels) {
    developerItems = {makeItem("/h/a", R::safeToDelete, 10), makeItem("/h/b", R::safeToDelete, 50)};
    systemOutput.items = {makeItem("/h/./a", R::keep, 5, C::systemCaches), makeItem("/h/c", R::reviewRequired, 20)};
    auto stream = engine().scanStream(std::nullopt);
    std::vector<ScanProgressEvent> events;
    while (auto event = stream.next()) events.push_back(std::move(*event));
    ASSERT_EQ(events.size(), 2u + 3u + 1u);
    for (int i : {0, 1}) EXPECT_EQ(std::get<ScanProgress>(events[i]).currentPath, developerItems[i].path);
    const auto& result = std::get<ScanResult>(events[5]);
    // Largest first, the two /h/a merged into the last.
    EXPECT_EQ(result.items[0], developerItems[1]);
    EXPECT_EQ(result.items[1], systemOutput.items[1]);
    for (std::size_t i = 0; i < 3; ++i) EXPECT_EQ(std::get<DiscoveredItem>(events[2 + i]), result.items[i]);

    // Dropping the stream cancels a blocked stage, and the later stage never runs.
    systemSaw.reset();
    std::promise<void> started;
    bool sawStop = false; // read after the stream's thread has been joined
    // A stage that waits for its stop token, as a long walk would; ten seconds at most, so a lost stop fails.
    developerAction = [&](StopToken stop) {
        started.set_value();
        for (int i = 0; i < 10'000 && !stop.stopRequested(); ++i) std::this_thread::sleep_for(1ms);
        sawStop = stop.stopRequested();
    };
    {
        auto dropped = engine().scanStream(std::nullopt);
        ASSERT_EQ(started.get_future().wait_for(30s), std::future_status::ready);
    } // the destructor requests stop and waits for the scan
    EXPECT_TRUE(sawStop);
    EXPECT_FALSE(systemSaw.has_value());
}

} // namespace
} // namespace unbulk
