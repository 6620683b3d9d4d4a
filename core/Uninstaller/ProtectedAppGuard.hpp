#pragma once

#include <array>
#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include "Models/AppModel.hpp"
#include "Platform/CodeSigning.hpp"
#include "Platform/FileSystem.hpp"
#include "Platform/Processes.hpp"
#include "Support/Cancellation.hpp"
#include "Uninstaller/CodeSignature.hpp"

namespace unbulk {

struct ProtectionEvaluation {
    bool isProtected = false;
    bool canUninstall = true; // always the opposite of isProtected
    std::optional<std::string> reason;

    static ProtectionEvaluation make(bool isProtected, std::optional<std::string> reason) {
        return {isProtected, !isProtected, std::move(reason)};
    }

    friend bool operator==(const ProtectionEvaluation&, const ProtectionEvaluation&) = default;
};

// How long a termination waits for the applications to end, and how often it
// looks.
struct TerminationTiming {
    std::chrono::milliseconds deadline{3000};
    std::chrono::milliseconds pollInterval{100};
};

// Decides what may never be uninstalled, from a bundle's path, identifier,
// code signature and file flags, with a reason in words for each refusal.
// It also reads signatures, tests whether an application runs, and
// terminates applications. It decides before any disk change; the path
// sandbox stays a separate barrier behind it.
class ProtectedAppGuard {
public:
    using RunningAppsProvider = std::function<bool(const std::string& bundleIdentifier)>;
    // May throw; true when the application ended.
    using ProcessTerminator = std::function<bool(const std::string& bundleIdentifier, bool force)>;

    // The order decides the words of a reason: every path below "/System"
    // names "/System".
    static constexpr std::array<std::string_view, 11> protectedPathPrefixes{"/System",
                                                                            "/System/Applications",
                                                                            "/System/Applications/Utilities",
                                                                            "/System/Library",
                                                                            "/System/Library/CoreServices",
                                                                            "/System/Volumes/Preboot/Cryptexes",
                                                                            "/System/Cryptexes",
                                                                            "/usr",
                                                                            "/bin",
                                                                            "/sbin",
                                                                            "/private/var/db"};
    static const std::set<std::string>& coreAppleBundleIdentifiers();

    using Timing = TerminationTiming;

    // Without a provider or a terminator, the processes are asked.
    ProtectedAppGuard(std::shared_ptr<FileSystem> fileSystem, std::shared_ptr<CodeSigning> codeSigning,
                      std::shared_ptr<Processes> processes, RunningAppsProvider runningAppsProvider = {},
                      ProcessTerminator processTerminator = {}, Timing timing = {});

    CodeSignatureReport inspectCodeSignature(const FileURL& bundleURL) const;
    // Without a report the guard reads the signature itself when it gets to it.
    ProtectionEvaluation evaluateProtection(const FileURL& bundleURL, const std::string& bundleIdentifier,
                                            const std::optional<CodeSignatureReport>& codeSignature) const;
    std::pair<bool, std::optional<std::string>>
    evaluateSystemProtection(const FileURL& bundleURL, const std::string& bundleIdentifier,
                             const std::optional<CodeSignatureReport>& codeSignature) const;
    bool isRunning(const std::string& bundleIdentifier) const;
    // Throws UninstallerError for a protected or running application.
    void validateUninstall(const InstalledApp& app) const;
    // Politely, then by force after the deadline; throws UninstallerError
    // when the applications still run, CancellationError when stopped.
    bool terminate(const std::string& bundleIdentifier, bool force, StopToken stop = {}) const;

    const RunningAppsProvider& runningAppsProvider() const { return runningAppsProvider_; }

private:
    std::shared_ptr<FileSystem> fileSystem_;
    RunningAppsProvider runningAppsProvider_;
    ProcessTerminator processTerminator_;
    std::shared_ptr<CodeSigning> codeSigning_;
    std::shared_ptr<Processes> processes_;
    Timing timing_;
};

} // namespace unbulk
