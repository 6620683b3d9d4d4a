#pragma once

#include <chrono>
#include <map>
#include <string>
#include <vector>

namespace unbulk::testing {

// What a finished child process left behind. `exitStatus` is the status it
// exited with; a child ended by a signal has exitStatus -1 and the signal's
// number in `signal`.
struct ProcessResult {
    std::string standardOutput;
    std::string standardError;
    int exitStatus = -1;
    int signal = 0;
    bool timedOut = false;
};

struct ProcessOptions {
    // Set on top of this process's environment (which a TempHome has already
    // pointed at itself).
    std::map<std::string, std::string> environment;
    // After this, the child is killed and the result says timedOut.
    std::chrono::milliseconds timeout{60'000};
};

// Runs `program` with `arguments` (argv[1]...) directly through execve, with
// no shell in between, standard input from /dev/null, and standard output and
// standard error captured on pipes of their own. Waits for the end.
ProcessResult runProcess(const std::string& program, const std::vector<std::string>& arguments,
                         const ProcessOptions& options = {});

} // namespace unbulk::testing
