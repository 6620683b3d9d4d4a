#pragma once

#include <memory>
#include <optional>

#include "Support/Cancellation.hpp"

namespace unbulk {

// The machine's thermal pressure, with the raw values of the platform's
// thermal state: 0 nominal, 1 fair, 2 serious, 3 critical.
enum class ThermalState : int { nominal = 0, fair = 1, serious = 2, critical = 3 };

// A sequence of thermal states as they change. next() blocks until the next
// value arrives; it gives nothing once the sequence has ended or stop is requested.
class ThermalStateUpdates {
public:
    virtual ~ThermalStateUpdates() = default;
    virtual std::optional<ThermalState> next(StopToken stop) = 0;
};

class ThermalStateProviding {
public:
    virtual ~ThermalStateProviding() = default;
    virtual ThermalState thermalState() const = 0;
    virtual std::unique_ptr<ThermalStateUpdates> thermalStateUpdates() = 0;
};

class PowerSourceProviding {
public:
    virtual ~PowerSourceProviding() = default;
    virtual bool isACPowered() const = 0;
    virtual std::optional<double> batteryPercentage() const = 0;
    virtual bool isLowPowerModeEnabled() const = 0;
};

// The machine's own providers: sysfs on Linux, ProcessInfo and IOKit on macOS.
std::shared_ptr<ThermalStateProviding> makeDefaultThermalStateProvider();
std::shared_ptr<PowerSourceProviding> makeDefaultPowerSourceProvider();

} // namespace unbulk
