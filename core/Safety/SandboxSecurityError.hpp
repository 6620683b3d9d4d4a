#pragma once

#include <exception>
#include <string>

namespace unbulk {

// Why the sandbox refused a path or a rule pattern. Build one with the named
// constructors below: they fill the fields that the case carries and the
// sentence that what() returns. Fields a case does not carry stay empty.
struct SandboxSecurityError : std::exception {
    enum class Kind {
        rootDirectoryTargeted,
        homeDirectoryTargeted,
        forbiddenSystemPath,
        forbiddenUserDirectory,
        insufficientPathDepth,
        directoryTraversalDetected,
        symlinkEscapedSandbox,
        wildcardTargetsForbiddenScope,
        nulCharacterInPath,
    };

    Kind kind = Kind::rootDirectoryTargeted;
    std::string path;             // every case but the symlink and wildcard ones (the raw input for a NUL)
    std::string matchedPrefix;    // forbiddenSystemPath
    std::string matchedDirectory; // forbiddenUserDirectory
    int componentCount = 0;       // insufficientPathDepth
    std::string originalPath;     // symlinkEscapedSandbox
    std::string resolvedPath;     // symlinkEscapedSandbox
    std::string reason;           // symlinkEscapedSandbox
    std::string pattern;          // wildcardTargetsForbiddenScope
    std::string forbiddenScope;   // wildcardTargetsForbiddenScope

    static SandboxSecurityError rootDirectoryTargeted(std::string path);
    static SandboxSecurityError homeDirectoryTargeted(std::string path);
    static SandboxSecurityError forbiddenSystemPath(std::string path, std::string matchedPrefix);
    static SandboxSecurityError forbiddenUserDirectory(std::string path, std::string matchedDirectory);
    static SandboxSecurityError insufficientPathDepth(std::string path, int componentCount);
    static SandboxSecurityError directoryTraversalDetected(std::string path);
    static SandboxSecurityError symlinkEscapedSandbox(std::string originalPath, std::string resolvedPath,
                                                      std::string reason);
    static SandboxSecurityError wildcardTargetsForbiddenScope(std::string pattern, std::string forbiddenScope);
    // The sentence leaves the path out: what follows its NUL would reach a
    // terminal as it stands.
    static SandboxSecurityError nulCharacterInPath(std::string path);

    // The sentence for this case and payload.
    std::string description() const;
    const char* what() const noexcept override { return description_.c_str(); }

    // Equal when the case and its payload are; the sentence follows from them.
    friend bool operator==(const SandboxSecurityError& a, const SandboxSecurityError& b) {
        return a.kind == b.kind && a.path == b.path && a.matchedPrefix == b.matchedPrefix &&
               a.matchedDirectory == b.matchedDirectory && a.componentCount == b.componentCount &&
               a.originalPath == b.originalPath && a.resolvedPath == b.resolvedPath && a.reason == b.reason &&
               a.pattern == b.pattern && a.forbiddenScope == b.forbiddenScope;
    }

private:
    explicit SandboxSecurityError(Kind k) : kind(k) {}
    SandboxSecurityError& described();

    std::string description_;
};

} // namespace unbulk
