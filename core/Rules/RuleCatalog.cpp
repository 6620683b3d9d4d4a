#include "Rules/RuleCatalog.hpp"

#include "Support/Json.hpp"

#include <algorithm>

#include <fmt/format.h>

namespace unbulk {

RuleCatalog makeRuleCatalog(std::vector<RuleDefinition> rules, Date updatedAt) {
    std::stable_sort(rules.begin(), rules.end(),
                     [](const RuleDefinition& a, const RuleDefinition& b) { return a.id < b.id; });
    return RuleCatalog{.version = 1, .updatedAt = updatedAt, .rules = std::move(rules)};
}

Json toJson(const RuleCatalog& catalog) {
    Json rules = Json::array();
    for (const auto& rule : catalog.rules) rules.push_back(toJson(rule));
    return Json{
        {"version", catalog.version},
        {"updatedAt", dates::iso8601(catalog.updatedAt)},
        {"rules", std::move(rules)},
    };
}

RuleCatalog ruleCatalogFromJson(const Json& json) {
    const RuleJsonReader reader(json, "");
    RuleCatalog catalog;
    catalog.version = reader.integer("version");
    catalog.updatedAt = reader.date("updatedAt");
    const Json& rules = reader.array("rules");
    catalog.rules.reserve(rules.size());
    for (std::size_t i = 0; i < rules.size(); ++i) {
        catalog.rules.push_back(ruleDefinitionFromJson(rules[i], fmt::format("rules[{}]", i)));
    }
    return catalog;
}

} // namespace unbulk
