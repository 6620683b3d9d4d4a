#pragma once

#include <string_view>

#include "Platform/FileSystem.hpp"
#include "Support/FileURL.hpp"

// Whether this process has been granted Full Disk Access, and the way to the
// setting that grants it. Only the fda command asks: a scan finds out place
// by place what it may read.
namespace unbulk::FDAChecker {

// Looks at ~/Library/Safari, ~/Library/Application Support/MobileSync and
// ~/Library/Mail in this order, and the first that exists decides: a listing
// that works means granted, one that fails for any reason means not. When
// none exists there is nothing guarded to be refused, and the answer is yes.
bool hasFullDiskAccess(const FileURL& homeURL, const FileSystem& fileSystem);

// The System Settings pane for Full Disk Access. It is not a file URL, so it
// is kept as its text, which is also what `open` is given.
constexpr std::string_view settingsURL() {
    return "x-apple.systempreferences:com.apple.preference.security?Privacy_AllFiles";
}

// Opens settingsURL() with the system's handler (the Mac's /usr/bin/open) and
// does not wait for it. True when the launch worked; false on Linux, where
// nothing can open the Mac's settings.
bool openSystemSettings();

} // namespace unbulk::FDAChecker
