#include "Safety/TCCIsolationHelper.hpp"

#import <Foundation/Foundation.h>

#include <cerrno>

namespace unbulk::TCCIsolationHelper {
namespace {

bool isPOSIXPermissionError(NSError* error) {
    return [error.domain isEqualToString:NSPOSIXErrorDomain] && (error.code == EPERM || error.code == EACCES);
}

} // namespace

// Cocoa reports a refusal as its own "no permission to read" code or as the
// POSIX error beneath, directly or wrapped once under NSUnderlyingErrorKey.
// Only that one level is looked at, and only a POSIX error counts there.
bool isPermissionOrTCCError(NSError* error) {
    if (error == nil) return false;
    if ([error.domain isEqualToString:NSCocoaErrorDomain] && error.code == NSFileReadNoPermissionError) return true;
    if (isPOSIXPermissionError(error)) return true;
    id underlying = error.userInfo[NSUnderlyingErrorKey];
    if (![underlying isKindOfClass:[NSError class]]) return false;
    NSError* underlyingError = underlying;
    return isPOSIXPermissionError(underlyingError);
}

} // namespace unbulk::TCCIsolationHelper
