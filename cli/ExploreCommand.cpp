#include <memory>
#include <stdexcept>
#include <string>

#include "CoreObjects.hpp"
#include "Handlers.hpp"
#include "Output.hpp"
#include "Platform/CurrentDirectory.hpp"
#include "Platform/FileSystem.hpp"
#include "ProgressLine.hpp"
#include "SpaceLens/SpaceLensEngine.hpp"
#include "Support/Cancellation.hpp"
#include "Support/Paths.hpp"
#include "tui/ExploreSession.hpp"
#include "tui/ExploreView.hpp"
#include "tui/Screen.hpp"
#include "tui/SignalWatch.hpp"

namespace unbulk::cli {

int handleExplore(const Arguments& args) {
    if (!Screen::available()) {
        writeError("explore needs a terminal; use 'unbulk spacelens' instead\n");
        return 1;
    }
    SignalWatch signals;
    try {
        // The path as spacelens takes it: as typed, a relative one against
        // the working directory.
        const std::string homePath = userHomeURL().path();
        const std::string path = optionValue(args, "--path").value_or(homePath);
        const std::string absolute = paths::isAbsolute(path) ? path : paths::appending(currentDirectory(), path);

        const std::shared_ptr<FileSystem> fileSystem = makeDefaultFileSystem();
        const SpaceLensEngine engine(fileSystem);
        // One level opened: the entries of the directory, each measured whole
        // (in parallel, by the engine).
        const StopToken stop = signals.token();
        auto measure = [&engine, stop](const std::string& directory) {
            return engine.scanDirectory(FileURL(directory, true), 1, stop);
        };
        SpaceNode root = [&] {
            ProgressLine progress(true);
            return engine.scanDirectory(FileURL(absolute, true), 1, stop, progress.countingItems());
        }();
        if (!root.isDirectory) throw std::runtime_error("'" + path + "' is not a directory.");

        ExploreSession session(ExploreView(std::move(root), measure), fileSystem, homePath, signals);
        Screen screen;
        session.run(screen);
    } catch (const CancellationError&) {
        if (signals.caught() == 0) throw;
    }
    if (signals.caught() != 0) signals.endProcessWithCaughtSignal();
    return 0;
}

} // namespace unbulk::cli
