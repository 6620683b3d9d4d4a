#pragma once

// Text and paths across the line between std::string and Foundation, where
// Foundation answers nil or NULL instead of failing: stringWithUTF8String:
// for bytes that are not UTF-8, UTF8String for a string it cannot give as
// UTF-8. Handing such a nil on (fileURLWithPath:nil raises) or building a
// std::string of NULL would end the process, so these answer nothing instead.

#import <Foundation/Foundation.h>

#include <optional>
#include <string>

#include <sys/stat.h>

namespace unbulk::foundation {

// nil for bytes that are not UTF-8.
inline NSString* _Nullable string(const std::string& text) {
    return [[NSString alloc] initWithBytes:text.data() length:text.size() encoding:NSUTF8StringEncoding];
}

// Nothing for nil or for a string Foundation cannot give as UTF-8.
inline std::optional<std::string> utf8(NSString* _Nullable text) {
    const char* bytes = text.UTF8String;
    if (bytes == nullptr) return std::nullopt;
    return std::string(bytes);
}

// A file URL for a path as the file system spells it, byte for byte, so a
// name that is not UTF-8 still names its file. nil if Foundation makes none.
inline NSURL* _Nullable fileURL(const std::string& path, bool isDirectory) {
    if (path.empty() || path.find('\0') != std::string::npos) return nil;
    return [NSURL fileURLWithFileSystemRepresentation:path.c_str() isDirectory:isDirectory relativeToURL:nil];
}

// The same, a directory if what the path leads to is one (as fileURLWithPath: decides).
inline NSURL* _Nullable fileURL(const std::string& path) {
    struct stat status {};
    return fileURL(path, ::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode));
}

} // namespace unbulk::foundation
