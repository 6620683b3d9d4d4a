#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Models/StorageAnomaly.hpp"
#include "Platform/Clock.hpp"
#include "Platform/FileSystem.hpp"
#include "Support/FileURL.hpp"

namespace unbulk {

class RuleRegistry;

struct AnomalyDetectorConfiguration {
    std::int64_t minSizeBytes = 0;
    std::vector<FileURL> inspectionRoots;
    int maxSearchDepth = 0; // 1 or 2: deeper asks never look further than 2
    FileURL homeURL;

    // Without roots: .cache, Library/Caches, Library/Application Support,
    // Developer and Projects under the home, in that order.
    static AnomalyDetectorConfiguration make(std::int64_t minSizeBytes, int maxSearchDepth, FileURL homeURL,
                                             std::optional<std::vector<FileURL>> inspectionRoots = std::nullopt);
};

// Looks for what the catalog cannot know: large directories under a few
// well-known roots that no active rule covers but that carry a CACHEDIR.TAG,
// or whose names or contents say "cache". It suggests a rule for each and
// changes nothing: neither the registry nor the disk. What cannot be read
// just yields less; only the registry can make it fail.
class AnomalyDetector {
public:
    // `clock` dates the rules it suggests.
    AnomalyDetector(AnomalyDetectorConfiguration config, std::shared_ptr<const RuleRegistry> ruleRegistry,
                    std::shared_ptr<FileSystem> fileSystem, Clock clock);

    // Largest first; a find below another find is left out.
    std::vector<StorageAnomaly> detectAnomalies() const;

    // A rule id's last part made of a directory name: lower case, letters of
    // any script, digits, "." and "_", with every other run as one "-".
    static std::string sanitizeSlug(std::string_view text);

    // The names in which a directory's name announces a cache, in the order
    // they are reported.
    static const std::vector<std::string>& keywords();

private:
    struct DirectoryMetrics {
        std::int64_t allocatedBytes = 0;
        std::int64_t logicalBytes = 0;
        std::int64_t fileCount = 0;
    };

    std::vector<FileURL> findCandidateDirectories(const FileURL& root, int maxDepth) const;
    std::optional<StorageAnomaly> analyzeCandidate(const FileURL& url) const;
    DirectoryMetrics computeDirectoryMetrics(const FileURL& url) const;
    bool checkHashFilePatterns(const FileURL& url) const;
    std::optional<RuleDefinition> synthesizeRule(const FileURL& url, RiskTier riskTier, StorageCategory category,
                                                 bool isRegenerable) const;

    AnomalyDetectorConfiguration config_;
    std::shared_ptr<const RuleRegistry> ruleRegistry_;
    std::shared_ptr<FileSystem> fileSystem_;
    Clock clock_;
};

} // namespace unbulk
