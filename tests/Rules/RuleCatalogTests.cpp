#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Rules/BuiltInRules.hpp"
#include "Rules/RuleCatalog.hpp"
#include "Support/Json.hpp"

namespace unbulk {
namespace {

Date at(const char* iso) { return *dates::parseISO8601(iso); }

TEST(RuleJson, RulesAndCatalogsRoundTripLeavingAbsentOptionalsOut) {
    const RuleDefinition full{.id = "custom_mlx_models", .name = "MLX", .description = "Weights fetched by mlx.",
                              .category = StorageCategory::aiModelWeights, .riskTier = RiskTier::reviewRequired,
                              .patterns = {"~/.cache/mlx/**"}, .excludedPatterns = {"~/.cache/mlx/keep/**"},
                              .isRegenerable = true, .enabled = false, .minAgeDays = 30, .synthesizedBy = "anomaly",
                              .createdAt = at("2026-03-01T10:15:30Z"), .updatedAt = at("2026-03-02T08:00:00Z")};
    const Json j = toJson(full);
    EXPECT_EQ(j.at("createdAt"), "2026-03-01T10:15:30Z");
    EXPECT_EQ(ruleDefinitionFromJson(j), full);

    const RuleDefinition bare{.id = "a.bare", .name = "n", .description = "d", .patterns = {"~/x/**"}};
    EXPECT_EQ(toJson(bare).size(), 10u); // no key at all for an absent optional, never null
    EXPECT_EQ(ruleDefinitionFromJson(toJson(bare)), bare);

    const RuleCatalog catalog = makeRuleCatalog({full, bare}, at("2026-03-01T10:15:30Z"));
    EXPECT_EQ(catalog.rules.front(), bare); // sorted by id
    EXPECT_EQ(ruleCatalogFromJson(toJson(catalog)), catalog);
}

TEST(RuleJson, AnUnknownRawValueFailsTheWholeCatalogAndSaysWhere) {
    Json catalog = toJson(RuleCatalog{.rules = std::vector(3, RuleDefinition{.id = "a"})});
    catalog["rules"][1]["category"] = "developerCache";
    EXPECT_THAT([&] { ruleCatalogFromJson(catalog); },
                ::testing::ThrowsMessage<RuleDecodingError>(
                    "Invalid value at rules[1].category: unknown raw value \"developerCache\"."));
}

} // namespace
} // namespace unbulk
