// The user's Trash through the file manager, which knows the Trash of every
// volume and records where each item came from ("Put Back"). Built with ARC.

#import <Foundation/Foundation.h>

#include <memory>
#include <string>
#include <vector>

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>

#include "Platform/Trash.hpp"
#include "Platform/posix/AnchoredDirectory.hpp"
#include "Platform/posix/PosixFileSystem.hpp"
#include "Support/Paths.hpp"

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
    TrashMove trashItem(const std::string& path, const Identity& expected, const AnchorCheck& anchorCheck) override {
        TrashMove move;
        std::error_code& error = move.error;
        const std::string name = paths::lastComponent(path);
        if (!paths::isAbsolute(path) || name.empty() || name == "/" || posix::containsNul(path)) {
            error = {EINVAL, std::generic_category()};
            return move;
        }
        // The file manager takes a path, not a descriptor. Right before the
        // call, the parent is opened without following a link on the way and
        // the name in it must still hold the item that was checked. What
        // remains is the moment between this check and the file manager's
        // own lookup of the path: a swap that lands exactly there is not
        // caught here. The Trash only moves, so even then nothing is deleted.
        std::vector<AnchoredStep> steps;
        posix::FdGuard parent = posix::openDirectoryWithoutLinks(paths::deletingLastComponent(path), error,
                                                                 anchorCheck ? &steps : nullptr);
        if (parent.get() < 0) {
            if (error.value() == ELOOP || error.value() == ENOTDIR) error = changedSinceCheckedError();
            return move;
        }
        struct stat status {};
        if (::fstatat(parent.get(), name.c_str(), &status, AT_SYMLINK_NOFOLLOW) != 0) {
            error = {errno, std::generic_category()};
            return move;
        }
        if (Identity{static_cast<std::uint64_t>(status.st_dev), static_cast<std::uint64_t>(status.st_ino)} !=
            expected) {
            error = changedSinceCheckedError();
            return move;
        }
        if (anchorCheck) {
            steps.push_back(AnchoredStep{path, posix::fileStatusOf(status)});
            if (const std::error_code refused = anchorCheck(steps)) {
                error = refused;
                return move;
            }
        }
        // The directory flag comes from lstat, never from following a link:
        // a link to a directory made into "link/" would name its target.
        const bool isDirectory = S_ISDIR(status.st_mode);
        @autoreleasepool {
            NSURL* url = [NSURL fileURLWithFileSystemRepresentation:path.c_str()
                                                        isDirectory:isDirectory
                                                      relativeToURL:nil];
            NSURL* resulting = nil;
            NSError* failure = nil;
            if (![NSFileManager.defaultManager trashItemAtURL:url resultingItemURL:&resulting error:&failure]) {
                error = errorCodeOf(failure);
                return move;
            }
            if (resulting != nil && resulting.isFileURL) {
                const char* landed = resulting.fileSystemRepresentation;
                if (landed && *landed) move.landedPath = std::string(landed);
            }
            return move;
        }
    }
};

} // namespace

std::vector<std::string> homeTrashDirectories(const std::string& homePath) {
    return {paths::appending(homePath, ".Trash")};
}

std::shared_ptr<Trash> makeDefaultTrash() { return std::make_shared<FoundationTrash>(); }

} // namespace unbulk
