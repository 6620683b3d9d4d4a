#include <set>

#include <gtest/gtest.h>

#include "Maintenance/MaintenanceTasks.hpp"

namespace unbulk {
namespace {

// Records each launch and answers from a script; a missing tool fails as a
// real launch would.
class ScriptedRunner final : public ProcessRunner {
public:
    ProcessOutput run(const std::string& executable, const std::vector<std::string>& arguments) const override {
        launches.push_back(executable);
        for (const auto& argument : arguments)
            launches.back() += " " + argument;
        if (missing.contains(executable))
            throw ProcessLaunchError(std::make_error_code(std::errc::no_such_file_or_directory), executable);
        return {output, 1}; // a tool that refused: the status is never looked at
    }
    mutable std::vector<std::string> launches;
    std::set<std::string> missing;
    std::string output;
};

TEST(MaintenanceTasksTest, FlushRunsBothToolsAndSwallowsOnlyTheSecondLaunchFailure) {
    ScriptedRunner runner;
    runner.missing = {"/usr/bin/killall"};
    EXPECT_EQ(MaintenanceTasks::flushDNSCache(runner), "DNS cache successfully flushed.");
    EXPECT_EQ(runner.launches,
              (std::vector<std::string>{"/usr/bin/dscacheutil -flushcache", "/usr/bin/killall -HUP mDNSResponder"}));
    runner.missing = {"/usr/bin/dscacheutil"};
    EXPECT_THROW(MaintenanceTasks::flushDNSCache(runner), ProcessLaunchError);
}

TEST(MaintenanceTasksTest, ToolsGetTheirArgumentsAndTheirOutputIsTheResult) {
    ScriptedRunner runner;
    EXPECT_EQ(MaintenanceTasks::unbulkPurgeableSpace(runner, 10), ""); // empty output decodes: no fallback
    EXPECT_EQ(MaintenanceTasks::unbulkPurgeableSpace(runner, 0), "");
    runner.output = "Indexing enabled.\n";
    EXPECT_EQ(MaintenanceTasks::triggerSpotlightReindex(runner, "/"), "Indexing enabled.\n");
    EXPECT_EQ(MaintenanceTasks::getSpotlightStatus(runner, "/"), "Indexing enabled.");
    runner.output = "\xff\xfe";
    EXPECT_EQ(MaintenanceTasks::unbulkPurgeableSpace(runner, 1), "Purgeable reclamation executed.");
    EXPECT_EQ(MaintenanceTasks::triggerSpotlightReindex(runner, "/"), "Spotlight reindexing initiated.");
    EXPECT_EQ(MaintenanceTasks::getSpotlightStatus(runner, "/"), "Unknown");
    EXPECT_EQ(std::vector(runner.launches.begin(), runner.launches.begin() + 4),
              (std::vector<std::string>{"/usr/bin/tmutil thinlocalsnapshots / 10000000000 4",
                                        "/usr/bin/tmutil thinlocalsnapshots / 0 4", "/usr/bin/mdutil -E /",
                                        "/usr/bin/mdutil -s /"}));
}

// A tool that cannot be launched is MaintenanceCliTest's: the program says which, and why.
TEST(ProcessRunnerTest, OnePipeTakesBothStreamsAndTheStatusIsKept) {
    const auto runner = makeDefaultProcessRunner();
    EXPECT_EQ(runner->run("/bin/echo", {"hello", "world"}).output, "hello world\n");
    const ProcessOutput both = runner->run("/bin/sh", {"-c", "echo out; echo err >&2; exit 3"});
    EXPECT_EQ(both.output, "out\nerr\n");
    EXPECT_EQ(both.exitStatus, 3);
}

} // namespace
} // namespace unbulk
