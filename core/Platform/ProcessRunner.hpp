#pragma once

#include <memory>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include "Platform/PlatformError.hpp"

namespace unbulk {

// A program that could not be started, with the system's reason and the
// call that gave it: "Could not launch '<program>': posix_spawn('<program>'):
// No such file or directory".
struct ProcessLaunchError : std::system_error {
    ProcessLaunchError(const PlatformError& error, const std::string& program)
        : std::system_error(error.code, "Could not launch '" + program + "'"), executable(program),
          message_("Could not launch '" + program + "': " + error.message()) {}
    ProcessLaunchError(std::error_code code, const std::string& program)
        : ProcessLaunchError(PlatformError::of(code), program) {}

    const char* what() const noexcept override { return message_.c_str(); }

    std::string executable;

private:
    std::string message_;
};

struct ProcessOutput {
    std::string output; // standard output and standard error, as they came, through one pipe
    int exitStatus = 0; // -1 when ended by a signal
};

// Runs the operating system's own tools: an absolute executable (no shell,
// no search of PATH) with the given arguments and this process's
// environment, one pipe for both output streams, and a wait until it has
// exited. Throws ProcessLaunchError when it cannot be started.
class ProcessRunner {
public:
    virtual ~ProcessRunner() = default;
    virtual ProcessOutput run(const std::string& executable, const std::vector<std::string>& arguments) const = 0;
};

// posix_spawn on every platform.
std::shared_ptr<ProcessRunner> makeDefaultProcessRunner();

} // namespace unbulk
