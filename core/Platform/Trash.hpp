#pragma once

#include <memory>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

#include "Platform/FileSystem.hpp"
#include "Platform/PlatformError.hpp"

namespace unbulk {

// What a move to the Trash did.
struct TrashMove {
    // Where the item lies now, when it moved and that is known.
    std::optional<std::string> landedPath;
    // Set when the item did not move; it is then where it was. It carries the
    // platform's own sentence where the platform words its errors.
    PlatformError error;
    // The Trash folder that stopped the move, when one did: it was a link,
    // no directory, or not the user's own. Nothing was written anywhere.
    std::string unusableTrashDirectory;

    bool moved() const { return !error.code; }
};

// The user's Trash. Moving an item there is the reversible way of removing
// it: the desktop's own Trash tools can put it back.
class Trash {
public:
    virtual ~Trash() = default;

    // Moves the item at `path` (a file, a directory or a link, never followed)
    // to the Trash. `path` is absolute with no link in its directories; the
    // move acts in the parent opened without following links, on a name that
    // must still hold `expected`, or fails with changedSinceCheckedError();
    // then `anchorCheck` is asked about the way there, and may refuse it.
    virtual TrashMove trashItem(const std::string& path, const Identity& expected, const AnchorCheck& anchorCheck) = 0;
};

// Where the Trash of the user whose home is `homePath` lies. Linux:
// <home>/.local/share/Trash, and $XDG_DATA_HOME/Trash when that is set to an
// absolute path. macOS: <home>/.Trash. (The Trash folders of other disks are
// known by their names, .Trash, .Trashes and .Trash-<uid>.)
std::vector<std::string> homeTrashDirectories(const std::string& homePath);

// Linux: the freedesktop.org Trash specification 1.0 (the home trash under
// $XDG_DATA_HOME/Trash, $topdir/.Trash-$uid on other file systems).
// macOS: NSFileManager's trashItemAtURL:resultingItemURL:error:.
std::shared_ptr<Trash> makeDefaultTrash();

} // namespace unbulk
