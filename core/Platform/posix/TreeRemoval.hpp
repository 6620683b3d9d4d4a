#pragma once

#include <string>

#include "Platform/FileSystem.hpp"
#include "Platform/posix/AnchoredDirectory.hpp"

namespace unbulk::posix {

// Removes an anchored item for good, relative to its parent's descriptor: a
// file, a link or anything else by its name; a directory with everything
// below it, files as they are met and directories once their last entry has
// gone, nothing followed. `check` is asked about every entry below the item
// first; a directory it leaves in place, or one that is a mount of its own
// (where the system tells), stays whole, and so, in the end, do the
// directories above it. True when all of it is gone; `report` says what
// went in every case, and where it stopped.
bool removeAnchoredItem(const AnchoredItem& item, const std::string& path, const RemovalCheck& check,
                        RemovalReport& report, PlatformError& error);

} // namespace unbulk::posix
