#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>

#include <sys/types.h>

#include "Platform/Clock.hpp"
#include "Platform/Trash.hpp"
#include "Support/Dates.hpp"

namespace unbulk {

// The Trash as the freedesktop.org Trash specification 1.0 lays it out, so
// that the desktop's file manager and trash-cli list and restore what we put
// there.
//
// An item on the file system of the home trash ($dataHome/Trash) goes there;
// an item on another file system goes to the trash at the top of that file
// system: $topdir/.Trash/$uid when $topdir/.Trash is a real directory with
// the sticky bit, otherwise $topdir/.Trash-$uid. Every missing trash
// directory is created with mode 0700. The item is only ever renamed, never
// copied: an item that cannot be renamed into its trash stays where it is.
//
// The trash directory, its files/ and info/ must each be a real directory
// owned by the user, opened without following a link; otherwise the item
// stays where it is, the move names the directory at fault, and nothing is
// written. So the item always lands where the landed path says.
//
// Names in the trash: the item's own name when free, otherwise the name with
// ".2", ".3", ... appended to the whole name ("report.pdf.2"), which keeps
// directories and dot files alike. A name is reserved by creating its
// info/<name>.trashinfo exclusively, and released again when the move fails.
class FreedesktopTrash final : public Trash {
public:
    // `dataHome` is the directory that holds the home trash ("Trash" below
    // it); `clock` gives the deletion dates.
    explicit FreedesktopTrash(std::string dataHome, Clock clock = systemClock());

    TrashMove trashItem(const std::string& path, const Identity& expected, const AnchorCheck& anchorCheck) override;

    const std::string& homeTrashDirectory() const { return homeTrash_; }

    // $XDG_DATA_HOME when it is an absolute path, otherwise <home>/.local/share.
    static std::string defaultDataHome();

    // The whole .trashinfo file for an item: `path` is what the Path key
    // holds before percent-encoding (absolute for the home trash, relative to
    // $topdir for a top directory trash).
    static std::string trashInfoContents(std::string_view path, Date deletionDate);

    // "YYYY-MM-DDThh:mm:ss" in the local time zone (TZ as it is now).
    static std::string localDeletionDate(Date date);

private:
    std::string homeTrash_;
    Clock clock_;
};

} // namespace unbulk
