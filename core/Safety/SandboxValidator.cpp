#include "Safety/SandboxValidator.hpp"

#include <string>

#include "Platform/CurrentDirectory.hpp"
#include "Platform/Trash.hpp"
#include "Support/Paths.hpp"
#include "Support/Unicode.hpp"
#include "Support/Text.hpp"

namespace unbulk::SandboxValidator {
namespace {

// Names are compared by what they look like, not only ASCII-insensitively:
// on a case-insensitive disk "Des\u212Atop" (KELVIN SIGN) is the Desktop and
// "/Sy\u017Ftem" (LONG S) is /System, and a name that merely looks like a
// protected one ("D\u043Ecuments" with a Cyrillic o, a fullwidth letter, a
// zero-width space) is refused as well: no person could tell it apart in a
// confirmation. Stricter than matching names alone, on purpose.
std::string skeleton(std::string_view text) { return unicode::nameSkeleton(text); }

bool equalsIgnoringCase(std::string_view a, std::string_view b) { return skeleton(a) == skeleton(b); }

// The home itself or anything below it, compared as spelled (case counts).
bool isHomeOrInside(std::string_view path, const std::string& homePath) {
    return path == homePath || path.starts_with(homePath + "/");
}

// The path of a file URL made from the text, standardised: a relative text is
// read against the current directory first.
std::string standardizedFileURLPath(std::string_view text) {
    if (paths::isAbsolute(text)) return paths::standardize(text);
    return paths::standardize(paths::appending(currentDirectory(), text));
}

std::string standardizedHomePath(const FileURL& homeURL) { return paths::standardizingPath(homeURL.path(), ""); }

bool hasTraversal(std::string_view path) {
    if (path.find("/../") != std::string_view::npos || path.starts_with("../") || path.ends_with("/..") ||
        path == "..") {
        return true;
    }
    // Splitting on "/" keeps empty pieces; only a ".." piece matters.
    std::size_t start = 0;
    while (start <= path.size()) {
        std::size_t slash = path.find('/', start);
        std::size_t end = slash == std::string_view::npos ? path.size() : slash;
        if (path.substr(start, end - start) == "..") return true;
        if (slash == std::string_view::npos) break;
        start = slash + 1;
    }
    return false;
}

void checkForbiddenSystemPrefixes(const std::string& path, const std::string& homePath) {
    const std::string lower = skeleton(path);
    const bool inHome = isHomeOrInside(path, homePath);
    auto refuse = [&](std::string_view matched) {
        throw SandboxSecurityError::forbiddenSystemPath(path, std::string(matched));
    };

    if (lower == "/users" || lower == "/users/") refuse("/Users");
    if (lower.starts_with("/users/") && !inHome) refuse("/Users");

#if defined(__linux__)
    for (std::string_view root : linuxUserRoots) {
        const std::string lowerRoot = skeleton(root);
        if (lower == lowerRoot || lower == lowerRoot + "/") refuse(root);
        if (lower.starts_with(lowerRoot + "/") && !inHome) refuse(root);
    }
    for (std::string_view prefix : linuxSystemPrefixes) {
        if (equalsIgnoringCase(path, prefix) || lower.starts_with(skeleton(prefix) + "/")) refuse(prefix);
    }
#endif

    if (lower == "/volumes" || lower == "/volumes/" || lower.starts_with("/volumes/")) refuse("/Volumes");

    if (lower == "/var" || lower == "/var/") refuse("/var");
    if (lower.starts_with("/var/") && !(lower == "/var/folders" || lower.starts_with("/var/folders/"))) {
        refuse("/var");
    }

    if (lower == "/private/var" || lower == "/private/var/") refuse("/private/var");
    if (lower.starts_with("/private/var/") &&
        !(lower == "/private/var/folders" || lower.starts_with("/private/var/folders/"))) {
        refuse("/private/var");
    }

    if (lower == "/private" || lower == "/private/") refuse("/private");
    // The exceptions want the trailing slash: "/private/var/folders" and
    // "/private/tmp" themselves are refused here, unlike "/var/folders".
    if (lower.starts_with("/private/") &&
        !(lower.starts_with("/private/var/folders/") || lower.starts_with("/private/tmp/") || inHome)) {
        refuse("/private");
    }

    // "/System" through "/dev"; the last five entries were judged above.
    for (std::size_t i = 0; i < 9; ++i) {
        const std::string_view prefix = forbiddenSystemPrefixes[i];
        if (equalsIgnoringCase(path, prefix) || lower.starts_with(skeleton(prefix) + "/")) refuse(prefix);
    }
}

void checkForbiddenUserDirectories(const std::string& path, const std::string& homePath) {
    const std::string lower = skeleton(path);
    for (std::string_view directory : forbiddenUserDirectories) {
        const std::string protectedPath = paths::appending(homePath, directory);
        if (equalsIgnoringCase(path, protectedPath) || lower.starts_with(skeleton(protectedPath) + "/")) {
            throw SandboxSecurityError::forbiddenUserDirectory(path, std::string(directory));
        }
    }
}

// A Trash folder by its name: .Trash (the Mac's in a home, the shared one
// at the top of a disk), .Trashes (a Mac volume's) or .Trash-<uid>.
bool isTrashName(std::string_view name) {
    const std::string folded = skeleton(name);
    return folded == skeleton(".Trash") || folded == skeleton(".Trashes") || folded.starts_with(skeleton(".Trash-"));
}

// unbulk's own folder and the Trash, and everything in them. A place in the
// home is named relative to it, as the protected user directories are.
void checkOwnPlaces(const std::string& path, const std::string& homePath) {
    auto refuse = [&](const std::string& place) {
        if (place.starts_with(homePath + "/")) {
            throw SandboxSecurityError::forbiddenUserDirectory(path, place.substr(homePath.size() + 1));
        }
        throw SandboxSecurityError::forbiddenSystemPath(path, place);
    };
    const std::string lower = skeleton(path);
    std::vector<std::string> places = homeTrashDirectories(homePath);
    places.insert(places.begin(), paths::appending(homePath, ".unbulk"));
    for (const std::string& place : places) {
        if (equalsIgnoringCase(path, place) || lower.starts_with(skeleton(place) + "/")) refuse(place);
    }
    std::string prefix;
    for (const std::string& component : paths::components(path)) {
        prefix += "/" + component;
        if (isTrashName(component)) refuse(prefix);
    }
}

void checkPathDepth(const std::string& path, const std::string& homePath) {
    std::string_view counted = path;
    if (isHomeOrInside(path, homePath)) counted.remove_prefix(homePath.size());
    const auto count = static_cast<int>(paths::components(counted).size());
    if (count < 2) throw SandboxSecurityError::insufficientPathDepth(path, count);
}

void checkPlace(const std::string& path, const std::string& homePath) {
    checkForbiddenSystemPrefixes(path, homePath);
    checkForbiddenUserDirectories(path, homePath);
    checkOwnPlaces(path, homePath);
    checkPathDepth(path, homePath);
}

// The kernel takes a path up to its first NUL: text behind one would be
// judged here and never acted on.
void checkNoNul(std::string_view input) {
    if (input.find('\0') != std::string_view::npos) throw SandboxSecurityError::nulCharacterInPath(std::string(input));
}

// The path with every link resolved in the part of it that exists. A missing
// tail below a link names a place inside the link's target, and is judged
// there: "cache/link/x" with link -> /etc is "/etc/x" whether x exists yet
// or not.
std::string resolvingExistingPart(const std::string& path, const FileSystem& fileSystem) {
    std::string existing = path;
    std::string tail;
    PlatformError error;
    while (existing != "/" && !fileSystem.linkStatus(existing, error)) {
        const std::string last = paths::lastComponent(existing);
        tail = tail.empty() ? last : last + "/" + tail;
        existing = paths::deletingLastComponent(existing);
        if (existing.empty()) return path;
    }
    const std::string resolved = fileSystem.resolvingSymlinks(existing);
    return tail.empty() ? resolved : paths::appending(resolved, tail);
}

} // namespace

void validatePath(std::string_view path, const FileURL& homeURL, const FileSystem& fileSystem) {
    checkNoNul(path);
    const std::string homePath = standardizedHomePath(homeURL);

    if (hasTraversal(path)) throw SandboxSecurityError::directoryTraversalDetected(std::string(path));

    std::string expanded;
    if (path == "~") {
        expanded = homePath;
    } else if (path.starts_with("~/")) {
        expanded = paths::appending(homePath, path.substr(2));
    } else {
        expanded = std::string(path);
    }

    const std::string candidate = standardizedFileURLPath(expanded);
    if (candidate == "/") throw SandboxSecurityError::rootDirectoryTargeted(candidate);
    if (candidate == homePath) throw SandboxSecurityError::homeDirectoryTargeted(candidate);
    checkPlace(candidate, homePath);

    // A link may lead somewhere the path itself would never be allowed.
    const std::string resolved = paths::standardizingPath(resolvingExistingPart(candidate, fileSystem), homePath);
    if (resolved != candidate) {
        if (resolved == "/") {
            throw SandboxSecurityError::symlinkEscapedSandbox(candidate, resolved, "Symlink points to root directory");
        }
        if (resolved == homePath) {
            throw SandboxSecurityError::symlinkEscapedSandbox(candidate, resolved, "Symlink points to home directory");
        }
        checkPlace(resolved, homePath);
    }

    // The home may itself be a link (HOME set to a link, or a home moved to
    // another disk). The checks above compare with the home as given, which
    // a resolved path never meets, so they run once more against the home
    // with its links resolved: a linked home protects exactly what the real
    // one does. This goes beyond comparing with the given home alone, on
    // purpose: nothing may slip past the sandbox.
    const std::string realHome = paths::standardizingPath(fileSystem.resolvingSymlinks(homePath), homePath);
    if (realHome == homePath) return;
    if (resolved == realHome) {
        if (resolved == candidate) throw SandboxSecurityError::homeDirectoryTargeted(candidate);
        throw SandboxSecurityError::symlinkEscapedSandbox(candidate, resolved, "Symlink points to home directory");
    }
    checkPlace(resolved, realHome);
}

void validateURL(const FileURL& url, const FileURL& homeURL, const FileSystem& fileSystem) {
    validatePath(url.path(), homeURL, fileSystem);
}

void validatePattern(std::string_view pattern, const std::optional<FileURL>& baseDirectory, const FileURL& homeURL,
                     const FileSystem& fileSystem) {
    checkNoNul(pattern);
    if (baseDirectory) checkNoNul(baseDirectory->path());
    const std::string homePath = standardizedHomePath(homeURL);

    // Stricter than for paths: ".." anywhere, even inside a name.
    if (pattern.find("..") != std::string_view::npos) {
        throw SandboxSecurityError::directoryTraversalDetected(std::string(pattern));
    }

    std::string expanded;
    if (baseDirectory) {
        expanded = paths::appending(baseDirectory->path(), pattern);
    } else if (pattern == "~") {
        expanded = homePath;
    } else if (pattern.starts_with("~/")) {
        expanded = paths::appending(homePath, pattern.substr(2));
    } else {
        expanded = std::string(pattern);
    }

    // Brackets count as wildcards here although the glob language has none:
    // a bracket must never hide a broader scope behind a narrow-looking prefix.
    const std::size_t firstWildcard = expanded.find_first_of("*?[]{}");
    const bool hasWildcard = firstWildcard != std::string::npos;
    // Path standardisation, not the URL form: a prefix of "./" comes out
    // empty, and a bare "~" (from "~*") as the home.
    const std::string prefix =
        paths::standardizingPath(hasWildcard ? expanded.substr(0, firstWildcard) : expanded, homePath);

    if (prefix == "/" || prefix.empty()) {
        throw SandboxSecurityError::wildcardTargetsForbiddenScope(std::string(pattern), "Root filesystem");
    }
    if (prefix == homePath) {
        throw SandboxSecurityError::wildcardTargetsForbiddenScope(std::string(pattern), "Entire home directory");
    }
    if (!hasWildcard) {
        validatePath(prefix, homeURL, fileSystem);
        return;
    }

    // The wildcard segments count towards the depth below the home.
    if (expanded.starts_with(homePath)) {
        const auto count = static_cast<int>(paths::components(text::replacingAll(expanded, homePath, "")).size());
        if (count < 2) throw SandboxSecurityError::insufficientPathDepth(std::string(pattern), count);
    }

    const std::string candidate = standardizedFileURLPath(prefix);
    if (candidate == "/") throw SandboxSecurityError::rootDirectoryTargeted(candidate);
    if (candidate == homePath) throw SandboxSecurityError::homeDirectoryTargeted(candidate);
    checkForbiddenSystemPrefixes(candidate, homePath);
    checkForbiddenUserDirectories(candidate, homePath);
    checkOwnPlaces(candidate, homePath);
}

void validateRule(const RuleDefinition& rule, const FileURL& homeURL, const FileSystem& fileSystem) {
    for (const auto& pattern : rule.patterns)
        validatePattern(pattern, std::nullopt, homeURL, fileSystem);
}

} // namespace unbulk::SandboxValidator
