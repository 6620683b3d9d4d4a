#pragma once

#include <memory>

#include "Platform/FileSystem.hpp"
#include "Safety/TrashPipeline.hpp"
#include "Scanner/DeepScanEngine.hpp"
#include "Support/FileURL.hpp"

namespace unbulk::cli {

// What every handler builds its short-lived core objects from.
FileURL userHomeURL();

// The engine of scan and clean: the user's home, the given file system and
// every other collaborator at its default, with the machine's own thermal and
// power state. No rule registry is passed, so a scan from the command line
// has no anomaly or rule stage.
DeepScanEngine makeScanEngine(std::shared_ptr<FileSystem> fileSystem);

// The removal road of clean, review, explore and uninstaller remove: the
// default Trash and the audit log at its default place. An operation that
// could not be recorded there is told to `onUnrecorded`, by default one line
// on standard error each time (a full-screen command shows it on its screen
// instead).
std::shared_ptr<const TrashPipeline> makeTrashPipeline(const std::shared_ptr<FileSystem>& fileSystem,
                                                       TrashPipeline::UnrecordedHandler onUnrecorded = {});

// The exit status of a command that a signal stopped: 128 + its number.
inline int statusAfterSignal(int signal) { return 128 + signal; }

} // namespace unbulk::cli
