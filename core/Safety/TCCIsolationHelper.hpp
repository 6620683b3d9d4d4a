#pragma once

#include <string>
#include <system_error>

#if defined(__OBJC__)
@class NSError;
#endif

namespace unbulk::TCCIsolationHelper {

// True for a refusal by permissions or by the privacy control: EPERM or
// EACCES in the POSIX (generic or system) category.
bool isPermissionOrTCCError(const std::error_code& error);

#if defined(__OBJC__)
// The same test on a Cocoa error: NSCocoaErrorDomain's fileReadNoPermission,
// NSPOSIXErrorDomain EPERM/EACCES, or such a POSIX error one level down
// under NSUnderlyingErrorKey.
bool isPermissionOrTCCError(NSError* error);
#endif

// "Full Disk Access is required to scan <label> at <path>. Grant Full Disk
// Access in System Settings > Privacy & Security > Full Disk Access."
std::string fdaWarning(const std::string& label, const std::string& path);

} // namespace unbulk::TCCIsolationHelper
