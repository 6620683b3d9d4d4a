#include <algorithm>
#include <atomic>
#include <chrono>
#include <condition_variable>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "Scanner/ThermalGovernor.hpp"

namespace unbulk {
namespace {

using namespace std::chrono_literals;

// Polls until the condition holds; generous, so that a loaded machine is
// slow rather than failing.
bool eventually(const std::function<bool()>& condition, std::chrono::milliseconds timeout = 10s) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > deadline) return false;
        std::this_thread::sleep_for(1ms);
    }
    return true;
}

// Room for threads that were just started to reach the point where they wait.
// Used only where nothing outside the governor shows that they got there, and
// only for checks that something has NOT happened, or for the order of arrival.
void settle() { std::this_thread::sleep_for(60ms); }

// A thermal provider whose update stream the test feeds. All streams share one
// channel, so a value pushed before the observer subscribes is not lost.
class FakeThermalProvider final : public ThermalStateProviding {
public:
    explicit FakeThermalProvider(ThermalState initial) : channel_(std::make_shared<Channel>()) {
        channel_->state = initial;
    }

    ThermalState thermalState() const override {
        std::lock_guard lock(channel_->mutex);
        return channel_->state;
    }

    std::unique_ptr<ThermalStateUpdates> thermalStateUpdates() override {
        return std::make_unique<Stream>(channel_);
    }

    // Changes the state and announces the change on the stream.
    void push(ThermalState state) {
        {
            std::lock_guard lock(channel_->mutex);
            channel_->state = state;
            channel_->values.push_back(state);
        }
        channel_->changed.notify_all();
    }

    void finish() {
        {
            std::lock_guard lock(channel_->mutex);
            channel_->finished = true;
        }
        channel_->changed.notify_all();
    }

    int streamsOpened() const { return channel_->opened.load(); }
    int streamsOpen() const { return channel_->open.load(); }

private:
    struct Channel {
        mutable std::mutex mutex;
        std::condition_variable_any changed;
        ThermalState state = ThermalState::nominal;
        std::deque<ThermalState> values;
        bool finished = false;
        std::atomic<int> opened{0};
        std::atomic<int> open{0};
    };

    class Stream final : public ThermalStateUpdates {
    public:
        explicit Stream(std::shared_ptr<Channel> channel) : channel_(std::move(channel)) {
            ++channel_->opened;
            ++channel_->open;
        }
        ~Stream() override { --channel_->open; }

        std::optional<ThermalState> next(std::stop_token stop) override {
            std::unique_lock lock(channel_->mutex);
            channel_->changed.wait(lock, stop, [&] { return channel_->finished || !channel_->values.empty(); });
            if (stop.stop_requested() || channel_->values.empty()) return std::nullopt;
            ThermalState value = channel_->values.front();
            channel_->values.pop_front();
            return value;
        }

    private:
        std::shared_ptr<Channel> channel_;
    };

    std::shared_ptr<Channel> channel_;
};

class FakePowerProvider final : public PowerSourceProviding {
public:
    FakePowerProvider(bool onAC = true, std::optional<double> battery = std::nullopt, bool lowPower = false)
        : onAC_(onAC), battery_(battery), lowPower_(lowPower) {}

    bool isACPowered() const override {
        ++questions;
        return onAC_.load();
    }
    std::optional<double> batteryPercentage() const override {
        ++questions;
        std::lock_guard lock(mutex_);
        return battery_;
    }
    bool isLowPowerModeEnabled() const override {
        ++questions;
        return lowPower_.load();
    }

    void setLowPower(bool on) { lowPower_ = on; }

    mutable std::atomic<int> questions{0};

private:
    std::atomic<bool> onAC_;
    mutable std::mutex mutex_;
    std::optional<double> battery_;
    std::atomic<bool> lowPower_;
};

constexpr const char* criticalReason = "Thermal condition is CRITICAL. Scanning paused.";
constexpr const char* lowPowerReason = "Low Power Mode active.";
constexpr const char* fairReason = "Thermal condition is FAIR. Throttled concurrency.";
constexpr const char* seriousReason = "Thermal condition is SERIOUS. Single-task crawling active.";
constexpr const char* acReason = "Nominal thermal state on AC power. Maximum concurrency enabled.";

// ---------------------------------------------------------------------------
// The profile table

struct ProcessorRow {
    int processors;
    int fair;
    int battery;
    int ac;
};

TEST(ThermalGovernorProfile, ConcurrencyFollowsTheProcessorCount) {
    const ProcessorRow rows[] = {
        {1, 1, 1, 1}, {2, 1, 1, 2}, {7, 1, 3, 7}, {8, 2, 4, 8}, {64, 16, 4, 16},
    };
    for (const ProcessorRow& row : rows) {
        SCOPED_TRACE(row.processors);
        const FakePowerProvider ac(true, 90.0);
        const FakePowerProvider battery(false, 90.0);
        EXPECT_EQ(ThermalGovernor::calculateProfile(ThermalState::fair, ac, row.processors),
                  (ConcurrencyProfile{row.fair, 1, false, fairReason}));
        EXPECT_EQ(ThermalGovernor::calculateProfile(ThermalState::nominal, battery, row.processors),
                  (ConcurrencyProfile{row.battery, 0, false, "Running on battery power (90%). Moderate concurrency."}));
        EXPECT_EQ(ThermalGovernor::calculateProfile(ThermalState::nominal, ac, row.processors),
                  (ConcurrencyProfile{row.ac, 0, false, acReason}));
    }
}

struct PrecedenceCase {
    const char* name;
    ThermalState thermal;
    bool onAC;
    std::optional<double> battery;
    bool lowPower;
    ConcurrencyProfile expected;
};

TEST(ThermalGovernorProfile, TheFirstRuleThatHoldsDecides) {
    const PrecedenceCase cases[] = {
        {"critical beats AC and low power", ThermalState::critical, true, 100.0, true, {0, 0, true, criticalReason}},
        {"critical on a low battery", ThermalState::critical, false, 3.0, false, {0, 0, true, criticalReason}},
        {"low power beats fair", ThermalState::fair, true, std::nullopt, true, {1, 3, false, lowPowerReason}},
        {"low power beats serious", ThermalState::serious, false, 80.0, true, {1, 3, false, lowPowerReason}},
        {"low power beats a low battery", ThermalState::nominal, false, 5.0, true, {1, 3, false, lowPowerReason}},
        {"battery at exactly 20 is critically low", ThermalState::nominal, false, 20.0, false,
         {1, 3, false, "Battery critically low (20%)."}},
        {"battery at 20.1 is not", ThermalState::nominal, false, 20.1, false,
         {4, 0, false, "Running on battery power (20%). Moderate concurrency."}},
        {"the percent is truncated", ThermalState::nominal, false, 19.9, false,
         {1, 3, false, "Battery critically low (19%)."}},
        {"a low battery beats serious", ThermalState::serious, false, 12.0, false,
         {1, 3, false, "Battery critically low (12%)."}},
        {"a low battery beats fair", ThermalState::fair, false, 12.0, false,
         {1, 3, false, "Battery critically low (12%)."}},
        {"on AC a battery at 5 is not low", ThermalState::nominal, true, 5.0, false, {8, 0, false, acReason}},
        {"serious on AC", ThermalState::serious, true, 5.0, false, {1, 5, false, seriousReason}},
        {"no battery value on battery counts as 100", ThermalState::nominal, false, std::nullopt, false,
         {4, 0, false, "Running on battery power (100%). Moderate concurrency."}},
        {"battery text truncates", ThermalState::nominal, false, 55.99, false,
         {4, 0, false, "Running on battery power (55%). Moderate concurrency."}},
    };
    for (const PrecedenceCase& c : cases) {
        SCOPED_TRACE(c.name);
        const FakePowerProvider power(c.onAC, c.battery, c.lowPower);
        EXPECT_EQ(ThermalGovernor::calculateProfile(c.thermal, power, 8), c.expected);
    }
}

TEST(ThermalGovernorProfile, PowerIsNotAskedWhenCritical) {
    const FakePowerProvider power(false, 10.0, true);
    ThermalGovernor::calculateProfile(ThermalState::critical, power, 4);
    EXPECT_EQ(power.questions.load(), 0);
}

TEST(ThermalGovernorProfile, UnrestrictedIsTheACProfileCappedAtSixteen) {
    const struct {
        int processors;
        int expected;
    } rows[] = {{0, 1}, {1, 1}, {6, 6}, {16, 16}, {64, 16}};
    for (const auto& row : rows) {
        SCOPED_TRACE(row.processors);
        auto governor = ThermalGovernor::unrestricted(row.processors);
        EXPECT_EQ(governor->currentProfile(), (ConcurrencyProfile{row.expected, 0, false, acReason}));
    }
}

TEST(ThermalGovernorProfile, ConstructionReadsTheProvidersAndCountsAtLeastOneProcessor) {
    auto thermal = std::make_shared<FakeThermalProvider>(ThermalState::nominal);
    auto governor = ThermalGovernor::make(thermal, std::make_shared<FakePowerProvider>(true), 0);
    EXPECT_EQ(governor->currentProfile(), (ConcurrencyProfile{1, 0, false, acReason}));
}

TEST(ThermalGovernorProfile, PowerChangesWaitForTheNextUpdate) {
    auto thermal = std::make_shared<FakeThermalProvider>(ThermalState::nominal);
    auto power = std::make_shared<FakePowerProvider>(true);
    auto governor = ThermalGovernor::make(thermal, power, 4);
    power->setLowPower(true);
    EXPECT_EQ(governor->currentProfile().reason, acReason);
    governor->updateThermalConditions();
    EXPECT_EQ(governor->currentProfile(), (ConcurrencyProfile{1, 3, false, lowPowerReason}));
}

// ---------------------------------------------------------------------------
// Pausing, permits and the observer

class ThermalGovernorTest : public ::testing::Test {
protected:
    std::shared_ptr<ThermalGovernor> makeGovernor(ThermalState initial, int processors) {
        thermal = std::make_shared<FakeThermalProvider>(initial);
        return ThermalGovernor::make(thermal, power, processors);
    }

    // Pushes a state through the stream and waits for the observer to apply it.
    void pushAndWait(ThermalGovernor& governor, ThermalState state, const char* reason) {
        thermal->push(state);
        ASSERT_TRUE(eventually([&] { return governor.currentProfile().reason == reason; })) << reason;
    }

    std::shared_ptr<FakeThermalProvider> thermal;
    std::shared_ptr<FakePowerProvider> power = std::make_shared<FakePowerProvider>(true);
};

// Work on a thread of its own. The work holds what it uses by value, so that
// when a faulty governor never lets it finish, the thread can be let go and
// the test fails instead of hanging.
class BackgroundTask {
public:
    explicit BackgroundTask(std::function<void()> work) : state_(std::make_shared<State>()) {
        thread_ = std::thread([state = state_, work = std::move(work)] {
            state->started = true;
            try {
                work();
            } catch (const CancellationError&) {
                state->cancelled = true;
            } catch (...) {
            }
            state->done = true;
        });
    }
    ~BackgroundTask() {
        if (eventually([&] { return done(); })) {
            thread_.join();
        } else {
            thread_.detach();
        }
    }
    BackgroundTask(const BackgroundTask&) = delete;
    BackgroundTask& operator=(const BackgroundTask&) = delete;

    bool started() const { return state_->started; }
    bool done() const { return state_->done; }
    bool cancelled() const { return state_->cancelled; }
    bool finishes() const { return eventually([&] { return done(); }); }

private:
    struct State {
        std::atomic<bool> started{false};
        std::atomic<bool> done{false};
        std::atomic<bool> cancelled{false};
    };
    std::shared_ptr<State> state_;
    std::thread thread_;
};

// A permit holder whose operation runs until the test lets it finish.
class GatedHolder {
public:
    explicit GatedHolder(std::shared_ptr<ThermalGovernor> governor)
        : gate_(std::make_shared<Gate>()),
          task_([governor = std::move(governor), gate = gate_] {
              governor->withPermit([&] {
                  gate->entered = true;
                  std::unique_lock lock(gate->mutex);
                  gate->opened.wait(lock, [&] { return gate->open; });
              });
          }) {}
    ~GatedHolder() { release(); }

    void release() {
        {
            std::lock_guard lock(gate_->mutex);
            gate_->open = true;
        }
        gate_->opened.notify_all();
    }
    bool started() const { return task_.started(); }
    bool entered() const { return gate_->entered; }
    bool done() const { return task_.done(); }

private:
    struct Gate {
        std::mutex mutex;
        std::condition_variable opened;
        bool open = false;
        std::atomic<bool> entered{false};
    };
    std::shared_ptr<Gate> gate_;
    BackgroundTask task_;
};

TEST_F(ThermalGovernorTest, CheckpointsParkedInCriticalAllGoOnWhenItPasses) {
    auto governor = makeGovernor(ThermalState::nominal, 4);
    pushAndWait(*governor, ThermalState::critical, criticalReason);

    std::vector<std::unique_ptr<BackgroundTask>> tasks;
    for (int i = 0; i < 4; ++i) tasks.push_back(std::make_unique<BackgroundTask>([governor] { governor->checkpoint(); }));
    ASSERT_TRUE(eventually([&] { return std::all_of(tasks.begin(), tasks.end(), [](auto& t) { return t->started(); }); }));
    settle();
    for (auto& task : tasks) EXPECT_FALSE(task->done());

    pushAndWait(*governor, ThermalState::nominal, acReason);
    for (auto& task : tasks) {
        EXPECT_TRUE(task->finishes());
        EXPECT_FALSE(task->cancelled());
    }
}

TEST_F(ThermalGovernorTest, PermitWaitersAreServedInOrderUpToTheNewLimit) {
    auto governor = makeGovernor(ThermalState::critical, 2);
    std::vector<std::unique_ptr<GatedHolder>> waiters;
    for (int i = 0; i < 4; ++i) {
        waiters.push_back(std::make_unique<GatedHolder>(governor));
        ASSERT_TRUE(eventually([&] { return waiters.back()->started(); }));
        settle(); // the order of arrival is the order under test
    }
    EXPECT_EQ(governor->activePermits(), 0);
    const auto entered = [&] {
        std::vector<bool> flags;
        for (auto& waiter : waiters) flags.push_back(waiter->entered());
        return flags;
    };

    // Nominal on AC with two processors: two permits, for the first two to come.
    pushAndWait(*governor, ThermalState::nominal, acReason);
    ASSERT_TRUE(eventually([&] { return waiters[0]->entered() && waiters[1]->entered(); }));
    settle();
    EXPECT_EQ(entered(), (std::vector<bool>{true, true, false, false}));
    EXPECT_EQ(governor->activePermits(), 2);

    // Each permit given back goes to the longest waiting.
    waiters[1]->release();
    ASSERT_TRUE(eventually([&] { return waiters[2]->entered(); }));
    settle();
    EXPECT_FALSE(waiters[3]->entered());
    EXPECT_EQ(governor->activePermits(), 2);

    waiters[0]->release();
    ASSERT_TRUE(eventually([&] { return waiters[3]->entered(); }));
    waiters[2]->release();
    waiters[3]->release();
    EXPECT_TRUE(eventually([&] { return governor->activePermits() == 0; }));
}

TEST_F(ThermalGovernorTest, AFallInTheLimitRevokesNothing) {
    auto governor = makeGovernor(ThermalState::nominal, 8);
    std::vector<std::unique_ptr<GatedHolder>> holders;
    for (int i = 0; i < 3; ++i) holders.push_back(std::make_unique<GatedHolder>(governor));
    ASSERT_TRUE(eventually([&] { return governor->activePermits() == 3; }));

    pushAndWait(*governor, ThermalState::serious, seriousReason);
    EXPECT_EQ(governor->activePermits(), 3);
    for (auto& holder : holders) EXPECT_FALSE(holder->done());

    GatedHolder latecomer(governor);
    ASSERT_TRUE(eventually([&] { return latecomer.started(); }));
    for (int i = 0; i < 3; ++i) {
        settle();
        EXPECT_FALSE(latecomer.entered()) << "entered with " << 3 - i << " permits held under a limit of 1";
        holders[i]->release();
        ASSERT_TRUE(eventually([&] { return holders[i]->done(); }));
    }
    ASSERT_TRUE(eventually([&] { return latecomer.entered(); }));
    EXPECT_EQ(governor->activePermits(), 1);
    latecomer.release();
    EXPECT_TRUE(eventually([&] { return governor->activePermits() == 0; }));
}

TEST_F(ThermalGovernorTest, WithPermitPassesResultsAndErrorsAndAlwaysGivesThePermitBack) {
    auto governor = makeGovernor(ThermalState::serious, 4);
    EXPECT_EQ(governor->withPermit([&] { return governor->activePermits() * 10 + 2; }), 12);
    EXPECT_EQ(governor->activePermits(), 0);

    EXPECT_THROW(governor->withPermit([]() -> int { throw std::runtime_error("operation failed"); }),
                 std::runtime_error);
    EXPECT_EQ(governor->activePermits(), 0);
    // With a limit of one, a leaked permit would leave this waiting for ever.
    auto result = std::make_shared<std::atomic<int>>(0);
    BackgroundTask again([governor, result] { *result = governor->withPermit([] { return 7; }); });
    ASSERT_TRUE(again.finishes());
    EXPECT_EQ(result->load(), 7);
}

TEST_F(ThermalGovernorTest, AStoppedTokenFailsBeforeAnyWaitOrWork) {
    auto governor = makeGovernor(ThermalState::nominal, 4);
    std::stop_source source;
    source.request_stop();
    EXPECT_THROW(governor->checkpoint(source.get_token()), CancellationError);
    bool ran = false;
    EXPECT_THROW(governor->withPermit([&] { ran = true; }, source.get_token()), CancellationError);
    EXPECT_FALSE(ran);
    EXPECT_EQ(governor->activePermits(), 0);
}

TEST_F(ThermalGovernorTest, StopCutsAPacedCheckpointShort) {
    auto governor = makeGovernor(ThermalState::serious, 4);
    ASSERT_EQ(governor->currentProfile().directorySleepMs, 5u);
    std::stop_source source;
    auto rounds = std::make_shared<std::atomic<int>>(0);
    // Nearly all of this loop's time is spent in the pacing sleep, where the stop lands.
    BackgroundTask crawl([governor, rounds, stop = source.get_token()] {
        for (;;) {
            governor->checkpoint(stop);
            ++*rounds;
        }
    });
    ASSERT_TRUE(eventually([&] { return rounds->load() > 2; }));
    source.request_stop();
    ASSERT_TRUE(crawl.finishes());
    EXPECT_TRUE(crawl.cancelled());
}

TEST_F(ThermalGovernorTest, AStopDuringAPauseIsNoticedOnlyWhenThePauseEnds) {
    auto governor = makeGovernor(ThermalState::critical, 4);
    std::stop_source source;
    BackgroundTask parked([governor, stop = source.get_token()] { governor->checkpoint(stop); });
    ASSERT_TRUE(eventually([&] { return parked.started(); }));
    settle();
    source.request_stop();
    settle();
    EXPECT_FALSE(parked.done());

    pushAndWait(*governor, ThermalState::nominal, acReason);
    ASSERT_TRUE(parked.finishes());
    EXPECT_TRUE(parked.cancelled());
}

TEST_F(ThermalGovernorTest, TheObserverEndsWithTheGovernor) {
    auto governor = makeGovernor(ThermalState::nominal, 4);
    ASSERT_TRUE(eventually([&] { return thermal->streamsOpened() == 1; }));
    std::weak_ptr<ThermalGovernor> weak = governor;

    // The stream never ends by itself; destruction must stop the observer.
    auto last = std::make_shared<std::shared_ptr<ThermalGovernor>>(std::move(governor));
    BackgroundTask destroyer([last] { last->reset(); });
    ASSERT_TRUE(destroyer.finishes()) << "destroying the governor hangs";
    EXPECT_TRUE(weak.expired());
    EXPECT_EQ(thermal->streamsOpen(), 0);
}

TEST_F(ThermalGovernorTest, TheObserverEndsWithItsStreamAndTheGovernorStaysUsable) {
    auto governor = makeGovernor(ThermalState::nominal, 4);
    ASSERT_TRUE(eventually([&] { return thermal->streamsOpened() == 1; }));
    thermal->finish();
    EXPECT_TRUE(eventually([&] { return thermal->streamsOpen() == 0; }));
    EXPECT_EQ(governor->withPermit([] { return 1; }), 1);
    governor->checkpoint();
}

} // namespace
} // namespace unbulk
