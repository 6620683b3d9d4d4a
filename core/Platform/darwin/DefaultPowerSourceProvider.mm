// Power source and battery from IOKit's power-source interface, Low Power
// Mode from the system's process information. Built with ARC, which does not
// manage Core Foundation objects: what a Copy function returns is released
// here, what a Get function returns is not.

#import <Foundation/Foundation.h>

#include <CoreFoundation/CoreFoundation.h>
#include <IOKit/ps/IOPowerSources.h>

#include <memory>
#include <optional>
#include <type_traits>

#include "Platform/Power.hpp"

namespace unbulk {
namespace {

struct CFReleaser {
    void operator()(CFTypeRef object) const {
        if (object) CFRelease(object);
    }
};

template <typename Ref>
using CFOwned = std::unique_ptr<std::remove_pointer_t<Ref>, CFReleaser>;

// The description dictionaries of the power sources, in the list's order,
// handed one by one to `visit` until it returns true.
template <typename Visit>
void forEachPowerSource(Visit&& visit) {
    const CFOwned<CFTypeRef> info(IOPSCopyPowerSourcesInfo());
    if (!info) return;
    const CFOwned<CFArrayRef> list(IOPSCopyPowerSourcesList(info.get()));
    if (!list) return;
    const CFIndex count = CFArrayGetCount(list.get());
    for (CFIndex index = 0; index < count; ++index) {
        const CFDictionaryRef description =
            IOPSGetPowerSourceDescription(info.get(), CFArrayGetValueAtIndex(list.get(), index));
        if (!description) continue;
        if (visit(description)) return;
    }
}

class DefaultPowerSourceProvider final : public PowerSourceProviding {
public:
    bool isACPowered() const override {
        // No source, no list or no answer: a desktop, which counts as AC powered.
        bool onAC = true;
        forEachPowerSource([&](CFDictionaryRef description) {
            const CFTypeRef state = CFDictionaryGetValue(description, CFSTR("Power Source State"));
            if (!state || CFGetTypeID(state) != CFStringGetTypeID()) return false;
            if (CFEqual(state, CFSTR("AC Power"))) {
                onAC = true;
                return true;
            }
            if (CFEqual(state, CFSTR("Battery Power"))) {
                onAC = false;
                return true;
            }
            return false;
        });
        return onAC;
    }

    std::optional<double> batteryPercentage() const override {
        // The current capacity as it stands, without a look at the maximum.
        std::optional<double> percentage;
        forEachPowerSource([&](CFDictionaryRef description) {
            const CFTypeRef capacity = CFDictionaryGetValue(description, CFSTR("Current Capacity"));
            if (!capacity || CFGetTypeID(capacity) != CFNumberGetTypeID()) return false;
            const auto number = static_cast<CFNumberRef>(capacity);
            if (CFNumberIsFloatType(number)) return false;
            long long value = 0;
            if (!CFNumberGetValue(number, kCFNumberLongLongType, &value)) return false;
            percentage = static_cast<double>(value);
            return true;
        });
        return percentage;
    }

    bool isLowPowerModeEnabled() const override {
        @autoreleasepool {
            return NSProcessInfo.processInfo.isLowPowerModeEnabled;
        }
    }
};

} // namespace

std::shared_ptr<PowerSourceProviding> makeDefaultPowerSourceProvider() {
    return std::make_shared<DefaultPowerSourceProvider>();
}

} // namespace unbulk
