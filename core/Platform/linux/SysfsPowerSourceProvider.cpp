#include "Platform/linux/SysfsPowerSourceProvider.hpp"

#include <memory>
#include <utility>
#include <vector>

#include "Platform/linux/SysfsAttributes.hpp"

namespace unbulk {
namespace {

struct Supply {
    std::string path;
    std::string type;
};

// The supplies that belong to the machine itself, in the order of their names.
std::vector<Supply> systemSupplies(const std::string& root) {
    const std::string supplyClass = root + "/class/power_supply";
    std::vector<Supply> supplies;
    for (const std::string& name : sysfs::sortedNames(supplyClass)) {
        std::string path = supplyClass + "/" + name;
        if (sysfs::readAttribute(path + "/scope") == "Device") continue;
        std::optional<std::string> type = sysfs::readAttribute(path + "/type");
        if (!type) continue;
        supplies.push_back({std::move(path), std::move(*type)});
    }
    return supplies;
}

} // namespace

SysfsPowerSourceProvider::SysfsPowerSourceProvider(std::string sysfsRoot) : root_(std::move(sysfsRoot)) {}

bool SysfsPowerSourceProvider::isACPowered() const {
    for (const Supply& supply : systemSupplies(root_)) {
        if (supply.type == "Mains" || supply.type == "USB") {
            if (sysfs::readInteger(supply.path + "/online") == 1) return true;
        } else if (supply.type == "Battery") {
            if (sysfs::readAttribute(supply.path + "/status") == "Discharging") return false;
        }
    }
    return true;
}

std::optional<double> SysfsPowerSourceProvider::batteryPercentage() const {
    for (const Supply& supply : systemSupplies(root_)) {
        if (supply.type != "Battery") continue;
        if (const std::optional<long long> capacity = sysfs::readInteger(supply.path + "/capacity")) {
            return static_cast<double>(*capacity);
        }
    }
    return std::nullopt;
}

bool SysfsPowerSourceProvider::isLowPowerModeEnabled() const {
    return sysfs::readAttribute(root_ + "/firmware/acpi/platform_profile") == "low-power";
}

std::shared_ptr<PowerSourceProviding> makeDefaultPowerSourceProvider() {
    return std::make_shared<SysfsPowerSourceProvider>();
}

} // namespace unbulk
