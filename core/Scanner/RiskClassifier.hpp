#pragma once

#include <memory>
#include <optional>
#include <string>

#include "Models/Categories.hpp"
#include "Platform/FileSystem.hpp"
#include "Support/FileURL.hpp"

namespace unbulk {

class RuleRegistry;

struct RiskClassificationResult {
    RiskTier riskTier = RiskTier::reviewRequired;
    double confidence = 0;
    std::string reason;
    std::optional<std::string> matchedRuleId;
    bool hasCacheDirTag = false;

    friend bool operator==(const RiskClassificationResult&, const RiskClassificationResult&) = default;
};

// Gives a path a risk tier, a confidence and the sentence that says why.
// Keep boundaries first (on the path, then on a link's target), then a rule
// of the registry, then a valid CACHEDIR.TAG, then the category's default.
// It always answers.
class RiskClassifier {
public:
    RiskClassifier(FileURL homeURL, std::shared_ptr<const RuleRegistry> ruleRegistry,
                   std::shared_ptr<const FileSystem> fileSystem);

    RiskClassificationResult classify(const FileURL& url, StorageCategory category, bool isOrphaned) const;

    // The reason a path lies inside a keep boundary, or nothing.
    static std::optional<std::string> evaluateKeepBoundaries(const std::string& path, const std::string& homePath);

private:
    FileURL homeURL_;
    std::shared_ptr<const RuleRegistry> ruleRegistry_;
    std::shared_ptr<const FileSystem> fileSystem_;
};

} // namespace unbulk
