#pragma once

#include <string>
#include <vector>

#include "Platform/Environment.hpp"
#include "support/ProcessRunner.hpp"

namespace unbulk::testing {

// Runs one command of the program in this process, as main would, but over
// the given Environment: a test points the system's places, the clock or a
// service where the built program could not be pointed. What the command
// writes to standard output and standard error is captured.
ProcessResult runCommand(const Environment& environment, const std::vector<std::string>& words);

} // namespace unbulk::testing
