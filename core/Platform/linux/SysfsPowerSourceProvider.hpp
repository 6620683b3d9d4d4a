#pragma once

#include <optional>
#include <string>

#include "Platform/Power.hpp"

namespace unbulk {

// Power supplies from the kernel's power_supply class and Low Power Mode from
// the ACPI platform profile. Supplies are taken in the order of their names:
// a "Mains" or "USB" supply that is online means AC power, a "Battery" that
// is discharging means battery power, and whichever comes first decides. A
// machine with nothing decisive (a desktop) counts as AC powered.
//
// Batteries of peripherals (a wireless mouse: scope "Device") say nothing
// about the machine and are passed over.
class SysfsPowerSourceProvider final : public PowerSourceProviding {
public:
    // `sysfsRoot` is where sysfs is mounted; tests hand in a fake tree.
    explicit SysfsPowerSourceProvider(std::string sysfsRoot = "/sys");

    bool isACPowered() const override;
    // The capacity of the first battery that reports a whole number.
    std::optional<double> batteryPercentage() const override;
    // The platform profile is "low-power".
    bool isLowPowerModeEnabled() const override;

private:
    std::string root_;
};

} // namespace unbulk
