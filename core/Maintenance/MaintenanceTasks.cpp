#include "Maintenance/MaintenanceTasks.hpp"

#include "Support/Unicode.hpp"

namespace unbulk::MaintenanceTasks {
namespace {

// The output as text when it is UTF-8, else the fallback. An empty output is
// text.
std::string decoded(const std::string& output, const char* fallback) {
    return unicode::isAscii(output) || unicode::scalars(output) ? output : std::string(fallback);
}

} // namespace

std::string flushDNSCache(const ProcessRunner& runner) {
    runner.run("/usr/bin/dscacheutil", {"-flushcache"});
    try {
        runner.run("/usr/bin/killall", {"-HUP", "mDNSResponder"});
    } catch (const ProcessLaunchError&) {
        // The cache is flushed; the responder picks that up on its own.
    }
    return "DNS cache successfully flushed.";
}

std::string unbulkPurgeableSpace(const ProcessRunner& runner, std::int64_t targetGigabytes) {
    // Decimal gigabytes, as the tool counts bytes.
    const ProcessOutput result = runner.run(
        "/usr/bin/tmutil", {"thinlocalsnapshots", "/", std::to_string(targetGigabytes * 1'000'000'000), "4"});
    return decoded(result.output, "Purgeable reclamation executed.");
}

std::string triggerSpotlightReindex(const ProcessRunner& runner, const std::string& volumePath) {
    const ProcessOutput result = runner.run("/usr/bin/mdutil", {"-E", volumePath});
    return decoded(result.output, "Spotlight reindexing initiated.");
}

std::string getSpotlightStatus(const ProcessRunner& runner, const std::string& volumePath) {
    const ProcessOutput result = runner.run("/usr/bin/mdutil", {"-s", volumePath});
    if (!unicode::isAscii(result.output) && !unicode::scalars(result.output)) return "Unknown";
    return std::string(unicode::trimmingWhitespaceAndNewlines(result.output));
}

} // namespace unbulk::MaintenanceTasks
