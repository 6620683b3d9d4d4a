#pragma once

#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "Platform/Clock.hpp"
#include "Platform/FileSystem.hpp"
#include "Models/RuleDefinition.hpp"
#include "Rules/RuleRegistryError.hpp"
#include "Support/FileURL.hpp"

namespace unbulk {

// The live set of cleanup rules: the built-in catalog, plus dynamic rules
// registered at run time and kept in rules.json, which this class alone
// writes. Operations are serialised on one mutex.
class RuleRegistry {
public:
    // Without a rules file URL the file is <home>/.unbulk/rules.json. Starts
    // with the built-in catalog and does not read the file. `clock` dates
    // the catalog and the rules it keeps as dynamic.
    RuleRegistry(std::optional<FileURL> rulesFileURL, FileURL homeURL, std::shared_ptr<FileSystem> fileSystem,
                 Clock clock);

    // Puts valid stored rules on top of the built-ins; a stored rule that
    // would replace a built-in or fails the sandbox is skipped silently.
    void loadCustomRules();
    void saveCustomRules();

    void registerRule(const RuleDefinition& rule);
    void setRuleEnabled(const std::string& id, bool enabled);
    void removeRule(const std::string& id);

    // Sorted by id.
    std::vector<RuleDefinition> allRules() const;
    std::vector<RuleDefinition> activeRules() const;
    std::optional<RuleDefinition> rule(const std::string& id) const;
    // Enabled rules of the category, in no particular order.
    std::vector<RuleDefinition> rules(StorageCategory category) const;
    // Enabled rules that match the path and whose exclusions do not, sorted by id.
    std::vector<RuleDefinition> matchingRules(const std::string& path) const;

    const FileURL& rulesFileURL() const { return rulesFileURL_; }
    const FileURL& homeURL() const { return homeURL_; }

private:
    void saveLocked() const;

    FileURL rulesFileURL_;
    FileURL homeURL_;
    std::shared_ptr<FileSystem> fileSystem_;
    Clock clock_;
    mutable std::mutex mutex_;
    std::map<std::string, RuleDefinition> rulesById_; // ordered by id, the order every listing uses
};

// True for a non-empty id made only of Unicode letters, marks and digits and
// ".", "_" and "-".
bool isValidRuleId(const std::string& id);

} // namespace unbulk
