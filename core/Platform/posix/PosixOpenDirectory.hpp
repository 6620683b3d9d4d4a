#pragma once

#include <memory>
#include <string>

#include "Platform/FileSystem.hpp"

namespace unbulk::posix {

// Opens `name` relative to the open directory `directoryFd` (AT_FDCWD for
// a path of its own), a link there followed, for reading one level deep.
// `call` and `path` name what failed; nothing on failure.
std::unique_ptr<OpenDirectory> openDirectoryAt(int directoryFd, const std::string& name, std::string_view call,
                                               const std::string& path, PlatformError& error);

} // namespace unbulk::posix
