#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <memory>
#include <mutex>
#include <string>
#include <thread>
#include <type_traits>

#include "Platform/Power.hpp"
#include "Support/Cancellation.hpp"

namespace unbulk {

struct ConcurrencyProfile {
    int maxParallelTasks = 1;
    std::uint64_t directorySleepMs = 0;
    bool isPaused = false;
    std::string reason;

    friend bool operator==(const ConcurrencyProfile&, const ConcurrencyProfile&) = default;
};

// Paces a scan by the machine's thermal state and power source. checkpoint()
// holds a scan while the profile is paused and slows it otherwise;
// withPermit() bounds how many stages run at once, serving waiters first in,
// first out. A background observer follows the thermal state; it holds the
// governor weakly and ends with it, so governors live in shared_ptrs.
class ThermalGovernor : public std::enable_shared_from_this<ThermalGovernor> {
    struct Passkey {};

public:
    static std::shared_ptr<ThermalGovernor> make(std::shared_ptr<ThermalStateProviding> thermalProvider,
                                                 std::shared_ptr<PowerSourceProviding> powerProvider,
                                                 int activeProcessors);
    // Never paced: for tests and headless use.
    static std::shared_ptr<ThermalGovernor> unrestricted(int activeProcessors);

    ThermalGovernor(Passkey, std::shared_ptr<ThermalStateProviding> thermalProvider,
                    std::shared_ptr<PowerSourceProviding> powerProvider, int activeProcessors);
    ~ThermalGovernor();
    ThermalGovernor(const ThermalGovernor&) = delete;
    ThermalGovernor& operator=(const ThermalGovernor&) = delete;

    ConcurrencyProfile currentProfile() const;
    int activePermits() const;

    // Reads the thermal and power state now and wakes whoever may go on.
    void updateThermalConditions();

    // Throws CancellationError when stop is requested before or after a
    // pause, or during the pacing sleep. A pause itself is not interrupted.
    void checkpoint(StopToken stop = {});

    // Runs the operation while holding one permit, giving it back whatever
    // the operation does.
    template <typename Operation>
    std::invoke_result_t<Operation&> withPermit(Operation&& operation, StopToken stop = {}) {
        throwIfCancelled(stop);
        acquirePermit();
        PermitLease lease{*this};
        throwIfCancelled(stop);
        return operation();
    }

    static ConcurrencyProfile calculateProfile(ThermalState thermal, const PowerSourceProviding& power,
                                               int processors);

private:
    struct Waiter {
        bool resumed = false;
    };
    struct PermitLease {
        ThermalGovernor& governor;
        ~PermitLease() { governor.releasePermit(); }
    };

    void acquirePermit();
    void releasePermit();
    void resumeWaitersIfNeeded(); // with mutex_ held
    void startObserver();

    std::shared_ptr<ThermalStateProviding> thermalProvider_;
    std::shared_ptr<PowerSourceProviding> powerProvider_;
    int activeProcessors_;

    mutable std::mutex mutex_;
    std::condition_variable wake_;
    int activePermits_ = 0;
    std::deque<std::shared_ptr<Waiter>> permitWaiters_;
    std::deque<std::shared_ptr<Waiter>> pauseWaiters_;
    ConcurrencyProfile cachedProfile_;

    StopSource observerStop_;
    std::thread observer_;
};

// Nominal, on AC, no battery, no Low Power Mode, and a thermal stream that
// ends at once: the conditions of an unrestricted governor.
class UnrestrictedConditionsProvider final : public ThermalStateProviding, public PowerSourceProviding {
public:
    ThermalState thermalState() const override { return ThermalState::nominal; }
    std::unique_ptr<ThermalStateUpdates> thermalStateUpdates() override;
    bool isACPowered() const override { return true; }
    std::optional<double> batteryPercentage() const override { return std::nullopt; }
    bool isLowPowerModeEnabled() const override { return false; }
};

} // namespace unbulk
