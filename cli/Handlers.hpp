#pragma once

#include "CommandLine.hpp"
#include "Platform/Environment.hpp"

namespace unbulk::cli {

// One handler per command. Each takes the program's Environment and the
// words behind the command word, builds the short-lived core objects it
// needs from the one (Operations/Engines), prints its report and returns the
// exit status: 0, or 1 where a command refuses to go on and has said why
// itself. Any error it throws is reported by run(), with status 1.

// scan [--json] [--category <raw value>]
int handleScan(const Environment& environment, const Arguments& args);

// clean [--json] [--execute | --no-dry-run] [--permanent [--yes | -y]]
//       [--category <raw value>]
int handleClean(const Environment& environment, const Arguments& args);

// uninstaller (and uninstall) [list [--json] | remove|uninstall <bundle id or
// name> [--execute] [--force] [--json]]
int handleUninstaller(const Environment& environment, const Arguments& args);

// spacelens (and space) [--path <dir>] [--depth <n>] [--json]
int handleSpaceLens(const Environment& environment, const Arguments& args);

// maintenance [dns | purgeable | spotlight | all]: any other word runs all.
int handleMaintenance(const Environment& environment, const Arguments& args);

// vitals [--json]
int handleVitals(const Environment& environment, const Arguments& args);

// rules (every word behind it is ignored)
int handleRules(const Environment& environment, const Arguments& args);

// fda [--open]: the Full Disk Access status, or the way to its setting.
// Cannot fail: whatever happens, the status is 0.
int handleFDA(const Environment& environment, const Arguments& args);

// review [--category <raw value>]...: the scan's items at the terminal, to
// choose what goes. Off a terminal it says what to use instead, status 1.
int handleReview(const Environment& environment, const Arguments& args);

// explore [--path <dir>]: the disk usage of a directory at the terminal, a
// level at a time. Off a terminal it says what to use instead, status 1.
int handleExplore(const Environment& environment, const Arguments& args);

// mcp: the agent server on standard input and output until input ends (every
// word behind it is ignored).
int handleMCP(const Environment& environment, const Arguments& args);

// The exit status of a command that a signal stopped: 128 + its number.
inline int statusAfterSignal(int signal) { return 128 + signal; }

} // namespace unbulk::cli
