#include "Rules/RuleRegistry.hpp"

#include <chrono>
#include <limits>

#include "Rules/BuiltInRules.hpp"
#include "Rules/GlobMatcher.hpp"
#include "Rules/RuleCatalog.hpp"
#include "Safety/SandboxValidator.hpp"
#include "Support/Json.hpp"
#include "Support/Paths.hpp"
#include "Support/Unicode.hpp"

namespace unbulk {
namespace {

using Kind = RuleRegistryError::Kind;

constexpr std::uint32_t rulesFileMode = 0644;
// ~/.unbulk also holds the audit log, which lives in a directory of mode 0700.
constexpr std::uint32_t rulesDirectoryMode = 0700;

bool isAllowedScalar(char32_t scalar) {
    return scalar == U'.' || scalar == U'_' || scalar == U'-' || unicode::isAlphanumeric(scalar);
}

// A pattern without wildcards is judged as a path, links resolved, through
// the registry's own file system like every other disk access here.
bool patternsPass(const RuleDefinition& rule, const FileURL& homeURL, const FileSystem& fileSystem) {
    try {
        SandboxValidator::validateRule(rule, homeURL, fileSystem);
        return true;
    } catch (const SandboxSecurityError&) {
        return false;
    }
}

} // namespace

bool isValidRuleId(const std::string& id) {
    if (id.empty()) return false;
    auto scalars = unicode::scalars(id);
    if (!scalars) return false;
    for (char32_t scalar : *scalars) {
        if (!isAllowedScalar(scalar)) return false;
    }
    return true;
}

RuleRegistry::RuleRegistry(std::optional<FileURL> rulesFileURL, FileURL homeURL,
                           std::shared_ptr<FileSystem> fileSystem, Clock clock)
    : rulesFileURL_(rulesFileURL ? std::move(*rulesFileURL)
                                 : homeURL.appending(".unbulk", true).appending("rules.json")),
      homeURL_(std::move(homeURL)),
      fileSystem_(std::move(fileSystem)), clock_(std::move(clock)) {
    for (auto& rule : buildDefaultCatalog(clock_())) {
        std::string id = rule.id;
        rulesById_.insert_or_assign(std::move(id), std::move(rule));
    }
}

void RuleRegistry::loadCustomRules() {
    std::lock_guard lock(mutex_);
    const std::string& path = rulesFileURL_.path();
    if (!fileSystem_->fileExists(path)) return;

    PlatformError error;
    auto contents = fileSystem_->readFile(path, std::numeric_limits<std::size_t>::max(), error);
    if (!contents) {
        throw RuleRegistryError(Kind::catalogPersistenceFailed,
                                "Could not read rules file at " + path + ": " + error.message());
    }
    RuleCatalog catalog;
    try {
        catalog = ruleCatalogFromJson(json::parse(*contents));
    } catch (const std::exception& decoding) {
        throw RuleRegistryError(Kind::catalogDecodingFailed, decoding.what());
    }
    for (auto& stored : catalog.rules) {
        auto existing = rulesById_.find(stored.id);
        if (existing != rulesById_.end() && existing->second.isBuiltIn) continue;
        if (!patternsPass(stored, homeURL_, *fileSystem_)) continue;
        std::string id = stored.id;
        rulesById_.insert_or_assign(std::move(id), std::move(stored));
    }
}

void RuleRegistry::saveCustomRules() {
    std::lock_guard lock(mutex_);
    saveLocked();
}

void RuleRegistry::saveLocked() const {
    std::vector<RuleDefinition> dynamicRules;
    for (const auto& [id, rule] : rulesById_) {
        if (!rule.isBuiltIn) dynamicRules.push_back(rule);
    }
    const RuleCatalog catalog = makeRuleCatalog(std::move(dynamicRules), clock_());

    std::string data;
    try {
        data = json::pretty(toJson(catalog));
    } catch (const std::exception& encoding) {
        throw RuleRegistryError(Kind::catalogPersistenceFailed,
                                std::string("Failed to encode rule catalog: ") + encoding.what());
    }

    const std::string& path = rulesFileURL_.path();
    auto writeFailure = [&](const PlatformError& error) {
        return RuleRegistryError(Kind::catalogPersistenceFailed,
                                 "Failed to write rules to " + path + ": " + error.message());
    };
    PlatformError error;
    const std::string directory = paths::deletingLastComponent(path);
    if (!fileSystem_->fileExists(directory) &&
        !fileSystem_->createDirectory(directory, rulesDirectoryMode, true, error)) {
        throw writeFailure(error);
    }
    if (!fileSystem_->writeFileAtomically(path, data, rulesFileMode, error)) throw writeFailure(error);
}

void RuleRegistry::registerRule(const RuleDefinition& incoming) {
    std::lock_guard lock(mutex_);
    if (incoming.id.empty()) throw RuleRegistryError(Kind::invalidRuleId, "(empty)");
    if (!isValidRuleId(incoming.id)) throw RuleRegistryError(Kind::invalidRuleId, incoming.id);
    auto existing = rulesById_.find(incoming.id);
    if (existing != rulesById_.end() && existing->second.isBuiltIn) {
        throw RuleRegistryError(Kind::cannotOverwriteBuiltIn, incoming.id);
    }
    if (incoming.patterns.empty()) throw RuleRegistryError(Kind::emptyPatterns, incoming.id);
    SandboxValidator::validateRule(incoming, homeURL_, *fileSystem_);

    RuleDefinition rule = incoming;
    if (incoming.isBuiltIn) {
        // A rule that claims to be built in arrives from outside the catalog:
        // it is kept as a dynamic rule.
        const Date now = clock_();
        rule.isBuiltIn = false;
        if (!rule.synthesizedBy) rule.synthesizedBy = "dynamic";
        if (!rule.createdAt) rule.createdAt = now;
        rule.updatedAt = now;
    }
    rulesById_.insert_or_assign(rule.id, rule);
    saveLocked();
}

void RuleRegistry::setRuleEnabled(const std::string& id, bool enabled) {
    std::lock_guard lock(mutex_);
    auto it = rulesById_.find(id);
    if (it == rulesById_.end()) {
        throw RuleRegistryError(Kind::invalidRuleId, "Rule with ID '" + id + "' not found.");
    }
    it->second.enabled = enabled;
    // A built-in rule's switch lives only as long as this registry.
    if (!it->second.isBuiltIn) saveLocked();
}

void RuleRegistry::removeRule(const std::string& id) {
    std::lock_guard lock(mutex_);
    auto it = rulesById_.find(id);
    if (it == rulesById_.end()) return;
    if (it->second.isBuiltIn) {
        throw RuleRegistryError(Kind::cannotOverwriteBuiltIn, "Built-in rule '" + id + "' cannot be deleted.");
    }
    rulesById_.erase(it);
    saveLocked();
}

std::vector<RuleDefinition> RuleRegistry::allRules() const {
    std::lock_guard lock(mutex_);
    std::vector<RuleDefinition> out;
    out.reserve(rulesById_.size());
    for (const auto& [id, rule] : rulesById_) out.push_back(rule);
    return out;
}

std::vector<RuleDefinition> RuleRegistry::activeRules() const {
    std::lock_guard lock(mutex_);
    std::vector<RuleDefinition> out;
    for (const auto& [id, rule] : rulesById_) {
        if (rule.enabled) out.push_back(rule);
    }
    return out;
}

std::optional<RuleDefinition> RuleRegistry::rule(const std::string& id) const {
    std::lock_guard lock(mutex_);
    auto it = rulesById_.find(id);
    if (it == rulesById_.end()) return std::nullopt;
    return it->second;
}

std::vector<RuleDefinition> RuleRegistry::rules(StorageCategory category) const {
    std::lock_guard lock(mutex_);
    std::vector<RuleDefinition> out;
    for (const auto& [id, rule] : rulesById_) {
        if (rule.enabled && rule.category == category) out.push_back(rule);
    }
    return out;
}

std::vector<RuleDefinition> RuleRegistry::matchingRules(const std::string& path) const {
    std::lock_guard lock(mutex_);
    std::vector<RuleDefinition> out;
    for (const auto& [id, rule] : rulesById_) {
        if (!rule.enabled) continue;
        bool excluded = false;
        for (const auto& pattern : rule.excludedPatterns) {
            if (GlobMatcher::matches(pattern, path, homeURL_)) {
                excluded = true;
                break;
            }
        }
        if (excluded) continue;
        for (const auto& pattern : rule.patterns) {
            if (GlobMatcher::matches(pattern, path, homeURL_)) {
                out.push_back(rule);
                break;
            }
        }
    }
    return out;
}

} // namespace unbulk
