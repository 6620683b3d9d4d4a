#include "Safety/SandboxSecurityError.hpp"

#include <utility>

#include <fmt/format.h>

namespace unbulk {

SandboxSecurityError SandboxSecurityError::rootDirectoryTargeted(std::string path) {
    SandboxSecurityError error(Kind::rootDirectoryTargeted);
    error.path = std::move(path);
    return std::move(error.described());
}

SandboxSecurityError SandboxSecurityError::homeDirectoryTargeted(std::string path) {
    SandboxSecurityError error(Kind::homeDirectoryTargeted);
    error.path = std::move(path);
    return std::move(error.described());
}

SandboxSecurityError SandboxSecurityError::forbiddenSystemPath(std::string path, std::string matchedPrefix) {
    SandboxSecurityError error(Kind::forbiddenSystemPath);
    error.path = std::move(path);
    error.matchedPrefix = std::move(matchedPrefix);
    return std::move(error.described());
}

SandboxSecurityError SandboxSecurityError::forbiddenUserDirectory(std::string path, std::string matchedDirectory) {
    SandboxSecurityError error(Kind::forbiddenUserDirectory);
    error.path = std::move(path);
    error.matchedDirectory = std::move(matchedDirectory);
    return std::move(error.described());
}

SandboxSecurityError SandboxSecurityError::insufficientPathDepth(std::string path, int componentCount) {
    SandboxSecurityError error(Kind::insufficientPathDepth);
    error.path = std::move(path);
    error.componentCount = componentCount;
    return std::move(error.described());
}

SandboxSecurityError SandboxSecurityError::directoryTraversalDetected(std::string path) {
    SandboxSecurityError error(Kind::directoryTraversalDetected);
    error.path = std::move(path);
    return std::move(error.described());
}

SandboxSecurityError SandboxSecurityError::symlinkEscapedSandbox(std::string originalPath, std::string resolvedPath,
                                                                 std::string reason) {
    SandboxSecurityError error(Kind::symlinkEscapedSandbox);
    error.originalPath = std::move(originalPath);
    error.resolvedPath = std::move(resolvedPath);
    error.reason = std::move(reason);
    return std::move(error.described());
}

SandboxSecurityError SandboxSecurityError::wildcardTargetsForbiddenScope(std::string pattern,
                                                                         std::string forbiddenScope) {
    SandboxSecurityError error(Kind::wildcardTargetsForbiddenScope);
    error.pattern = std::move(pattern);
    error.forbiddenScope = std::move(forbiddenScope);
    return std::move(error.described());
}

SandboxSecurityError SandboxSecurityError::nulCharacterInPath(std::string path) {
    SandboxSecurityError error(Kind::nulCharacterInPath);
    error.path = std::move(path);
    return std::move(error.described());
}

std::string SandboxSecurityError::description() const {
    switch (kind) {
    case Kind::rootDirectoryTargeted:
        return fmt::format("Sandbox Violation: Root filesystem '/' cannot be targeted ({}).", path);
    case Kind::homeDirectoryTargeted:
        return fmt::format("Sandbox Violation: Home directory cannot be targeted directly ({}).", path);
    case Kind::forbiddenSystemPath:
        return fmt::format("Sandbox Violation: Path '{}' targets forbidden system path '{}'.", path, matchedPrefix);
    case Kind::forbiddenUserDirectory:
        return fmt::format("Sandbox Violation: Path '{}' targets protected user directory '{}'.", path,
                           matchedDirectory);
    case Kind::insufficientPathDepth:
        return fmt::format("Sandbox Violation: Path '{}' has insufficient depth ({} components relative to home; "
                           "minimum 2 required).",
                           path, componentCount);
    case Kind::directoryTraversalDetected:
        return fmt::format("Sandbox Violation: Path traversal tokens ('..') detected in '{}'.", path);
    case Kind::symlinkEscapedSandbox:
        return fmt::format("Sandbox Violation: Symlink '{}' resolves to forbidden path '{}': {}", originalPath,
                           resolvedPath, reason);
    case Kind::wildcardTargetsForbiddenScope:
        return fmt::format("Sandbox Violation: Rule pattern '{}' matches forbidden scope '{}'.", pattern,
                           forbiddenScope);
    case Kind::nulCharacterInPath: return "Path contains a NUL character";
    }
    return {};
}

SandboxSecurityError& SandboxSecurityError::described() {
    description_ = description();
    return *this;
}

} // namespace unbulk
