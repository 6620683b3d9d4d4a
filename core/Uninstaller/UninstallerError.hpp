#pragma once

#include <stdexcept>
#include <string>

namespace unbulk {

// The guard's refusals, and the bundle that would not go. Four more cases
// stand ready with their wording and are raised by nothing here.
struct UninstallerError : std::runtime_error {
    enum class Kind {
        applicationNotFound,
        bundleInspectionFailed,
        protectedSystemApp,
        applicationRunning,
        uninstallationFailed,
        permissionDenied,
        deletionFailed,
    };

    static UninstallerError applicationNotFound(const std::string& path);
    static UninstallerError bundleInspectionFailed(const std::string& path, const std::string& reason);
    static UninstallerError protectedSystemApp(const std::string& bundleIdentifier, const std::string& path,
                                               const std::string& reason);
    static UninstallerError applicationRunning(const std::string& bundleIdentifier, const std::string& name);
    static UninstallerError uninstallationFailed(const std::string& path, const std::string& underlyingError);
    static UninstallerError permissionDenied(const std::string& path);
    static UninstallerError deletionFailed(const std::string& path, const std::string& reason);

    Kind kind;

private:
    UninstallerError(Kind errorKind, const std::string& text) : std::runtime_error(text), kind(errorKind) {}
};

// The uninstaller's own refusals.
struct AppUninstallerError : std::runtime_error {
    enum class Kind {
        systemAppProtected,
        applicationIsRunning,
        applicationNotFound,
        uninstallationBlocked,
        pipelineFailure, // never raised: the pipeline's own error passes through
        deletionFailed,  // never raised: UninstallerError::deletionFailed serves
    };

    static AppUninstallerError systemAppProtected(const std::string& name, const std::string& bundleId);
    static AppUninstallerError applicationIsRunning(const std::string& name, const std::string& bundleId);
    static AppUninstallerError applicationNotFound(const std::string& text);
    static AppUninstallerError uninstallationBlocked(const std::string& reason);
    static AppUninstallerError pipelineFailure(const std::string& text);
    static AppUninstallerError deletionFailed(const std::string& path, const std::string& reason);

    Kind kind;

private:
    AppUninstallerError(Kind errorKind, const std::string& text) : std::runtime_error(text), kind(errorKind) {}
};

} // namespace unbulk
