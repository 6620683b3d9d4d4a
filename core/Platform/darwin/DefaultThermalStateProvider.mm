// The thermal state as the system's process information reports it. Built
// with ARC.

#import <Foundation/Foundation.h>

#include <chrono>
#include <memory>

#include "Platform/Power.hpp"
#include "Platform/SampledThermalStateUpdates.hpp"

namespace unbulk {
namespace {

using namespace std::chrono_literals;

ThermalState currentThermalState() {
    @autoreleasepool {
        switch (NSProcessInfo.processInfo.thermalState) {
        case NSProcessInfoThermalStateNominal:
            return ThermalState::nominal;
        case NSProcessInfoThermalStateFair:
            return ThermalState::fair;
        case NSProcessInfoThermalStateSerious:
            return ThermalState::serious;
        case NSProcessInfoThermalStateCritical:
            return ThermalState::critical;
        }
        return ThermalState::nominal;
    }
}

// The changes are found by reading thermalState once a second, not by
// NSProcessInfoThermalStateDidChangeNotification. Whether and where that
// notice is delivered depends on a run loop turning, and a command-line
// process runs none: the governor could wait for a change that never comes.
// A sample needs nothing but the reading, on whatever thread asks, and a
// second's delay is nothing against the minutes over which a scan heats a
// machine.
constexpr auto sampleInterval = 1000ms;

class DefaultThermalStateProvider final : public ThermalStateProviding {
public:
    ThermalState thermalState() const override { return currentThermalState(); }

    std::unique_ptr<ThermalStateUpdates> thermalStateUpdates() override {
        return std::make_unique<SampledThermalStateUpdates>(currentThermalState, sampleInterval);
    }
};

} // namespace

std::shared_ptr<ThermalStateProviding> makeDefaultThermalStateProvider() {
    return std::make_shared<DefaultThermalStateProvider>();
}

} // namespace unbulk
