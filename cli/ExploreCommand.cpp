#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

#include "Handlers.hpp"
#include "Operations/Engines.hpp"
#include "Output.hpp"
#include "Platform/CurrentDirectory.hpp"
#include "Platform/FileSystem.hpp"
#include "Platform/InterruptSignals.hpp"
#include "ProgressLine.hpp"
#include "Removal.hpp"
#include "ScreenCommand.hpp"
#include "SpaceLens/SpaceLensEngine.hpp"
#include "Support/Cancellation.hpp"
#include "Support/Paths.hpp"
#include "tui/ExploreSession.hpp"
#include "tui/ExploreView.hpp"
#include "tui/Screen.hpp"

namespace unbulk::cli {

int handleExplore(const Environment& environment, const Arguments& args) {
    return runScreenCommand(
        "explore needs a terminal; use 'unbulk spacelens' instead", [&](const ScreenCommandContext& context) {
            // The path as spacelens takes it: as typed, a relative one against
            // the working directory.
            const std::string homePath = environment.homeURL.path();
            const std::string path = optionValue(args, "--path").value_or(homePath);
            const std::string absolute = paths::isAbsolute(path) ? path : paths::appending(currentDirectory(), path);

            const SpaceLensEngine engine = Engines::spaceLensEngine(environment);
            // One level opened: the entries of the directory, each measured whole
            // (in parallel, by the engine).
            const StopToken stop = context.interrupts.token();
            auto measure = [&engine, stop](const std::string& directory) {
                return engine.scanDirectory(FileURL(directory, true), 1, stop);
            };
            SpaceNode root = [&] {
                ProgressLine progress(true);
                return engine.scanDirectory(FileURL(absolute, true), 1, stop, progress.countingItems());
            }();
            if (!root.isDirectory) throw std::runtime_error("'" + path + "' is not a directory.");

            // A removal that was cut short is logged now, as clean does.
            const auto pipeline = Engines::trashPipeline(environment, screenNotice(context.unrecorded));
            ExploreSession session(ExploreView(std::move(root), measure), pipeline, homePath, context.interrupts,
                                   context.unrecorded);
            Screen screen;
            session.run(screen);
        });
}

} // namespace unbulk::cli
