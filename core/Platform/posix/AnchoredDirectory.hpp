#pragma once

#include <string>
#include <system_error>

#include <vector>

#include "Platform/FileSystem.hpp"
#include "Platform/posix/Descriptors.hpp"

namespace unbulk::posix {

// Opens the directory at an absolute path one component at a time from "/",
// never following a symbolic link on the way (openat2 with
// RESOLVE_NO_SYMLINKS where Linux has it, else openat with O_NOFOLLOW per
// component). Whatever is then done relative to the descriptor happens in
// that very directory, even if a component of the path is swapped for a link
// a moment later. A component that is a link now fails with ELOOP (or
// ENOTDIR); the caller decides what that means.
//
// With `steps`, each directory opened on the way ("/" first, the directory
// itself last) is added to it with its fstat, so that the caller can judge
// the way it took (which file systems it crossed) by what it really opened.
FdGuard openDirectoryWithoutLinks(const std::string& absolutePath, std::error_code& error,
                                  std::vector<AnchoredStep>* steps = nullptr);

} // namespace unbulk::posix
