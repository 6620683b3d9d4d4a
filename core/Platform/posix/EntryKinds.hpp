#pragma once

// How a directory entry's kind is read, from its d_type or from its mode,
// and when an entry must be examined with lstat.

#include <string_view>

#include <dirent.h>
#include <sys/stat.h>

#include "Platform/FileSystem.hpp"

namespace unbulk::posix {

inline FileKind kindFromDirent(unsigned char type) {
    switch (type) {
    case DT_REG: return FileKind::regular;
    case DT_DIR: return FileKind::directory;
    case DT_LNK: return FileKind::symbolicLink;
    default: return FileKind::other;
    }
}

inline FileKind kindFromMode(mode_t mode) {
    if (S_ISREG(mode)) return FileKind::regular;
    if (S_ISDIR(mode)) return FileKind::directory;
    if (S_ISLNK(mode)) return FileKind::symbolicLink;
    return FileKind::other;
}

// Whether a walk that wants `wanted` must lstat an entry the directory read
// typed as `type` (an unknown type is always examined).
inline bool needsStatus(WalkStatus wanted, unsigned char type) {
    switch (wanted) {
    case WalkStatus::all: return true;
    case WalkStatus::regularFiles: return type == DT_REG || type == DT_UNKNOWN;
    case WalkStatus::allButDirectories: return type != DT_DIR;
    case WalkStatus::none: return type == DT_UNKNOWN;
    }
    return true;
}

// The extension of a name without allocating: what follows its last dot,
// when the dot is neither first nor last.
inline std::string_view extensionOf(std::string_view name) {
    const std::size_t dot = name.rfind('.');
    if (dot == std::string_view::npos || dot == 0 || dot + 1 == name.size()) return {};
    return name.substr(dot + 1);
}

} // namespace unbulk::posix
