#pragma once

#include "CommandLine.hpp"

namespace unbulk::cli {

// One handler per command. Each takes the words behind the command word,
// builds the short-lived core objects it needs, prints its report and
// returns; any error it throws is reported by main.

// scan [--json] [--category <raw value>]
void handleScan(const Arguments& args);

// rules (every word behind it is ignored)
void handleRules(const Arguments& args);

// fda [--open]: the Full Disk Access status, or the way to its setting.
// Cannot fail: whatever happens, the status is 0.
void handleFDA(const Arguments& args);

} // namespace unbulk::cli
