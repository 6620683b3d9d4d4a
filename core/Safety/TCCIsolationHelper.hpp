#pragma once

#include <string>
#include <system_error>

namespace unbulk::TCCIsolationHelper {

// True for a refusal by permissions or by the privacy control: EPERM or
// EACCES in the POSIX (generic or system) category.
bool isPermissionOrTCCError(const std::error_code& error);

// "Full Disk Access is required to scan <label> at <path>. Grant Full Disk
// Access in System Settings > Privacy & Security > Full Disk Access."
std::string fdaWarning(const std::string& label, const std::string& path);

} // namespace unbulk::TCCIsolationHelper
