#include "Scanner/RiskClassifier.hpp"

#include <array>
#include <cctype>
#include <string_view>

#include "Rules/CacheDirTagDetector.hpp"
#include "Rules/RuleRegistry.hpp"
#include "Support/Paths.hpp"
#include "Support/Unicode.hpp"

namespace unbulk {
namespace {

constexpr std::array<std::string_view, 12> systemPaths{
    "/system", "/usr", "/bin", "/sbin", "/library", "/etc", "/private/var/db", "/private/etc", "/private/var/root",
    "/var/root", "/dev", "/volumes"};
constexpr std::array<std::string_view, 5> personalDirectories{"documents", "desktop", "pictures", "music", "movies"};
constexpr std::array<std::string_view, 3> toolBinaries{".cargo/bin", ".local/bin", ".bun/bin"};
constexpr std::array<std::string_view, 6> credentials{".ssh", ".gnupg", "library/keychains",
                                                      ".cargo/credentials.toml", ".npmrc", ".aws"};
constexpr std::array<std::string_view, 5> configurationFiles{".cargo/config.toml", ".gitconfig", ".zshrc", ".bashrc",
                                                             ".gradle/gradle.properties"};

// The entry inside any account under /Users: "/users/<one component>/<entry>"
// followed by "/" or the end, or only the end where a prefix is not allowed.
// (The same test as the expression ^/users/[^/]+/<entry>(/|$) on the
// lower-cased path, with the entry taken literally.)
bool inAnyAccount(std::string_view lower, std::string_view entry, bool allowBelow) {
    constexpr std::string_view users = "/users/";
    if (lower.substr(0, users.size()) != users) return false;
    std::string_view rest = lower.substr(users.size());
    auto slash = rest.find('/');
    if (slash == 0 || slash == std::string_view::npos) return false;
    rest = rest.substr(slash + 1);
    if (rest.substr(0, entry.size()) != entry) return false;
    if (rest.size() == entry.size()) return true;
    return allowBelow && rest[entry.size()] == '/';
}

template <std::size_t N>
std::optional<std::string_view> homeRelativeHit(const std::array<std::string_view, N>& table, std::string_view lower,
                                                const std::string& homePath, bool allowBelow) {
    for (auto entry : table) {
        const std::string protectedPath = unicode::lowercased(paths::appending(homePath, entry));
        const bool hit = allowBelow ? paths::isSameOrBelow(lower, protectedPath) : lower == protectedPath;
        if (hit || inAnyAccount(lower, entry, allowBelow)) return entry;
    }
    return std::nullopt;
}

std::string defaultReason() { return "Category default risk classification."; }

RiskClassificationResult categoryDefault(StorageCategory category, bool isOrphaned, const std::string& path) {
    constexpr const char* transient =
        "Standard transient application caches, logs, or reports that regenerate automatically.";
    switch (category) {
    case StorageCategory::developerCache:
    case StorageCategory::systemCaches:
    case StorageCategory::systemLogs:
    case StorageCategory::crashReports:
    case StorageCategory::browserCaches:
    case StorageCategory::leftovers:
        return {RiskTier::safeToDelete, 0.95, transient, std::nullopt, false};
    case StorageCategory::aiModelWeights:
        return {RiskTier::reviewRequired, 1.0,
                "Pretrained AI model weights require significant network bandwidth and time to re-download.",
                std::nullopt, false};
    case StorageCategory::dockerVM:
        if (isOrphaned) {
            return {RiskTier::reviewRequired, 1.0, "Orphaned Docker VM disk image from uninstalled Docker Desktop.",
                    std::nullopt, false};
        }
        return {RiskTier::keep, 1.0, "Active Docker VM disk image. Uninstallation or shutdown required.",
                std::nullopt, false};
    case StorageCategory::xcodeArtifacts:
        if (path.find("/Archives") != std::string::npos) {
            return {RiskTier::reviewRequired, 1.0,
                    "Xcode release archives contain dSYMs needed for App Store crash symbolication.", std::nullopt,
                    false};
        }
        return {RiskTier::safeToDelete, 0.95,
                "Xcode intermediate build products regenerate automatically on compilation.", std::nullopt, false};
    case StorageCategory::strayDependencies:
        return {RiskTier::reviewRequired, 0.9,
                "Stray project dependencies in home root require verification before deletion.", std::nullopt, false};
    case StorageCategory::mailDownloads:
        return {RiskTier::reviewRequired, 1.0,
                "Locally cached email attachments may not exist on remote mail server if deleted.", std::nullopt,
                false};
    case StorageCategory::dynamicRule:
        return {RiskTier::safeToDelete, 0.85, defaultReason(), std::nullopt, false};
    case StorageCategory::applicationBundles:
    case StorageCategory::largeFiles:
    case StorageCategory::startupItems:
    case StorageCategory::unknownAnomaly:
        return {RiskTier::reviewRequired, 0.85, defaultReason(), std::nullopt, false};
    }
    return {RiskTier::reviewRequired, 0.85, defaultReason(), std::nullopt, false};
}

} // namespace

RiskClassifier::RiskClassifier(FileURL homeURL, std::shared_ptr<const RuleRegistry> ruleRegistry,
                               std::shared_ptr<const FileSystem> fileSystem)
    : homeURL_(std::move(homeURL)), ruleRegistry_(std::move(ruleRegistry)), fileSystem_(std::move(fileSystem)) {}

std::optional<std::string> RiskClassifier::evaluateKeepBoundaries(const std::string& path,
                                                                  const std::string& homePath) {
    const std::string lower = unicode::lowercased(path);
    for (auto entry : systemPaths) {
        if (paths::isSameOrBelow(lower, entry)) return "Protected system OS directory (" + std::string(entry) + ").";
    }
    if (auto entry = homeRelativeHit(personalDirectories, lower, homePath, true)) {
        return "Protected user personal directory (~/" + std::string(*entry) + ").";
    }
    if (auto entry = homeRelativeHit(toolBinaries, lower, homePath, true)) {
        return "Protected executable user tool binaries (~/" + std::string(*entry) + ").";
    }
    if (homeRelativeHit(credentials, lower, homePath, true)) return "Protected security credentials or keychains.";
    if (homeRelativeHit(configurationFiles, lower, homePath, false)) return "Protected active configuration file.";
    return std::nullopt;
}

RiskClassificationResult RiskClassifier::classify(const FileURL& url, StorageCategory category,
                                                  bool isOrphaned) const {
    const std::string homePath = paths::standardizingPath(homeURL_.path(), homeURL_.path());
    const std::string path = paths::standardizingPath(url.path(), homePath);

    if (auto reason = evaluateKeepBoundaries(path, homePath)) {
        return {RiskTier::keep, 1.0, *reason, std::nullopt, false};
    }

    const std::string resolved = paths::standardize(fileSystem_->resolvingSymlinks(url.path()));
    if (resolved != path) {
        const std::string resolvedHome = paths::standardize(fileSystem_->resolvingSymlinks(homeURL_.path()));
        auto reason = evaluateKeepBoundaries(resolved, resolvedHome);
        if (!reason) reason = evaluateKeepBoundaries(resolved, homePath);
        if (reason) {
            return {RiskTier::keep, 1.0, "Symlink target points to protected boundary: " + *reason, std::nullopt,
                    false};
        }
    }

    if (ruleRegistry_) {
        auto matches = ruleRegistry_->matchingRules(path);
        if (!matches.empty()) {
            const RuleDefinition* chosen = &matches.front();
            for (const auto& rule : matches) {
                if (rule.riskTier > chosen->riskTier) chosen = &rule;
            }
            return {chosen->riskTier, 1.0, "Matched RuleRegistry rule: " + chosen->name + " (" + chosen->id + ")",
                    chosen->id, false};
        }
    }

    if (fileSystem_->isDirectory(path)) {
        auto tag = CacheDirTagDetector::detectTag(url, *fileSystem_);
        if (tag && tag->isValid) {
            return {RiskTier::safeToDelete, 1.0,
                    "Verified CACHEDIR.TAG cache specification (" + tag->applicationComment.value_or("standard cache") +
                        ")",
                    std::nullopt, true};
        }
    }

    return categoryDefault(category, isOrphaned, path);
}

} // namespace unbulk
