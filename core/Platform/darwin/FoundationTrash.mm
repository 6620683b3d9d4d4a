// The user's Trash through the file manager, which knows the Trash of every
// volume and records where each item came from ("Put Back"). Built with ARC.

#import <Foundation/Foundation.h>

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <errno.h>
#include <fcntl.h>
#include <sys/stat.h>

#include "Platform/Trash.hpp"
#include "Platform/darwin/FoundationStrings.hpp"
#include "Platform/posix/AnchoredDirectory.hpp"
#include "Platform/posix/PosixFileSystem.hpp"
#include "Support/Paths.hpp"

namespace unbulk {
namespace {

// The NSError as Foundation words it: its localizedDescription names the
// item and the reason, which no error number can carry.
PlatformError platformErrorOf(NSError* _Nullable error) {
    if (error == nil) {
        return {{EIO, std::generic_category()}, "The file manager gave no reason for refusing the move to the Trash."};
    }
    std::optional<long> underlyingPOSIXCode;
    id underlying = error.userInfo[NSUnderlyingErrorKey];
    if ([underlying isKindOfClass:[NSError class]]) {
        NSError* underlyingError = underlying;
        if ([underlyingError.domain isEqualToString:NSPOSIXErrorDomain]) {
            underlyingPOSIXCode = static_cast<long>(underlyingError.code);
        }
    }
    return PlatformError::fromDomain(foundation::utf8(error.domain).value_or(""), static_cast<long>(error.code),
                                     foundation::utf8(error.localizedDescription).value_or(""), underlyingPOSIXCode);
}

class FoundationTrash final : public Trash {
public:
    TrashMove trashItem(const std::string& path, const Identity& expected, const AnchorCheck& anchorCheck) override {
        TrashMove move;
        // The file manager takes a path, not a descriptor. Right before the
        // call, the parent is opened without following a link on the way and
        // the name in it must still hold the item that was checked. What
        // remains is the moment between this check and the file manager's
        // own lookup of the path: a swap that lands exactly there is not
        // caught here. The Trash only moves, so even then nothing is deleted.
        const auto anchored = posix::openAnchoredItem(path, expected, anchorCheck, "trashItemAtURL", move.error);
        if (!anchored) return move;
        const struct stat& status = anchored->status;
        // The directory flag comes from lstat, never from following a link:
        // a link to a directory made into "link/" would name its target.
        const bool isDirectory = S_ISDIR(status.st_mode);
        @autoreleasepool {
            NSURL* url = foundation::fileURL(path, isDirectory);
            if (url == nil) {
                move.error.code = {EINVAL, std::generic_category()};
                move.error.description =
                    "Could not move '" + path + "' to the Trash: the file manager cannot make a URL of this path.";
                return move;
            }
            NSURL* resulting = nil;
            NSError* refusal = nil;
            if (![NSFileManager.defaultManager trashItemAtURL:url resultingItemURL:&resulting error:&refusal]) {
                move.error = platformErrorOf(refusal);
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
