#include "Scanner/ThermalGovernor.hpp"

#include <algorithm>
#include <chrono>

#include <fmt/format.h>


namespace unbulk {
namespace {

constexpr const char* nominalOnACReason = "Nominal thermal state on AC power. Maximum concurrency enabled.";

class FinishedUpdates final : public ThermalStateUpdates {
public:
    std::optional<ThermalState> next(StopToken) override { return std::nullopt; }
};

} // namespace

std::unique_ptr<ThermalStateUpdates> UnrestrictedConditionsProvider::thermalStateUpdates() {
    return std::make_unique<FinishedUpdates>();
}

ConcurrencyProfile ThermalGovernor::calculateProfile(ThermalState thermal, const PowerSourceProviding& power,
                                                     int p) {
    if (thermal == ThermalState::critical) {
        return {0, 0, true, "Thermal condition is CRITICAL. Scanning paused."};
    }
    if (power.isLowPowerModeEnabled()) {
        return {1, 3, false, "Low Power Mode active."};
    }
    const bool onAC = power.isACPowered();
    const std::optional<double> battery = power.batteryPercentage();
    if (battery && !onAC && *battery <= 20.0) {
        return {1, 3, false, fmt::format("Battery critically low ({}%).", static_cast<long long>(*battery))};
    }
    if (thermal == ThermalState::fair) {
        return {std::min(p < 4 ? 1 : p / 4, p), 1, false, "Thermal condition is FAIR. Throttled concurrency."};
    }
    if (thermal == ThermalState::serious) {
        return {1, 5, false, "Thermal condition is SERIOUS. Single-task crawling active."};
    }
    if (onAC) {
        return {std::min(p, 16), 0, false, nominalOnACReason};
    }
    const int onBattery = p >= 8 ? 4 : (p < 2 ? p : p / 2);
    return {onBattery, 0, false,
            fmt::format("Running on battery power ({}%). Moderate concurrency.",
                        static_cast<long long>(battery.value_or(100.0)))};
}

std::shared_ptr<ThermalGovernor> ThermalGovernor::make(std::shared_ptr<ThermalStateProviding> thermalProvider,
                                                       std::shared_ptr<PowerSourceProviding> powerProvider,
                                                       int activeProcessors) {
    auto governor = std::make_shared<ThermalGovernor>(Passkey{}, std::move(thermalProvider), std::move(powerProvider),
                                                      activeProcessors);
    {
        std::lock_guard lock(governor->mutex_);
        governor->cachedProfile_ = calculateProfile(governor->thermalProvider_->thermalState(),
                                                    *governor->powerProvider_, governor->activeProcessors_);
    }
    governor->startObserver();
    return governor;
}

std::shared_ptr<ThermalGovernor> ThermalGovernor::unrestricted(int activeProcessors) {
    auto provider = std::make_shared<UnrestrictedConditionsProvider>();
    auto governor = std::make_shared<ThermalGovernor>(Passkey{}, provider, provider, activeProcessors);
    {
        std::lock_guard lock(governor->mutex_);
        governor->cachedProfile_ = {std::min(governor->activeProcessors_, 16), 0, false, nominalOnACReason};
    }
    governor->startObserver();
    return governor;
}

ThermalGovernor::ThermalGovernor(Passkey, std::shared_ptr<ThermalStateProviding> thermalProvider,
                                 std::shared_ptr<PowerSourceProviding> powerProvider, int activeProcessors)
    : thermalProvider_(std::move(thermalProvider)),
      powerProvider_(std::move(powerProvider)),
      activeProcessors_(std::max(activeProcessors, 1)) {}

ThermalGovernor::~ThermalGovernor() {
    if (!observer_.joinable()) return;
    observerStop_.requestStop();
    // The observer may itself drop the last reference; it cannot join itself.
    if (observer_.get_id() == std::this_thread::get_id()) {
        observer_.detach();
    } else {
        observer_.join();
    }
}

void ThermalGovernor::startObserver() {
    std::weak_ptr<ThermalGovernor> weak = weak_from_this();
    auto provider = thermalProvider_;
    observer_ = std::thread([weak, provider, stop = observerStop_.token()] {
        auto updates = provider->thermalStateUpdates();
        while (updates && !stop.stopRequested()) {
            if (!updates->next(stop)) return;
            auto governor = weak.lock();
            if (!governor) return;
            governor->updateThermalConditions();
        }
    });
}

ConcurrencyProfile ThermalGovernor::currentProfile() const {
    std::lock_guard lock(mutex_);
    return cachedProfile_;
}

int ThermalGovernor::activePermits() const {
    std::lock_guard lock(mutex_);
    return activePermits_;
}

void ThermalGovernor::updateThermalConditions() {
    // The providers are asked under the lock, so that of two updates at once
    // the one that read the conditions last is the one that stays.
    std::lock_guard lock(mutex_);
    cachedProfile_ = calculateProfile(thermalProvider_->thermalState(), *powerProvider_, activeProcessors_);
    resumeWaitersIfNeeded();
}

void ThermalGovernor::checkpoint(StopToken stop) {
    throwIfCancelled(stop);
    std::uint64_t sleepMs = 0;
    {
        std::unique_lock lock(mutex_);
        while (cachedProfile_.isPaused) {
            auto waiter = std::make_shared<Waiter>();
            pauseWaiters_.push_back(waiter);
            wake_.wait(lock, [&] { return waiter->resumed; });
            throwIfCancelled(stop);
        }
        sleepMs = cachedProfile_.directorySleepMs;
    }
    throwIfCancelled(stop);
    if (sleepMs > 0) {
        cancellableSleep(std::chrono::milliseconds(sleepMs), stop);
    } else {
        std::this_thread::yield();
    }
}

void ThermalGovernor::acquirePermit() {
    std::unique_lock lock(mutex_);
    if (!cachedProfile_.isPaused && activePermits_ < cachedProfile_.maxParallelTasks) {
        ++activePermits_;
        return;
    }
    auto waiter = std::make_shared<Waiter>();
    permitWaiters_.push_back(waiter);
    // Whoever resumes a permit waiter has already counted the permit for it.
    wake_.wait(lock, [&] { return waiter->resumed; });
}

void ThermalGovernor::releasePermit() {
    std::lock_guard lock(mutex_);
    if (activePermits_ >= 1) --activePermits_;
    resumeWaitersIfNeeded();
}

void ThermalGovernor::resumeWaitersIfNeeded() {
    if (cachedProfile_.isPaused) return;
    bool resumedAny = !pauseWaiters_.empty();
    for (auto& waiter : pauseWaiters_) waiter->resumed = true;
    pauseWaiters_.clear();
    while (activePermits_ < cachedProfile_.maxParallelTasks && !permitWaiters_.empty()) {
        permitWaiters_.front()->resumed = true;
        permitWaiters_.pop_front();
        ++activePermits_;
        resumedAny = true;
    }
    if (resumedAny) wake_.notify_all();
}

} // namespace unbulk
