#pragma once

#include <vector>

#include "Models/RuleDefinition.hpp"
#include "Support/Dates.hpp"
#include "Support/JsonFwd.hpp"

namespace unbulk {

// The document stored in rules.json: the rules that are not built in.
struct RuleCatalog {
    int version = 1; // always written as 1; read back but never checked
    Date updatedAt;
    std::vector<RuleDefinition> rules;

    friend bool operator==(const RuleCatalog&, const RuleCatalog&) = default;
};

// A catalog of version 1 written at `updatedAt`, its rules sorted by id
// (plain byte order), as the file keeps them. Rules of equal id keep their
// order.
RuleCatalog makeRuleCatalog(std::vector<RuleDefinition> rules, Date updatedAt);

// The three keys `version`, `updatedAt` (ISO 8601) and `rules`, the rules in
// the order the catalog holds them: sorting is makeRuleCatalog's job, so a
// catalog read from a file writes back unchanged.
Json toJson(const RuleCatalog& catalog);

// Strict: any missing key, wrong type or unknown raw value, in the catalog or
// in any one of its rules, fails the whole document with RuleDecodingError.
// Rules come back in file order, duplicates included.
RuleCatalog ruleCatalogFromJson(const Json& json);

} // namespace unbulk
