#pragma once

#include <functional>
#include <string>
#include <vector>

#include "Models/ScanItem.hpp"

namespace unbulk {

// Receives a scan target's reports, one item at a time. May be called from
// any thread; whoever passes one makes it safe for that.
using ScanProgressHandler = std::function<void(const ScanProgress&)>;

// Tells whether a process whose name holds the given text is running.
using ProcessRunningCheck = std::function<bool(const std::string&)>;

// What the system stage hands back: its items and the warnings it raised.
struct SystemScanOutput {
    std::vector<DiscoveredItem> items;
    std::vector<std::string> warnings;
};

} // namespace unbulk
