#include "Platform/SampledThermalStateUpdates.hpp"

#include <utility>

#include "Support/Cancellation.hpp"

namespace unbulk {

SampledThermalStateUpdates::SampledThermalStateUpdates(std::function<ThermalState()> read,
                                                       std::chrono::milliseconds interval)
    : read_(std::move(read)), interval_(interval), last_(read_()) {}

std::optional<ThermalState> SampledThermalStateUpdates::next(StopToken stop) {
    for (;;) {
        try {
            cancellableSleep(interval_, stop);
        } catch (const CancellationError&) {
            return std::nullopt;
        }
        const ThermalState now = read_();
        if (now != last_) {
            last_ = now;
            return now;
        }
    }
}

} // namespace unbulk
