#include <fmt/format.h>

#include "Handlers.hpp"
#include "Operations/Engines.hpp"
#include "Output.hpp"
#include "Platform/ByteCountFormatter.hpp"
#include "Support/Json.hpp"

namespace unbulk::cli {

int handleVitals(const Environment& environment, const Arguments& args) {
    const SystemVitals vitals = Engines::systemVitals(environment);
    if (hasFlag(args, "--json")) {
        printJson(toJson(vitals, DateEncoding::iso8601));
        return 0;
    }
    printLine("System vitals:");
    printLine(
        fmt::format("  CPU Usage:       {:.1f}% ({} cores)", vitals.cpu.totalUsagePercentage, vitals.cpu.coreCount));
    printLine(fmt::format("  Memory Used:     {} / {} ({})", vitals.memory.formattedUsedBytes(),
                          vitals.memory.formattedTotalBytes(), rawValue(vitals.memory.pressureStatus)));
    printLine(fmt::format("  Free Storage:    {} of {}", vitals.disk.formattedFreeBytes(),
                          formatByteCount(vitals.disk.totalBytes)));
    if (vitals.battery) {
        printLine(fmt::format("  Battery:         {}% ({})", static_cast<long long>(vitals.battery->percentage),
                              vitals.battery->isCharging ? "Charging" : "Battery"));
    }
    printLine(fmt::format("  Thermal State:   {}", rawValue(vitals.thermalState)));
    return 0;
}

} // namespace unbulk::cli
