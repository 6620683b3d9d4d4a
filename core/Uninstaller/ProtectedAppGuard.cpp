#include "Uninstaller/ProtectedAppGuard.hpp"

#include <thread>

#include "Uninstaller/UninstallerError.hpp"
#include "Support/Unicode.hpp"

namespace unbulk {
namespace {

constexpr std::uint32_t restrictedFlag = 0x00080000; // SF_RESTRICTED: System Integrity Protection

bool isSameOrBelow(const std::string& path, const std::string& prefix) {
    return path == prefix || path.starts_with(prefix + "/");
}

} // namespace

const std::set<std::string>& ProtectedAppGuard::coreAppleBundleIdentifiers() {
    static const std::set<std::string> identifiers{"com.apple.Safari",
                                                   "com.apple.finder",
                                                   "com.apple.dock",
                                                   "com.apple.SystemSettings",
                                                   "com.apple.systempreferences",
                                                   "com.apple.mail",
                                                   "com.apple.Music",
                                                   "com.apple.Photos",
                                                   "com.apple.TV",
                                                   "com.apple.Podcasts",
                                                   "com.apple.Notes",
                                                   "com.apple.reminders",
                                                   "com.apple.Preview",
                                                   "com.apple.QuickTimePlayerX",
                                                   "com.apple.FaceTime",
                                                   "com.apple.iChat",
                                                   "com.apple.Maps",
                                                   "com.apple.weather",
                                                   "com.apple.news",
                                                   "com.apple.stocks",
                                                   "com.apple.clock",
                                                   "com.apple.Home",
                                                   "com.apple.shortcuts",
                                                   "com.apple.Freeform",
                                                   "com.apple.ActivityMonitor",
                                                   "com.apple.Console",
                                                   "com.apple.Terminal",
                                                   "com.apple.DiskUtility",
                                                   "com.apple.KeychainAccess",
                                                   "com.apple.ArchiveUtility",
                                                   "com.apple.Screenshot",
                                                   "com.apple.calculator",
                                                   "com.apple.TextEdit"};
    return identifiers;
}

ProtectedAppGuard::ProtectedAppGuard(std::shared_ptr<FileSystem> fileSystem, std::shared_ptr<CodeSigning> codeSigning,
                                     std::shared_ptr<Processes> processes, RunningAppsProvider runningAppsProvider,
                                     ProcessTerminator processTerminator, Timing timing)
    : fileSystem_(std::move(fileSystem)), runningAppsProvider_(std::move(runningAppsProvider)),
      processTerminator_(std::move(processTerminator)), codeSigning_(std::move(codeSigning)),
      processes_(std::move(processes)), timing_(timing) {}

CodeSignatureReport ProtectedAppGuard::inspectCodeSignature(const FileURL& bundleURL) const {
    return CodeSignatureReport::classify(codeSigning_->signingInformation(bundleURL.path()));
}

ProtectionEvaluation
ProtectedAppGuard::evaluateProtection(const FileURL& bundleURL, const std::string& bundleIdentifier,
                                      const std::optional<CodeSignatureReport>& codeSignature) const {
    const std::string path = unicode::lowercased(bundleURL.path());
    const std::string resolvedPath = fileSystem_->resolvingSymlinks(bundleURL.path());
    const std::string resolved = unicode::lowercased(resolvedPath);
    auto refuse = [](std::string reason) { return ProtectionEvaluation::make(true, std::move(reason)); };

    for (std::string_view prefix : protectedPathPrefixes) {
        const std::string lower = unicode::lowercased(std::string(prefix));
        if (isSameOrBelow(path, lower)) {
            return refuse("Application resides in protected system directory '" + std::string(prefix) + "'");
        }
        if (isSameOrBelow(resolved, lower)) {
            return refuse("Application resolves via symlink to protected system directory '" + std::string(prefix) +
                          "'");
        }
    }
    if (path.find("cryptexes") != std::string::npos || resolved.find("cryptexes") != std::string::npos) {
        return refuse("Application is hosted on sealed macOS Cryptex volume");
    }
    PlatformError error;
    if (const auto status = fileSystem_->linkStatus(resolvedPath, error); status && (status->flags & restrictedFlag)) {
        return refuse("Application is protected by macOS System Integrity Protection (SIP)");
    }
    if (coreAppleBundleIdentifiers().contains(bundleIdentifier)) {
        return refuse("Protected Apple core operating system bundle '" + bundleIdentifier + "'");
    }
    const CodeSignatureReport report = codeSignature ? *codeSignature : inspectCodeSignature(bundleURL);
    if (report.isApplePlatformSigned) {
        return refuse("Signed with Apple Platform OS authority (" + report.authority.value_or("Platform") + ")");
    }
    if (bundleIdentifier.starts_with("com.apple.") && !path.starts_with("/applications/") &&
        path.find("/users/") == std::string::npos) {
        return refuse("Apple system component '" + bundleIdentifier + "'");
    }
    return ProtectionEvaluation::make(false, std::nullopt);
}

std::pair<bool, std::optional<std::string>>
ProtectedAppGuard::evaluateSystemProtection(const FileURL& bundleURL, const std::string& bundleIdentifier,
                                            const std::optional<CodeSignatureReport>& codeSignature) const {
    const ProtectionEvaluation evaluation = evaluateProtection(bundleURL, bundleIdentifier, codeSignature);
    return {evaluation.isProtected, evaluation.reason};
}

bool ProtectedAppGuard::isRunning(const std::string& bundleIdentifier) const {
    if (runningAppsProvider_) return runningAppsProvider_(bundleIdentifier);
    return processes_->runningApplicationCount(bundleIdentifier) > 0;
}

void ProtectedAppGuard::validateUninstall(const InstalledApp& app) const {
    if (app.isSystemApp || app.isProtected) {
        throw UninstallerError::protectedSystemApp(app.bundleIdentifier, app.bundleURL.path(),
                                                   app.protectionReason.value_or("Protected macOS system application"));
    }
    if (isRunning(app.bundleIdentifier))
        throw UninstallerError::applicationRunning(app.bundleIdentifier, app.displayName);
}

bool ProtectedAppGuard::terminate(const std::string& bundleIdentifier, bool force, StopToken stop) const {
    if (processTerminator_) {
        if (processTerminator_(bundleIdentifier, force)) return true;
        throw UninstallerError::applicationRunning(bundleIdentifier, bundleIdentifier);
    }
    if (processes_->runningApplicationCount(bundleIdentifier) == 0) return true;
    processes_->terminateApplications(bundleIdentifier, force);
    const auto deadline = std::chrono::steady_clock::now() + timing_.deadline;
    while (std::chrono::steady_clock::now() < deadline) {
        if (processes_->applicationsTerminated(bundleIdentifier)) return true;
        throwIfCancelled(stop);
        std::this_thread::sleep_for(timing_.pollInterval);
        throwIfCancelled(stop);
    }
    if (!force) return terminate(bundleIdentifier, true, stop);
    throw UninstallerError::applicationRunning(bundleIdentifier, bundleIdentifier);
}

} // namespace unbulk
