#pragma once

#include <optional>
#include <string>
#include <vector>

#include "Models/Categories.hpp"
#include "Models/RuleDecoding.hpp"
#include "Support/Dates.hpp"
#include "Support/JsonFwd.hpp"

namespace unbulk {

// One cleanup rule: which paths hold one kind of disposable data, how risky
// removing it is, and whether its tool makes it again. Only `enabled` ever
// changes; any other change replaces the whole value.
struct RuleDefinition {
    std::string id;
    std::string name;
    std::string description;
    StorageCategory category = StorageCategory::developerCache;
    RiskTier riskTier = RiskTier::safeToDelete;
    std::vector<std::string> patterns;
    std::vector<std::string> excludedPatterns;
    bool isRegenerable = false;
    bool isBuiltIn = false;
    bool enabled = true;
    std::optional<int> minAgeDays;
    std::optional<std::string> synthesizedBy;
    std::optional<Date> createdAt;
    std::optional<Date> updatedAt;

    friend bool operator==(const RuleDefinition&, const RuleDefinition&) = default;
};

// The JSON form: every field under its own name, category and tier as raw
// values, and an absent optional left out. Dates are ISO 8601 without a
// fraction by default, as rules.json holds them; a rule inside another
// record (a proposed rule of an anomaly) takes that record's date form.
Json toJson(const RuleDefinition& rule, DateEncoding dates = DateEncoding::iso8601);

// Strict reading: a missing required key, a value of the wrong type or an
// unknown category or tier raw value throws RuleDecodingError. The four
// optional keys may be missing or null. Dates must be ISO 8601 strings, with
// or without a fraction of a second; numbers are refused. Unknown keys are
// ignored. `codingPath` is where the rule sits in a larger document, for the
// error's text.
RuleDefinition ruleDefinitionFromJson(const Json& json, const std::string& codingPath = {});

} // namespace unbulk
