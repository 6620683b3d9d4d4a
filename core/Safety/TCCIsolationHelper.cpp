#include "Safety/TCCIsolationHelper.hpp"

#include <cerrno>

namespace unbulk::TCCIsolationHelper {

bool isPermissionOrTCCError(const std::error_code& error) {
    if (error.category() != std::generic_category() && error.category() != std::system_category()) return false;
    return error.value() == EPERM || error.value() == EACCES;
}

std::string fdaWarning(const std::string& label, const std::string& path) {
    return "Full Disk Access is required to scan " + label + " at " + path +
           ". Grant Full Disk Access in System Settings > Privacy & Security > Full Disk Access.";
}

} // namespace unbulk::TCCIsolationHelper
