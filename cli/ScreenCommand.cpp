#include "ScreenCommand.hpp"

#include "Handlers.hpp"
#include "Output.hpp"
#include "Support/Cancellation.hpp"
#include "tui/Screen.hpp"

namespace unbulk::cli {

int runScreenCommand(std::string_view offTerminal, const std::function<void(const ScreenCommandContext&)>& session) {
    if (!Screen::available()) {
        writeError(std::string(offTerminal) + "\n");
        return 1;
    }
    const std::unique_ptr<InterruptWatch> interrupts = watchInterruptSignals();
    auto unrecorded = std::make_shared<std::vector<std::string>>();
    try {
        session({*interrupts, unrecorded});
    } catch (const CancellationError&) {
        if (interrupts->receivedSignal() == 0) throw;
    }
    // The terminal is the user's again by now: what could not be recorded
    // and was not shown on the screen.
    for (const std::string& line : *unrecorded)
        writeError(line + "\n");
    return interrupts->receivedSignal() != 0 ? statusAfterSignal(interrupts->receivedSignal()) : 0;
}

} // namespace unbulk::cli
