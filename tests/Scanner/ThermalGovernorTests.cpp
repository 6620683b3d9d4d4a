#include <atomic>
#include <chrono>
#include <future>
#include <stdexcept>
#include <vector>

#include <gtest/gtest.h>

#include "Scanner/ThermalGovernor.hpp"

namespace unbulk {
namespace {

using namespace std::chrono_literals;
using T = ThermalState;
using P = ConcurrencyProfile;

// Polls for up to ten seconds, so that a loaded machine is slow rather than failing.
template <typename Condition> bool eventually(Condition condition) {
    for (int i = 0; i < 10'000 && !condition(); ++i) std::this_thread::sleep_for(1ms);
    return condition();
}

// Room for threads just started to reach the point where they wait. Used only for checks that something has NOT
// happened, and for the order of arrival.
void settle() { std::this_thread::sleep_for(60ms); }

// Runs work on a thread of its own. The work holds what it uses by value and the thread is detached, so that work a
// faulty governor never lets finish fails the test instead of hanging it.
template <typename Work> std::future<void> spawn(Work work) {
    std::packaged_task<void()> task(std::move(work));
    auto future = task.get_future();
    std::thread(std::move(task)).detach();
    return future;
}

bool finishes(std::future<void>& work) { return work.wait_for(10s) == std::future_status::ready; }

// Conditions set by the test. A thermal state set after construction is announced on the update stream, which
// never ends by itself.
struct FakeConditions : ThermalStateProviding, PowerSourceProviding, std::enable_shared_from_this<FakeConditions> {
    FakeConditions(bool ac, std::optional<double> percent = 90.0, bool lowPowerMode = false, T state = T::nominal)
        : onAC(ac), lowPower(lowPowerMode), battery(percent), initial(state), thermal(state) {}
    bool isACPowered() const override { return onAC; }
    std::optional<double> batteryPercentage() const override { return battery; }
    bool isLowPowerModeEnabled() const override { return lowPower; }
    ThermalState thermalState() const override { return thermal; }
    std::unique_ptr<ThermalStateUpdates> thermalStateUpdates() override {
        struct Updates final : ThermalStateUpdates {
            explicit Updates(std::shared_ptr<FakeConditions> conditions) : fake(std::move(conditions)) {}
            std::optional<ThermalState> next(StopToken stop) override {
                for (; !stop.stopRequested(); std::this_thread::sleep_for(1ms))
                    if (fake->thermal != last) return last = fake->thermal;
                return std::nullopt;
            }
            std::shared_ptr<FakeConditions> fake;
            ThermalState last = fake->initial;
        };
        return std::make_unique<Updates>(shared_from_this());
    }

    const bool onAC, lowPower;
    const std::optional<double> battery;
    const ThermalState initial;
    std::atomic<ThermalState> thermal;
};

constexpr const char* criticalReason = "Thermal condition is CRITICAL. Scanning paused.";
constexpr const char* seriousReason = "Thermal condition is SERIOUS. Single-task crawling active.";
constexpr const char* acReason = "Nominal thermal state on AC power. Maximum concurrency enabled.";

P profile(T t, const FakeConditions& power, int p = 8) { return ThermalGovernor::calculateProfile(t, power, p); }

TEST(ThermalGovernorProfile, ProcessorCountsRulesInOrderAndTheirReasons) {
    const struct { int processors, fair, battery, ac; } rows[] = {
        {1, 1, 1, 1}, {2, 1, 1, 2}, {7, 1, 3, 7}, {8, 2, 4, 8}, {64, 16, 4, 16}};
    const auto tasks = [](T t, bool ac, int p) { return profile(t, {ac}, p).maxParallelTasks; };
    for (const auto& [p, fair, battery, ac] : rows) {
        EXPECT_EQ((std::vector{tasks(T::fair, true, p), tasks(T::nominal, false, p), tasks(T::nominal, true, p)}),
                  (std::vector{fair, battery, ac})) << p << " processors";
    }
    EXPECT_EQ(profile(T::critical, {true, 100.0, true}), (P{0, 0, true, criticalReason}));
    EXPECT_EQ(profile(T::fair, {true, 5.0, true}), (P{1, 3, false, "Low Power Mode active."}));
    EXPECT_EQ(profile(T::serious, {false, 20.0}), (P{1, 3, false, "Battery critically low (20%)."}));
    EXPECT_EQ(profile(T::fair, {false, 19.9}), (P{1, 3, false, "Battery critically low (19%)."}));
    EXPECT_EQ(profile(T::nominal, {false, 20.1}),
              (P{4, 0, false, "Running on battery power (20%). Moderate concurrency."}));
    EXPECT_EQ(profile(T::nominal, {true, 5.0}), (P{8, 0, false, acReason}));
    EXPECT_EQ(profile(T::fair, {true, 5.0}), (P{2, 1, false, "Thermal condition is FAIR. Throttled concurrency."}));
    EXPECT_EQ(profile(T::serious, {true, 5.0}), (P{1, 5, false, seriousReason}));
    // Unrestricted is the AC profile, at least one task and at most sixteen.
    EXPECT_EQ(ThermalGovernor::unrestricted(0)->currentProfile(), (P{1, 0, false, acReason}));
    EXPECT_EQ(ThermalGovernor::unrestricted(64)->currentProfile(), (P{16, 0, false, acReason}));
}

struct Gate { std::atomic<bool> entered{false}, released{false}; };

// Asks for a permit on a thread of its own, holds it until the gate is released, and lets the asking settle, so
// that the order of the calls is the order of arrival.
std::shared_ptr<Gate> hold(const std::shared_ptr<ThermalGovernor>& governor) {
    auto gate = std::make_shared<Gate>();
    spawn([governor, gate] {
        governor->withPermit([&] { for (gate->entered = true; !gate->released;) std::this_thread::sleep_for(1ms); });
    });
    settle();
    return gate;
}

struct ThermalGovernorTest : ::testing::Test {
    std::shared_ptr<ThermalGovernor> makeGovernor(T initial, int processors) {
        conditions = std::make_shared<FakeConditions>(true, 90.0, false, initial);
        return ThermalGovernor::make(conditions, conditions, processors);
    }
    // Changes the state through the stream and waits for the observer to apply it.
    void pushAndWait(ThermalGovernor& governor, T state, const char* reason) {
        conditions->thermal = state;
        ASSERT_TRUE(eventually([&] { return governor.currentProfile().reason == reason; })) << reason;
    }
    std::shared_ptr<FakeConditions> conditions;
};

TEST_F(ThermalGovernorTest, CriticalParksAllWhenItPassesPermitsGoFirstComeFirstServedAndAFallRevokesNothing) {
    auto governor = makeGovernor(T::critical, 2);
    std::vector<std::shared_ptr<Gate>> gates;
    for (int i = 0; i < 4; ++i) gates.push_back(hold(governor));
    std::vector<std::future<void>> parked;
    for (int i = 0; i < 4; ++i) parked.push_back(spawn([governor] { governor->checkpoint(); }));
    settle();
    for (auto& task : parked) EXPECT_EQ(task.wait_for(0s), std::future_status::timeout);
    // Nominal on AC with two processors: every checkpoint goes on, and two permits go to the first two to come.
    pushAndWait(*governor, T::nominal, acReason);
    for (auto& task : parked) EXPECT_TRUE(finishes(task));
    ASSERT_TRUE(eventually([&] { return gates[0]->entered && gates[1]->entered; }));
    settle();
    EXPECT_FALSE(gates[2]->entered || gates[3]->entered);

    // Serious allows one: both holders keep theirs, and one given back leaves no room yet.
    pushAndWait(*governor, T::serious, seriousReason);
    EXPECT_EQ(governor->activePermits(), 2);
    gates[1]->released = true;
    ASSERT_TRUE(eventually([&] { return governor->activePermits() == 1; }));
    settle();
    EXPECT_FALSE(gates[2]->entered) << "entered with one permit held under a limit of 1";
    // The next one given back goes to the longest waiting.
    gates[0]->released = true;
    ASSERT_TRUE(eventually([&] { return gates[2]->entered.load(); }));
    settle();
    EXPECT_FALSE(gates[3]->entered);
    for (auto& gate : gates) gate->released = true;
    EXPECT_TRUE(eventually([&] { return gates[3]->entered && governor->activePermits() == 0; }));
}

TEST_F(ThermalGovernorTest, StopEndsAPacedCrawlNeitherStopNorFailureKeepsAPermitAndDroppingEndsTheObserver) {
    auto governor = makeGovernor(T::serious, 4); // paced
    // Nearly all of this loop's time is spent in the pacing sleep, where the stop lands.
    StopSource source;
    auto crawl = spawn([governor, stop = source.token()] { for (;;) governor->checkpoint(stop); });
    settle();
    source.requestStop();
    ASSERT_TRUE(finishes(crawl));
    EXPECT_THROW(crawl.get(), CancellationError);

    // A stopped token fails before any work or wait, even a pause; a failing operation gives its permit back.
    EXPECT_THROW(governor->withPermit([] {}, source.token()), CancellationError);
    EXPECT_THROW(governor->withPermit([]() -> int { throw std::runtime_error("failed"); }), std::runtime_error);
    EXPECT_EQ(governor->activePermits(), 0);
    pushAndWait(*governor, T::critical, criticalReason);
    auto parked = spawn([governor, stop = source.token()] { governor->checkpoint(stop); });
    ASSERT_TRUE(finishes(parked)) << "a stopped checkpoint waited for the pause to end";
    EXPECT_THROW(parked.get(), CancellationError);

    // Nothing else keeps the governor, and dropping it ends the observer, whose stream never ends.
    ASSERT_TRUE(eventually([&] { return governor.use_count() == 1; }));
    auto destroyer = spawn([last = std::move(governor)]() mutable { last.reset(); });
    EXPECT_TRUE(finishes(destroyer)) << "destroying the governor hangs";
}

} // namespace
} // namespace unbulk
