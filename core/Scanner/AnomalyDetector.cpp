#include "Scanner/AnomalyDetector.hpp"

#include <algorithm>
#include <chrono>

#include "Rules/CacheDirTagDetector.hpp"
#include "Rules/RuleRegistry.hpp"
#include "Safety/SandboxValidator.hpp"
#include "Support/CheckedMath.hpp"
#include "Support/Paths.hpp"
#include "Support/Unicode.hpp"
#include "Platform/TreeMeasure.hpp"
#include "Support/Text.hpp"

namespace unbulk {
namespace {

// More files than this make a store "big".
constexpr std::int64_t bigFileCount = 500;
// Only the first names of a directory are looked at for content addresses.
constexpr std::size_t hashNamesLooked = 20;

std::size_t componentCount(const FileURL& url) { return paths::components(url.standardized().path()).size(); }

void sortParentsFirst(std::vector<FileURL>& urls) {
    std::stable_sort(urls.begin(), urls.end(),
                     [](const FileURL& a, const FileURL& b) { return componentCount(a) < componentCount(b); });
}

bool isSameOrBelowStandardized(const std::string& path, const std::string& kept) {
    return path == kept || path.starts_with(kept + "/");
}

// A name made of 32, 40 or 64 hex digits (MD5, SHA-1, SHA-256), the way
// content-addressed stores name their blobs.
bool isHashName(std::string_view name) {
    std::string stem(name);
    const std::string extension = paths::pathExtension(name);
    if (!extension.empty()) stem.resize(stem.size() - extension.size() - 1);
    if (stem.size() != 32 && stem.size() != 40 && stem.size() != 64) return false;
    return std::all_of(stem.begin(), stem.end(), [](char c) {
        return (c >= '0' && c <= '9') || (c >= 'a' && c <= 'f') || (c >= 'A' && c <= 'F');
    });
}

struct Decision {
    double confidenceScore;
    RiskTier riskTier;
    StorageCategory category;
};

// The confidences are kept as the doubles they have always been reported as
// (0.8999999999999999, not 0.9), so that reports stay comparable.
std::optional<Decision> decide(bool hasTag, bool matched, bool hashed, bool big) {
    if (hasTag) return Decision{1.0, RiskTier::safeToDelete, StorageCategory::developerCache};
    const auto anomaly = StorageCategory::unknownAnomaly;
    if (matched) {
        if (hashed && big) return Decision{0.95, RiskTier::safeToDelete, anomaly};
        if (hashed) return Decision{0.8999999999999999, RiskTier::safeToDelete, anomaly};
        if (big) return Decision{0.7499999999999999, RiskTier::safeToDelete, anomaly};
        return Decision{0.6499999999999999, RiskTier::reviewRequired, anomaly};
    }
    if (hashed && big) return Decision{0.65, RiskTier::reviewRequired, anomaly};
    if (hashed) return Decision{0.55, RiskTier::reviewRequired, anomaly};
    return std::nullopt;
}

} // namespace

AnomalyDetectorConfiguration AnomalyDetectorConfiguration::make(std::int64_t minSizeBytes, int maxSearchDepth,
                                                                FileURL homeURL,
                                                                std::optional<std::vector<FileURL>> inspectionRoots) {
    AnomalyDetectorConfiguration config;
    config.minSizeBytes = minSizeBytes;
    config.maxSearchDepth = maxSearchDepth;
    if (inspectionRoots) {
        config.inspectionRoots = std::move(*inspectionRoots);
    } else {
        for (const char* child : {".cache", "Library/Caches", "Library/Application Support", "Developer", "Projects"}) {
            config.inspectionRoots.push_back(homeURL.appending(child, true));
        }
    }
    config.homeURL = std::move(homeURL);
    return config;
}

AnomalyDetector::AnomalyDetector(AnomalyDetectorConfiguration config, std::shared_ptr<const RuleRegistry> ruleRegistry,
                                 std::shared_ptr<FileSystem> fileSystem, Clock clock)
    : config_(std::move(config)), ruleRegistry_(std::move(ruleRegistry)), fileSystem_(std::move(fileSystem)),
      clock_(std::move(clock)) {}

const std::vector<std::string>& AnomalyDetector::keywords() {
    static const std::vector<std::string> list{"cache",  "caches", "tmp",         "temp",      "artifacts",
                                               "build",  "wheels", "download",    "downloads", "dist",
                                               "target", "out",    "intermediate"};
    return list;
}

std::vector<StorageAnomaly> AnomalyDetector::detectAnomalies() const {
    std::vector<StorageAnomaly> found;
    for (const auto& root : config_.inspectionRoots) {
        if (!fileSystem_->fileExists(root.path())) continue;
        std::vector<FileURL> candidates = findCandidateDirectories(root, config_.maxSearchDepth);
        sortParentsFirst(candidates);
        for (const auto& candidate : candidates) {
            const std::string path = candidate.standardized().path();
            const bool covered = std::any_of(found.begin(), found.end(), [&](const StorageAnomaly& anomaly) {
                return isSameOrBelowStandardized(path, anomaly.url.standardized().path());
            });
            if (covered) continue;
            if (auto anomaly = analyzeCandidate(candidate)) found.push_back(std::move(*anomaly));
        }
    }

    // Roots may overlap (a Projects folder inside Developer, say): keep only
    // the outermost of nested finds.
    std::stable_sort(found.begin(), found.end(), [](const StorageAnomaly& a, const StorageAnomaly& b) {
        return componentCount(a.url) < componentCount(b.url);
    });
    std::vector<StorageAnomaly> kept;
    for (auto& anomaly : found) {
        const std::string path = anomaly.url.standardized().path();
        const bool below = std::any_of(kept.begin(), kept.end(), [&](const StorageAnomaly& outer) {
            return isSameOrBelowStandardized(path, outer.url.standardized().path());
        });
        if (!below) kept.push_back(std::move(anomaly));
    }
    std::stable_sort(kept.begin(), kept.end(), [](const StorageAnomaly& a, const StorageAnomaly& b) {
        return a.allocatedSizeBytes > b.allocatedSizeBytes;
    });
    return kept;
}

std::vector<FileURL> AnomalyDetector::findCandidateDirectories(const FileURL& root, int maxDepth) const {
    std::vector<FileURL> out;
    if (maxDepth <= 0) return out;
    auto directoriesIn = [&](const FileURL& directory) {
        std::vector<FileURL> found;
        PlatformError error;
        const auto entries = fileSystem_->contentsOfDirectory(directory.path(), {.skipHiddenFiles = true}, error);
        if (error) return found;
        for (const auto& entry : entries) {
            // The kind comes from lstat: a link to a directory is a link.
            if (entry.kind == FileKind::directory) found.push_back(directory.appending(entry.name, true));
        }
        return found;
    };
    for (const auto& child : directoriesIn(root)) {
        out.push_back(child);
        if (maxDepth == 1) continue;
        for (const auto& grandchild : directoriesIn(child))
            out.push_back(grandchild);
    }
    return out;
}

std::optional<StorageAnomaly> AnomalyDetector::analyzeCandidate(const FileURL& url) const {
    if (!ruleRegistry_->matchingRules(url.path()).empty()) return std::nullopt;

    const DirectoryMetrics metrics = computeDirectoryMetrics(url);
    if (metrics.allocatedBytes < config_.minSizeBytes) return std::nullopt;

    const auto tag = CacheDirTagDetector::detectTag(url, *fileSystem_);
    const bool hasTag = tag && tag->isValid;

    // Substring containment on purpose: "outlook" counts as "out".
    const std::string name = unicode::lowercased(url.lastComponent());
    std::vector<std::string> matched;
    for (const auto& keyword : keywords()) {
        if (name.find(keyword) != std::string::npos) matched.push_back(keyword);
    }
    const bool hashed = checkHashFilePatterns(url);

    const auto decision = decide(hasTag, !matched.empty(), hashed, metrics.fileCount > bigFileCount);
    if (!decision) return std::nullopt;

    auto rule = synthesizeRule(url, decision->riskTier, decision->category, hasTag);
    if (!rule) return std::nullopt;

    const std::optional<std::string> comment = tag ? tag->applicationComment : std::nullopt;
    std::string description =
        hasTag
            ? "Authoritative cache tagged with CACHEDIR.TAG standard (" + comment.value_or(name) + ")."
            : "Untracked heavy storage directory matching cache heuristics (keywords: " + text::joined(matched, ", ") + ").";

    StorageAnomaly anomaly;
    anomaly.id = Uuid::random();
    anomaly.url = url;
    anomaly.allocatedSizeBytes = metrics.allocatedBytes;
    anomaly.logicalSizeBytes = metrics.logicalBytes;
    anomaly.fileCount = metrics.fileCount;
    anomaly.confidenceScore = decision->confidenceScore;
    anomaly.hasCacheDirTag = hasTag;
    anomaly.tagApplicationComment = comment;
    anomaly.matchedKeywords = std::move(matched);
    anomaly.suggestedRiskTier = decision->riskTier;
    anomaly.suggestedCategory = decision->category;
    anomaly.anomalyDescription = std::move(description);
    anomaly.proposedRule = std::move(rule);
    return StorageAnomaly::make(std::move(anomaly));
}

// Every regular file below, hidden ones too, each at every name it has: a
// rough figure for a threshold, not the deduplicated measure of a scan item.
AnomalyDetector::DirectoryMetrics AnomalyDetector::computeDirectoryMetrics(const FileURL& url) const {
    const TreeMeasure tree = fileSystem_->measureTree(url.path(), {.status = WalkStatus::regularFiles});
    DirectoryMetrics metrics;
    metrics.fileCount = tree.files.count;
    metrics.allocatedBytes = tree.files.allocatedBytes;
    metrics.logicalBytes = tree.files.logicalBytes;
    return metrics;
}

bool AnomalyDetector::checkHashFilePatterns(const FileURL& url) const {
    PlatformError error;
    const auto entries = fileSystem_->contentsOfDirectory(url.path(), {}, error);
    if (error) return false;
    const std::size_t looked = std::min(entries.size(), hashNamesLooked);
    return std::any_of(entries.begin(), entries.begin() + static_cast<std::ptrdiff_t>(looked),
                       [](const DirectoryEntry& entry) { return isHashName(entry.name); });
}

std::optional<RuleDefinition> AnomalyDetector::synthesizeRule(const FileURL& url, RiskTier riskTier,
                                                              StorageCategory category, bool isRegenerable) const {
    std::string path = url.path();
    const std::string& home = config_.homeURL.path();
    if (!home.empty() && path.starts_with(home)) path = text::replacingAll(path, home, "~");
    const std::string pattern = path + "/**";
    try {
        SandboxValidator::validatePattern(pattern, std::nullopt, config_.homeURL, *fileSystem_);
    } catch (const std::exception&) {
        return std::nullopt;
    }
    const std::string name = url.lastComponent();
    const Date now = clock_();
    RuleDefinition rule;
    rule.id = "dynamic.anomaly." + sanitizeSlug(name);
    rule.name = "Untracked Cache (" + name + ")";
    rule.description = "Synthesized cleanup rule for uncataloged directory at " + pattern + ".";
    rule.category = category;
    rule.riskTier = riskTier;
    rule.patterns = {pattern};
    rule.isRegenerable = isRegenerable;
    rule.isBuiltIn = false;
    rule.enabled = true;
    rule.synthesizedBy = "anomaly_detector";
    rule.createdAt = now;
    rule.updatedAt = now;
    return rule;
}

std::string AnomalyDetector::sanitizeSlug(std::string_view text) {
    const std::string lower = unicode::lowercased(text);
    std::string slug;
    bool gapWritten = false;
    std::size_t at = 0;
    while (at < lower.size()) {
        const std::string_view rest = std::string_view(lower).substr(at);
        const std::size_t length = unicode::validUtf8SequenceLength(rest);
        bool keep = false;
        if (length > 0) {
            const char32_t scalar = unicode::scalars(rest.substr(0, length))->front();
            keep = unicode::isAlphanumeric(scalar) || scalar == U'.' || scalar == U'_';
        }
        const std::size_t step = length > 0 ? length : 1; // a stray byte is one "anything else"
        if (keep) {
            slug.append(rest.substr(0, step));
            gapWritten = false;
        } else if (!slug.empty() && !gapWritten) {
            slug += '-';
            gapWritten = true;
        }
        at += step;
    }
    while (!slug.empty() && (slug.back() == '-' || slug.back() == '.'))
        slug.pop_back();
    return slug.empty() ? "untracked" : slug;
}

} // namespace unbulk
