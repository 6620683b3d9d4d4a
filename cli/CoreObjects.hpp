#pragma once

#include <memory>

#include "Platform/FileSystem.hpp"
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

} // namespace unbulk::cli
