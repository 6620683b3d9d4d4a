// The user's Trash through the file manager, which knows the Trash of every
// volume and records where each item came from ("Put Back"). Built with ARC.

#import <Foundation/Foundation.h>

#include <memory>
#include <string>

#include <errno.h>
#include <sys/stat.h>

#include "Platform/Trash.hpp"

namespace unbulk {
namespace {

// An error of NSCocoaErrorDomain. The category holds no state: its message
// is the description Foundation gives the code itself, made afresh each time.
class CocoaErrorCategory final : public std::error_category {
public:
    const char* name() const noexcept override { return "NSCocoaErrorDomain"; }
    std::string message(int code) const override {
        @autoreleasepool {
            NSError* error = [NSError errorWithDomain:NSCocoaErrorDomain code:code userInfo:nil];
            const char* text = error.localizedDescription.UTF8String;
            return text ? std::string(text) : std::string("Cocoa error ") + std::to_string(code);
        }
    }
};

const CocoaErrorCategory& cocoaErrorCategory() {
    static const CocoaErrorCategory category;
    return category;
}

// POSIX errors keep their number; Cocoa errors keep theirs in the category
// above; an error of any other domain is told by the POSIX error under it, or
// else as a plain I/O error.
std::error_code errorCodeOf(NSError* error) {
    if (error == nil) return {EIO, std::generic_category()};
    const int code = static_cast<int>(error.code);
    if ([error.domain isEqualToString:NSPOSIXErrorDomain]) return {code, std::generic_category()};
    if ([error.domain isEqualToString:NSCocoaErrorDomain]) return {code, cocoaErrorCategory()};
    NSError* underlying = error.userInfo[NSUnderlyingErrorKey];
    if ([underlying isKindOfClass:[NSError class]] && [underlying.domain isEqualToString:NSPOSIXErrorDomain]) {
        return {static_cast<int>(underlying.code), std::generic_category()};
    }
    return {EIO, std::generic_category()};
}

class FoundationTrash final : public Trash {
public:
    bool trashItem(const std::string& path, std::optional<std::string>& landedPath,
                   std::error_code& error) override {
        landedPath.reset();
        error.clear();
        if (path.empty()) {
            error = {ENOENT, std::generic_category()};
            return false;
        }
        // The directory flag comes from lstat, never from following a link:
        // a link to a directory made into "link/" would name its target.
        struct stat status {};
        const bool isDirectory = ::lstat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
        @autoreleasepool {
            NSURL* url = [NSURL fileURLWithFileSystemRepresentation:path.c_str()
                                                        isDirectory:isDirectory
                                                      relativeToURL:nil];
            NSURL* resulting = nil;
            NSError* failure = nil;
            if (![NSFileManager.defaultManager trashItemAtURL:url resultingItemURL:&resulting error:&failure]) {
                error = errorCodeOf(failure);
                return false;
            }
            if (resulting != nil && resulting.isFileURL) {
                const char* landed = resulting.fileSystemRepresentation;
                if (landed && *landed) landedPath = std::string(landed);
            }
            return true;
        }
    }
};

} // namespace

std::shared_ptr<Trash> makeDefaultTrash() { return std::make_shared<FoundationTrash>(); }

} // namespace unbulk
