#pragma once

#include <cstdint>
#include <string>

#include "Platform/ProcessRunner.hpp"

// The operating system's own upkeep tools, started and waited for. Nothing
// here raises privileges: what needs an administrator fails or does nothing
// in the tool itself, and no exit status is looked at, so a tool that ran
// and refused reports success. A tool that cannot be started throws
// ProcessLaunchError.
namespace unbulk::MaintenanceTasks {

// dscacheutil -flushcache, then killall -HUP mDNSResponder (whose launch
// failure is ignored).
std::string flushDNSCache(const ProcessRunner& runner);
// tmutil thinlocalsnapshots / <target in decimal bytes> 4; the tool's output.
std::string unbulkPurgeableSpace(const ProcessRunner& runner, std::int64_t targetGigabytes);
// mdutil -E <volume>; the tool's output.
std::string triggerSpotlightReindex(const ProcessRunner& runner, const std::string& volumePath);
// mdutil -s <volume>, trimmed.
std::string getSpotlightStatus(const ProcessRunner& runner, const std::string& volumePath);

} // namespace unbulk::MaintenanceTasks
