// unbulk: the command-line front end. It dispatches on the first word, runs
// exactly one handler to its end and exits with the status the handler
// returns, or with 1 when the command is unknown or the handler throws.

#include <array>
#include <exception>
#include <string>
#include <string_view>

#include "CommandLine.hpp"
#include "Handlers.hpp"
#include "Output.hpp"

namespace {

using unbulk::cli::Arguments;

using Handler = int (*)(const Arguments&);

struct Command {
    std::string_view word;
    Handler handler;
};

// Matched exactly and case-sensitively, in this order. Second forms of a word
// ("uninstall", "space") get rows of their own; the help text lists only the
// first forms.
constexpr std::array commands{
    Command{"scan", &unbulk::cli::handleScan},
    Command{"clean", &unbulk::cli::handleClean},
    Command{"uninstaller", &unbulk::cli::handleUninstaller},
    Command{"uninstall", &unbulk::cli::handleUninstaller},
    Command{"spacelens", &unbulk::cli::handleSpaceLens},
    Command{"space", &unbulk::cli::handleSpaceLens},
    Command{"maintenance", &unbulk::cli::handleMaintenance},
    Command{"vitals", &unbulk::cli::handleVitals},
    Command{"rules", &unbulk::cli::handleRules},
    Command{"fda", &unbulk::cli::handleFDA},
    Command{"mcp", &unbulk::cli::handleMCP},
};

constexpr std::string_view helpText =
    "Unbulk: High-performance, developer-aware macOS system cleaner\n"
    "\n"
    "USAGE:\n"
    "  unbulk <command> [options]\n"
    "\n"
    "COMMANDS:\n"
    "  scan          Scan disk for developer bloat, AI model weights, and system junk\n"
    "  clean         Clean discovered bloat or specified paths (Trash-first safety)\n"
    "  uninstaller   List installed apps, orphaned files, or uninstall an app\n"
    "  spacelens     Contoura: hierarchical directory storage analyzer (subcommand: spacelens)\n"
    "  maintenance   Execute system maintenance (flush DNS, APFS purgeable, Spotlight)\n"
    "  vitals        Show real-time Mach kernel CPU, RAM, disk, and battery vitals\n"
    "  rules         View and manage dynamic cleanup rules\n"
    "  fda           Check Full Disk Access permissions or open System Settings\n"
    "  mcp           Start Model Context Protocol (MCP) server over stdio\n"
    "\n"
    "GLOBAL FLAGS:\n"
    "  --json        Output machine-readable JSON on stdout\n"
    "  --dry-run     Simulate cleanup without touching files (default for clean)\n"
    "  -h, --help    Show help information";

Handler findHandler(std::string_view word) {
    for (const Command& command : commands) {
        if (command.word == word) return command.handler;
    }
    return nullptr;
}

} // namespace

int main(int argc, char** argv) {
    using namespace unbulk::cli;

    const Arguments arguments(argv + (argc > 0 ? 1 : 0), argv + (argc > 0 ? argc : 0));

    // Help only in first position: "unbulk scan --help" is a scan.
    if (arguments.empty() || arguments.front() == "--help" || arguments.front() == "-h") {
        printLine(helpText);
        return 0;
    }

    const std::string& word = arguments.front();
    Handler handler = findHandler(word);
    if (handler == nullptr) {
        writeError("Unknown command: '" + word + "'. Run 'unbulk --help' for usage.\n");
        return 1;
    }

    try {
        return handler(Arguments(arguments.begin() + 1, arguments.end()));
    } catch (const std::exception& error) {
        writeError(std::string("Error: ") + error.what() + "\n");
        return 1;
    } catch (...) {
        // Everything the core throws derives from std::exception; this only
        // keeps a stray throw from ending the process with a signal's status.
        writeError("Error: An unexpected error occurred.\n");
        return 1;
    }
}
