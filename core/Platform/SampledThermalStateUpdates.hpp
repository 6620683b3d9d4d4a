#pragma once

#include <chrono>
#include <functional>
#include <optional>

#include "Platform/Power.hpp"

namespace unbulk {

// Thermal updates by sampling: `read` is asked every `interval`, and a value
// that differs from the last one is reported. The first value compared
// against is the one read at construction. Needs no notice from the system,
// and so no run loop or signal of any kind, only the reading itself.
class SampledThermalStateUpdates final : public ThermalStateUpdates {
public:
    SampledThermalStateUpdates(std::function<ThermalState()> read, std::chrono::milliseconds interval);

    std::optional<ThermalState> next(StopToken stop) override;

private:
    std::function<ThermalState()> read_;
    std::chrono::milliseconds interval_;
    ThermalState last_;
};

} // namespace unbulk
