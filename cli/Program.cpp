#include "Program.hpp"

#include <array>
#include <exception>
#include <string>
#include <string_view>

#include "CommandLineDescription.hpp"
#include "Handlers.hpp"
#include "Output.hpp"

namespace unbulk::cli {
namespace {

using Handler = int (*)(const Environment&, const Arguments&);

struct Command {
    std::string_view word;
    Handler handler;
};

// Matched exactly and case-sensitively, in this order. Second forms of a word
// ("uninstall", "space") get rows of their own; the help text lists only the
// first forms.
constexpr std::array commands{
    Command{"scan", &handleScan},
    Command{"clean", &handleClean},
    Command{"uninstaller", &handleUninstaller},
    Command{"uninstall", &handleUninstaller},
    Command{"spacelens", &handleSpaceLens},
    Command{"space", &handleSpaceLens},
    Command{"maintenance", &handleMaintenance},
    Command{"vitals", &handleVitals},
    Command{"rules", &handleRules},
    Command{"fda", &handleFDA},
    Command{"mcp", &handleMCP},
    Command{"review", &handleReview},
    Command{"explore", &handleExplore},
};

Handler findHandler(std::string_view word) {
    for (const Command& command : commands) {
        if (command.word == word) return command.handler;
    }
    return nullptr;
}

} // namespace


int run(const Environment& environment, const Arguments& arguments) {
    // Help only in first position: "unbulk scan --help" is a scan.
    if (arguments.empty() || arguments.front() == "--help" || arguments.front() == "-h") {
        // The help lines come from the one description the shells complete from.
        printLine(helpText());
        return 0;
    }

    const std::string& word = arguments.front();
    Handler handler = findHandler(word);
    if (handler == nullptr) {
        writeError("Unknown command: '" + word + "'. Run 'unbulk --help' for usage.\n");
        return 1;
    }

    try {
        return handler(environment, Arguments(arguments.begin() + 1, arguments.end()));
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

} // namespace unbulk::cli
