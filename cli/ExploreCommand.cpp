#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "Handlers.hpp"
#include "Removal.hpp"
#include "Operations/Engines.hpp"
#include "Output.hpp"
#include "Platform/CurrentDirectory.hpp"
#include "Platform/FileSystem.hpp"
#include "Platform/InterruptSignals.hpp"
#include "ProgressLine.hpp"
#include "SpaceLens/SpaceLensEngine.hpp"
#include "Support/Cancellation.hpp"
#include "Support/Paths.hpp"
#include "tui/ExploreSession.hpp"
#include "tui/ExploreView.hpp"
#include "tui/Screen.hpp"

namespace unbulk::cli {

int handleExplore(const Environment& environment, const Arguments& args) {
    if (!Screen::available()) {
        writeError("explore needs a terminal; use 'unbulk spacelens' instead\n");
        return 1;
    }
    // Before any other thread exists, so that the measure's workers do not
    // take the signals either.
    const std::unique_ptr<InterruptWatch> interrupts = watchInterruptSignals();
    auto unrecorded = std::make_shared<std::vector<std::string>>();
    try {
        // The path as spacelens takes it: as typed, a relative one against
        // the working directory.
        const std::string homePath = environment.homeURL.path();
        const std::string path = optionValue(args, "--path").value_or(homePath);
        const std::string absolute = paths::isAbsolute(path) ? path : paths::appending(currentDirectory(), path);

        const SpaceLensEngine engine = Engines::spaceLensEngine(environment);
        // One level opened: the entries of the directory, each measured whole
        // (in parallel, by the engine).
        const StopToken stop = interrupts->token();
        auto measure = [&engine, stop](const std::string& directory) {
            return engine.scanDirectory(FileURL(directory, true), 1, stop);
        };
        SpaceNode root = [&] {
            ProgressLine progress(true);
            return engine.scanDirectory(FileURL(absolute, true), 1, stop, progress.countingItems());
        }();
        if (!root.isDirectory) throw std::runtime_error("'" + path + "' is not a directory.");

        // A removal that was cut short is logged now, as clean does.
        const auto pipeline = Engines::trashPipeline(environment, screenNotice(unrecorded));
        ExploreSession session(ExploreView(std::move(root), measure), pipeline, homePath, *interrupts, unrecorded);
        Screen screen;
        session.run(screen);
    } catch (const CancellationError&) {
        if (interrupts->receivedSignal() == 0) throw;
    }
    // The terminal is the user's again by now. What could not be recorded
    // and was not shown on the screen:
    for (const std::string& line : *unrecorded) writeError(line + "\n");
    return interrupts->receivedSignal() != 0 ? statusAfterSignal(interrupts->receivedSignal()) : 0;
}

} // namespace unbulk::cli
