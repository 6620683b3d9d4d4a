#include "Uninstaller/UninstallerError.hpp"

namespace unbulk {

UninstallerError UninstallerError::applicationNotFound(const std::string& path) {
    return {Kind::applicationNotFound, "Application bundle not found at path: " + path};
}

UninstallerError UninstallerError::bundleInspectionFailed(const std::string& path, const std::string& reason) {
    return {Kind::bundleInspectionFailed, "Failed to inspect application bundle at '" + path + "': " + reason};
}

UninstallerError UninstallerError::protectedSystemApp(const std::string& bundleIdentifier, const std::string& path,
                                                      const std::string& reason) {
    return {Kind::protectedSystemApp, "Refusing uninstallation of protected system application '" + bundleIdentifier +
                                          "' at '" + path + "': " + reason};
}

UninstallerError UninstallerError::applicationRunning(const std::string& bundleIdentifier, const std::string& name) {
    return {Kind::applicationRunning,
            "Cannot uninstall '" + name + "' (" + bundleIdentifier + ") because it is currently running."};
}

UninstallerError UninstallerError::uninstallationFailed(const std::string& path, const std::string& underlyingError) {
    return {Kind::uninstallationFailed, "Failed to uninstall application at '" + path + "': " + underlyingError};
}

UninstallerError UninstallerError::permissionDenied(const std::string& path) {
    return {Kind::permissionDenied,
            "Access denied to application bundle at '" + path + "'. Full Disk Access may be required."};
}

UninstallerError UninstallerError::deletionFailed(const std::string& path, const std::string& reason) {
    return {Kind::deletionFailed, "Failed to delete item at '" + path + "': " + reason};
}

AppUninstallerError AppUninstallerError::systemAppProtected(const std::string& name, const std::string& bundleId) {
    return {Kind::systemAppProtected, "Application '" + name + "' (" + bundleId +
                                          ") is a protected macOS system component and cannot be uninstalled."};
}

AppUninstallerError AppUninstallerError::applicationIsRunning(const std::string& name, const std::string& bundleId) {
    return {Kind::applicationIsRunning,
            "Application '" + name + "' (" + bundleId +
                ") is currently running. Please terminate the process before uninstalling."};
}

AppUninstallerError AppUninstallerError::applicationNotFound(const std::string& text) {
    return {Kind::applicationNotFound, "Application bundle not found: " + text};
}

AppUninstallerError AppUninstallerError::uninstallationBlocked(const std::string& reason) {
    return {Kind::uninstallationBlocked, "Uninstallation blocked: " + reason};
}

AppUninstallerError AppUninstallerError::pipelineFailure(const std::string& text) {
    return {Kind::pipelineFailure, "Trash pipeline execution failed: " + text};
}

AppUninstallerError AppUninstallerError::deletionFailed(const std::string& path, const std::string& reason) {
    return {Kind::deletionFailed, "Failed to delete item at '" + path + "': " + reason};
}

} // namespace unbulk
