#pragma once

#include <array>
#include <optional>
#include <string_view>

#include "Platform/FileSystem.hpp"
#include "Models/RuleDefinition.hpp"
#include "Safety/SandboxSecurityError.hpp"
#include "Support/FileURL.hpp"

// The last word on whether a path may be touched: every removal and every rule
// pattern passes here first. Each function returns when the input is
// acceptable and throws SandboxSecurityError when it is not; nothing loosens
// the checks. Stateless, so any thread may call any of them.
//
// A path or pattern that holds a NUL is refused before anything else: the
// kernel reads a path only up to its first NUL, so the text judged here
// would not be the path acted on.
//
// unbulk's own folder (~/.unbulk: the audit log and the rules) and every
// Trash are refused with all they hold: the user's Trash, and any folder
// named .Trash, .Trashes or .Trash-<anything> wherever it lies, as the
// Trash of a mounted disk is. Removing them would erase the history, or
// everything that can still be put back.
namespace unbulk::SandboxValidator {

// Checked in a fixed order of their own; see checkForbiddenSystemPrefixes.
// This table is the Mac's and applies on every platform.
inline constexpr std::array<std::string_view, 14> forbiddenSystemPrefixes{
    "/System", "/usr", "/bin", "/sbin", "/Library", "/etc", "/private/etc", "/private/var/db",
    "/dev", "/private", "/private/var", "/var", "/Users", "/Volumes",
};

// Relative to the home directory; matched without regard to case.
inline constexpr std::array<std::string_view, 10> forbiddenUserDirectories{
    "Documents", "Desktop", "Pictures", "Music", "Movies", ".ssh", ".gnupg", "Library/Keychains", ".cargo/bin",
    ".local/bin",
};

#if defined(__linux__)
// Home directories of other users, refused unless the path lies in our own.
inline constexpr std::array<std::string_view, 2> linuxUserRoots{"/home", "/root"};
// Linux's own system places, refused on Linux beside the Mac's table. The
// two differ on purpose, each naming what its system keeps there: the
// libraries of systems without a merged /usr (/lib, /lib32, /lib64,
// /libx32), the kernel's and the boot's file systems, and the mount points
// of other disks (what /Volumes is on the Mac). /var is refused whole here,
// as Linux has no /var/folders of per-user caches.
inline constexpr std::array<std::string_view, 17> linuxSystemPrefixes{
    "/bin", "/boot", "/dev",  "/etc", "/lib", "/lib32", "/lib64", "/libx32", "/proc",
    "/run", "/sbin", "/sys",  "/usr", "/var", "/mnt",   "/media", "/srv",
};
#endif

// A path as a user or a caller gives it: "~" and "~/" are read against the
// home, a relative path against the current directory. Symbolic links along
// the path are resolved through fileSystem, and the place they lead to must
// pass as well.
void validatePath(std::string_view path, const FileURL& homeURL, const FileSystem& fileSystem);

// validatePath on the URL's path (for an item's URL and a candidate's alike).
void validateURL(const FileURL& url, const FileURL& homeURL, const FileSystem& fileSystem);

// A rule pattern, joined to baseDirectory when one is given (and then with no
// tilde handling). A pattern without wildcards is judged as a path in full;
// one with wildcards is judged on its static prefix, without link resolution.
void validatePattern(std::string_view pattern, const std::optional<FileURL>& baseDirectory, const FileURL& homeURL,
                     const FileSystem& fileSystem);

// Every pattern of the rule in order, without a base directory; the first
// failure is thrown. Excluded patterns are not judged.
void validateRule(const RuleDefinition& rule, const FileURL& homeURL, const FileSystem& fileSystem);

} // namespace unbulk::SandboxValidator
