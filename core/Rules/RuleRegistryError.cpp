#include "Rules/RuleRegistryError.hpp"

namespace unbulk {
namespace {

std::string describe(RuleRegistryError::Kind kind, const std::string& payload) {
    using Kind = RuleRegistryError::Kind;
    switch (kind) {
    case Kind::invalidRuleId:
        return "Rule ID '" + payload +
               "' is invalid. It must be non-empty and contain only alphanumeric characters, dots, and underscores.";
    case Kind::duplicateRuleId:
        return "Rule with ID '" + payload + "' already exists in the registry.";
    case Kind::emptyPatterns:
        return "Rule '" + payload + "' must define at least one path pattern.";
    case Kind::cannotOverwriteBuiltIn:
        return "Cannot overwrite built-in rule '" + payload + "' with a dynamic rule.";
    case Kind::sandboxViolation:
        return "Rule rejected by sandbox security validator: " + payload;
    case Kind::catalogPersistenceFailed:
        return "Failed to persist rule catalog to disk: " + payload;
    case Kind::catalogDecodingFailed:
        return "Failed to parse rules.json: " + payload;
    }
    return payload;
}

} // namespace

RuleRegistryError::RuleRegistryError(Kind k, std::string p)
    : kind(k), payload(std::move(p)), description(describe(k, payload)) {}

} // namespace unbulk
