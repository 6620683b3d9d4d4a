// unbulk: the command-line front end. It dispatches on the first word, runs
// exactly one handler to its end and exits with the status the handler
// returns, or with 1 when the command is unknown or the handler throws.

#include <array>
#include <exception>
#include <string>
#include <string_view>

#include "CommandLine.hpp"
#include "CommandLineDescription.hpp"
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
    Command{"review", &unbulk::cli::handleReview},
    Command{"explore", &unbulk::cli::handleExplore},
};

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
