#pragma once

#include <chrono>
#include <memory>
#include <string>

#include "Platform/Power.hpp"

namespace unbulk {

// The thermal state from the kernel's thermal zones. Each zone's temperature
// is held against its trip points: at or above a "critical" trip the state is
// critical, a "hot" trip makes it serious, a "passive" trip fair ("active"
// trips only switch fans and count for nothing). The hottest zone decides; a
// machine without zones, or with unreadable ones, is nominal.
//
// Linux sends no notice when a zone crosses a trip point, so the updates
// sample the zones at a fixed interval and report only changes.
class SysfsThermalStateProvider final : public ThermalStateProviding {
public:
    static constexpr std::chrono::milliseconds defaultSampleInterval{5000};

    // `sysfsRoot` is where sysfs is mounted; tests hand in a fake tree.
    explicit SysfsThermalStateProvider(std::string sysfsRoot = "/sys",
                                       std::chrono::milliseconds sampleInterval = defaultSampleInterval);

    ThermalState thermalState() const override;
    // Starts from the state at the time of the call.
    std::unique_ptr<ThermalStateUpdates> thermalStateUpdates() override;

private:
    std::string root_;
    std::chrono::milliseconds sampleInterval_;
};

} // namespace unbulk
