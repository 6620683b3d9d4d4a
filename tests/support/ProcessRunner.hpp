#pragma once

#include <chrono>
#include <functional>
#include <map>
#include <optional>
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
    // What the child reads on standard input; /dev/null when absent.
    std::optional<std::string> standardInput;
    // While the child runs, `when` is asked every few milliseconds; once it
    // answers true, `signal` is sent to the child (only once).
    struct Interruption {
        int signal = 0;
        std::function<bool()> when;
    };
    std::optional<Interruption> interruption;
};

// Runs `program` with `arguments` (argv[1]...) directly through execve, with
// no shell in between, standard input from options.standardInput, and standard output and
// standard error captured in files of their own. Waits for the end.
ProcessResult runProcess(const std::string& program, const std::vector<std::string>& arguments,
                         const ProcessOptions& options = {});

} // namespace unbulk::testing
