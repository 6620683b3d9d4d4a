#pragma once

#include "CommandLine.hpp"
#include "Platform/Environment.hpp"

namespace unbulk::cli {

// The whole program but its entry point: dispatches on the first word, runs
// exactly one handler to its end over `environment` and answers the exit
// status the handler returns, or 1 when the command is unknown or the
// handler throws ("Error: <what>" on standard error).
int run(const Environment& environment, const Arguments& arguments);

} // namespace unbulk::cli
