#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "Platform/FileSystem.hpp"
#include "Support/FileURL.hpp"

namespace unbulk {

// What a CACHEDIR.TAG file says about its directory. A tag that is there but
// malformed is an info with isValid false, so a caller can tell a bad tag
// from none.
struct CacheDirTagInfo {
    FileURL tagFileURL;
    FileURL directoryURL;
    bool isValid = false;
    std::optional<std::string> applicationComment; // the first "#" line, without the "#"

    friend bool operator==(const CacheDirTagInfo&, const CacheDirTagInfo&) = default;
};

// Reads and writes cache directory tags, the tool-neutral way for a program to
// declare a directory a disposable cache. Reading never throws; only writing
// does, with the file system's error.
namespace CacheDirTagDetector {

inline constexpr std::string_view tagFileName = "CACHEDIR.TAG";
inline constexpr std::string_view standardSignature = "8a477f597d28d172789f06886806bc55";
inline constexpr std::string_view signatureHeader = "Signature: 8a477f597d28d172789f06886806bc55";

// Only this much of a tag is ever read; a comment further down is not seen.
inline constexpr std::size_t readLimit = 512;

// Nothing when the directory has no tag or the tag cannot be opened.
std::optional<CacheDirTagInfo> detectTag(const FileURL& directory, const FileSystem& fileSystem);

// True only for a tag that is there and valid.
bool isCacheDirectory(const FileURL& directory, const FileSystem& fileSystem);

// Replaces the directory's tag atomically: the signature line, and with an
// application name three comment lines naming it and the format. Throws
// PlatformFailure (a std::system_error) when the write fails.
void writeTag(const FileURL& directory, const std::optional<std::string>& applicationName, FileSystem& fileSystem);

} // namespace CacheDirTagDetector
} // namespace unbulk
