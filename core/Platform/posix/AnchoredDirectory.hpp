#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <sys/stat.h>

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
FdGuard openDirectoryWithoutLinks(const std::string& absolutePath, PlatformError& error,
                                  std::vector<AnchoredStep>* steps = nullptr);

// An item as a removal finds it right before it acts: its parent, opened
// without following a link, its name there and its lstat.
struct AnchoredItem {
    FdGuard parent;
    std::string name;
    struct stat status {};
};

// The one way to an item that is about to be removed or moved: the path
// must be absolute with a last component that names an entry (not "/", "."
// or ".."), the parent is opened without following a link (a link met on
// the way means the path changed since it was checked), what the name
// holds must still be `expected`, and then `anchorCheck`, when there is
// one, is asked about the way. Nothing on failure, with `error` saying why:
// changedSinceCheckedError() for a swap, the check's own error for a
// refusal, else the call that failed. `action` names the call that will act
// on the item, for the error of a path it cannot take.
std::optional<AnchoredItem> openAnchoredItem(const std::string& path, const Identity& expected,
                                             const AnchorCheck& anchorCheck, std::string_view action,
                                             PlatformError& error);

} // namespace unbulk::posix
