#pragma once

#include <array>
#include <string_view>

#include "Models/SpaceNode.hpp"
#include "Platform/FileTypes.hpp"
#include "Support/FileURL.hpp"

// Sorts a file into one of seven broad categories by its name, then its
// extension, and last by what the system's type registry says.
namespace unbulk::FileCategorizer {

// "dSYM" keeps its capitals while extensions are looked up in lower case, so
// that entry never matches; it stands as it always has. "dylib" is in two
// tables, and the order of categorize() makes it a developer artifact.
inline constexpr std::array<std::string_view, 34> developerExtensions{
    "swift", "c",   "cpp",  "h",     "hpp",  "m",           "mm",        "rs",      "go",  "py",        "js",   "ts",
    "jsx",   "tsx", "json", "yaml",  "yml",  "toml",        "xml",       "plist",   "sql", "sh",        "bash", "zsh",
    "lock",  "o",   "a",    "dylib", "dSYM", "xcworkspace", "xcodeproj", "pbxproj", "nib", "storyboard"};
inline constexpr std::array<std::string_view, 11> archiveExtensions{"zip", "tar", "gz", "tgz", "bz2", "tbz2",
                                                                    "xz",  "txz", "7z", "rar", "zst"};
inline constexpr std::array<std::string_view, 9> diskImageExtensions{
    "dmg", "iso", "img", "sparseimage", "sparsebundle", "raw", "qcow2", "vmdk", "vdi"};
inline constexpr std::array<std::string_view, 24> mediaExtensions{
    "mp3",  "wav", "aac", "flac", "m4a", "ogg", "aiff", "mp4",  "mov",  "m4v", "mkv", "avi",
    "webm", "wmv", "jpg", "jpeg", "png", "gif", "heic", "webp", "tiff", "svg", "bmp", "psd"};
inline constexpr std::array<std::string_view, 16> documentExtensions{
    "pdf",     "doc",     "docx", "xls", "xlsx", "ppt",      "pptx", "pages",
    "numbers", "keynote", "txt",  "rtf", "md",   "markdown", "csv",  "epub"};
inline constexpr std::array<std::string_view, 7> binaryExtensions{"app",    "framework", "bundle", "kext",
                                                                  "plugin", "dylib",     "so"};

FileCategory categorize(const FileURL& url, const FileTypes& fileTypes);
// By the last path component alone, which is all the tests above look at.
FileCategory categorize(std::string_view fileName, const FileTypes& fileTypes);

} // namespace unbulk::FileCategorizer
