#include "Uninstaller/UninstallerError.hpp"

namespace unbulk {

UninstallerError UninstallerError::protectedSystemApp(const std::string& bundleIdentifier, const std::string& path,
                                                      const std::string& reason) {
    return {Kind::protectedSystemApp, "Refusing uninstallation of protected system application '" + bundleIdentifier +
                                          "' at '" + path + "': " + reason};
}

UninstallerError UninstallerError::applicationRunning(const std::string& bundleIdentifier, const std::string& name) {
    return {Kind::applicationRunning,
            "Cannot uninstall '" + name + "' (" + bundleIdentifier + ") because it is currently running."};
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

} // namespace unbulk
