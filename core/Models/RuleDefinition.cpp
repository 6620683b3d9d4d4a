#include "Models/RuleDefinition.hpp"

#include "Support/Json.hpp"

#include <fmt/format.h>

namespace unbulk {
namespace {

template <TabledEnum Enum>
Enum readRawValue(const RuleJsonReader& reader, std::string_view key) {
    const std::string raw = reader.string(key);
    std::optional<Enum> value = fromRawValue<Enum>(raw);
    if (!value) {
        throw RuleDecodingError(RuleDecodingError::Kind::dataCorrupted, reader.pathOf(key),
                                fmt::format("unknown raw value \"{}\"", raw));
    }
    return *value;
}

} // namespace

Json toJson(const RuleDefinition& rule, DateEncoding dates) {
    const auto encodeDate = [dates](Date date) { return dates::encode(date, dates); };
    Json j{
        {"id", rule.id},
        {"name", rule.name},
        {"description", rule.description},
        {"category", rule.category},
        {"riskTier", rule.riskTier},
        {"patterns", rule.patterns},
        {"excludedPatterns", rule.excludedPatterns},
        {"isRegenerable", rule.isRegenerable},
        {"isBuiltIn", rule.isBuiltIn},
        {"enabled", rule.enabled},
    };
    json::setOptional(j, "minAgeDays", rule.minAgeDays);
    json::setOptional(j, "synthesizedBy", rule.synthesizedBy);
    json::setOptional(j, "createdAt", rule.createdAt, encodeDate);
    json::setOptional(j, "updatedAt", rule.updatedAt, encodeDate);
    return j;
}

RuleDefinition ruleDefinitionFromJson(const Json& json, const std::string& codingPath) {
    const RuleJsonReader reader(json, codingPath);
    RuleDefinition rule;
    rule.id = reader.string("id");
    rule.name = reader.string("name");
    rule.description = reader.string("description");
    rule.category = readRawValue<StorageCategory>(reader, "category");
    rule.riskTier = readRawValue<RiskTier>(reader, "riskTier");
    rule.patterns = reader.strings("patterns");
    rule.excludedPatterns = reader.strings("excludedPatterns");
    rule.isRegenerable = reader.boolean("isRegenerable");
    rule.isBuiltIn = reader.boolean("isBuiltIn");
    rule.enabled = reader.boolean("enabled");
    rule.minAgeDays = reader.optionalInt("minAgeDays");
    rule.synthesizedBy = reader.optionalString("synthesizedBy");
    rule.createdAt = reader.optionalDate("createdAt");
    rule.updatedAt = reader.optionalDate("updatedAt");
    return rule;
}

} // namespace unbulk
