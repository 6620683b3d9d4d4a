#include <algorithm>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Rules/BuiltInRules.hpp"
#include "Rules/RuleBaseDirectory.hpp"
#include "Rules/RuleCatalog.hpp"
#include "Rules/RuleDefinition.hpp"

namespace unbulk {
namespace {

using Strings = std::vector<std::string>;
using Kind = RuleDecodingError::Kind;

Date at(const char* iso) { return *dates::parseISO8601(iso); }

const RuleDefinition& byId(const std::vector<RuleDefinition>& rules, const std::string& id) {
    auto it = std::find_if(rules.begin(), rules.end(), [&](const auto& r) { return r.id == id; });
    if (it == rules.end()) throw std::runtime_error("no rule " + id);
    return *it;
}

RuleDefinition fullRule() {
    return RuleDefinition{
        .id = "custom_mlx_models",
        .name = "MLX Models",
        .description = "Weights fetched by mlx.",
        .category = StorageCategory::aiModelWeights,
        .riskTier = RiskTier::reviewRequired,
        .patterns = {"~/.cache/mlx/**", "~/mlx/*.safetensors"},
        .excludedPatterns = {"~/.cache/mlx/keep/**"},
        .isRegenerable = false,
        .isBuiltIn = false,
        .enabled = false,
        .minAgeDays = 30,
        .synthesizedBy = "anomaly_detector",
        .createdAt = at("2026-03-01T10:15:30Z"),
        .updatedAt = at("2026-03-02T08:00:00Z"),
    };
}

Kind decodeFailure(const Json& rule, std::string* path = nullptr) {
    try {
        ruleDefinitionFromJson(rule);
    } catch (const RuleDecodingError& error) {
        if (path) *path = error.codingPath;
        return error.kind;
    }
    ADD_FAILURE() << "decoded: " << rule.dump();
    return Kind::dataCorrupted;
}

TEST(BuiltInRules, TwentyFourBuiltInEnabledRulesInTableOrder) {
    const Date now = at("2026-03-01T10:15:30Z");
    const auto rules = buildDefaultCatalog(now);
    ASSERT_EQ(rules.size(), 24u);
    EXPECT_EQ(rules.front().id, "dev.uv.cache");
    EXPECT_EQ(rules[11].id, "ai.huggingface.hub");
    EXPECT_EQ(rules.back().id, "sys.browser.chrome");
    std::set<std::string> ids;
    for (const auto& rule : rules) {
        SCOPED_TRACE(rule.id);
        EXPECT_TRUE(ids.insert(rule.id).second);
        EXPECT_TRUE(rule.isBuiltIn && rule.enabled);
        EXPECT_FALSE(rule.patterns.empty());
        EXPECT_FALSE(rule.minAgeDays || rule.synthesizedBy);
        EXPECT_EQ(rule.createdAt, now);
        EXPECT_EQ(rule.updatedAt, now);
        // In this table a rule needs review exactly when its tool does not remake the data.
        bool review = rule.riskTier == RiskTier::reviewRequired;
        EXPECT_EQ(review, !rule.isRegenerable);
    }
}

TEST(BuiltInRules, RowsReadExactly) {
    const auto rules = buildDefaultCatalog(Date{});
    struct Row {
        std::string id, name, description;
        StorageCategory category;
        RiskTier tier;
        Strings patterns, excluded;
    };
    const std::vector<Row> rows{
        {"dev.cargo.cache", "Cargo Registry & Git Cache", "Downloaded crate archives and git index checkouts for Rust.",
         StorageCategory::developerCache, RiskTier::safeToDelete,
         {"~/.cargo/registry/cache/**", "~/.cargo/registry/src/**", "~/.cargo/git/db/**", "~/.cargo/git/checkouts/**",
          "~/.cargo/.package-cache/**"},
         {"~/.cargo/bin/**", "~/.cargo/config.toml", "~/.cargo/credentials.toml"}},
        {"dev.homebrew.cache", "Homebrew Cache",
         "Downloaded formula bottles, cask packages, and API metadata managed by Homebrew.",
         StorageCategory::developerCache, RiskTier::safeToDelete, {"~/Library/Caches/Homebrew/**"},
         {"~/Library/Caches/Homebrew/downloads/*.incomplete"}},
        {"dev.docker.orphaned_vm", "Docker VM Disk Image", "Docker Desktop Linux VM APFS disk image (Docker.raw).",
         StorageCategory::dockerVM, RiskTier::reviewRequired,
         {"~/Library/Containers/com.docker.docker/Data/vms/*/data/Docker.raw",
          "~/Library/Containers/com.docker.docker/Data/vms/*/Docker.raw"},
         {}},
        {"dev.stray.node_modules", "Stray Home node_modules",
         "Accidentally installed npm modules located directly inside user home root.",
         StorageCategory::strayDependencies, RiskTier::reviewRequired, {"~/node_modules/**"}, {}},
        {"sys.crash.user_reports", "Crash & Diagnostic Reports", "Apple diagnostic crash dumps (.ips, .crash files).",
         StorageCategory::crashReports, RiskTier::safeToDelete,
         {"~/Library/Logs/DiagnosticReports/**", "~/Library/Logs/CrashReporter/**"}, {}},
        {"sys.browser.chrome", "Google Chrome Cache", "Disk HTTP cache and V8 code cache for Chrome.",
         StorageCategory::browserCaches, RiskTier::safeToDelete,
         {"~/Library/Caches/Google/Chrome/*/Cache/**", "~/Library/Caches/Google/Chrome/*/Code Cache/**"}, {}},
        {"ai.whisper.models", "OpenAI Whisper Models",
         "Pretrained PyTorch model checkpoints for Whisper audio transcription.", StorageCategory::aiModelWeights,
         RiskTier::reviewRequired, {"~/.cache/whisper/*.pt"}, {}},
    };
    for (const auto& row : rows) {
        SCOPED_TRACE(row.id);
        const auto& rule = byId(rules, row.id);
        EXPECT_EQ(rule.name, row.name);
        EXPECT_EQ(rule.description, row.description);
        EXPECT_EQ(rule.category, row.category);
        EXPECT_EQ(rule.riskTier, row.tier);
        EXPECT_EQ(rule.patterns, row.patterns);
        EXPECT_EQ(rule.excludedPatterns, row.excluded);
    }
    // The Homebrew cache leaves out exactly what the incomplete-downloads rule takes.
    EXPECT_EQ(byId(rules, "dev.homebrew.cache").excludedPatterns, byId(rules, "dev.homebrew.incomplete").patterns);
    EXPECT_EQ(std::count_if(rules.begin(), rules.end(),
                            [](const auto& r) { return r.category == StorageCategory::developerCache; }),
              11);
}

TEST(RuleDefinitionJson, RoundTripsWithDatesAsIsoStrings) {
    const RuleDefinition rule = fullRule();
    const Json j = toJson(rule);
    EXPECT_EQ(j.size(), 14u);
    EXPECT_EQ(j.at("category"), "AI_MODEL_WEIGHTS");
    EXPECT_EQ(j.at("riskTier"), "REVIEW_REQUIRED");
    EXPECT_EQ(j.at("createdAt"), "2026-03-01T10:15:30Z");
    EXPECT_EQ(j.at("minAgeDays"), 30);
    EXPECT_EQ(ruleDefinitionFromJson(j), rule);
    EXPECT_EQ(ruleDefinitionFromJson(Json::parse(json::pretty(j))), rule);
}

TEST(RuleDefinitionJson, AbsentOptionalsWriteNoKeyAndReadBackAbsent) {
    RuleDefinition rule = fullRule();
    rule.minAgeDays.reset();
    rule.synthesizedBy.reset();
    rule.createdAt.reset();
    rule.updatedAt.reset();
    const Json j = toJson(rule);
    for (const char* key : {"minAgeDays", "synthesizedBy", "createdAt", "updatedAt"}) EXPECT_FALSE(j.contains(key));
    EXPECT_EQ(ruleDefinitionFromJson(j), rule);
    Json withNulls = j;
    withNulls["minAgeDays"] = nullptr;
    withNulls["createdAt"] = nullptr;
    EXPECT_EQ(ruleDefinitionFromJson(withNulls), rule);
}

TEST(RuleDefinitionJson, AcceptsFractionalSecondsAndIgnoresUnknownKeys) {
    Json j = toJson(fullRule());
    j["createdAt"] = "2026-03-01T10:15:30.250Z";
    j["futureField"] = true;
    EXPECT_EQ(ruleDefinitionFromJson(j).createdAt, at("2026-03-01T10:15:30Z") + std::chrono::milliseconds(250));
}

TEST(RuleDefinitionJson, EveryRequiredKeyIsRequired) {
    for (const char* key : {"id", "name", "description", "category", "riskTier", "patterns", "excludedPatterns",
                            "isRegenerable", "isBuiltIn", "enabled"}) {
        SCOPED_TRACE(key);
        Json j = toJson(fullRule());
        j.erase(key);
        std::string path;
        EXPECT_EQ(decodeFailure(j, &path), Kind::keyNotFound);
        EXPECT_EQ(path, key);
    }
}

TEST(RuleDefinitionJson, RejectsWrongTypesAndUnknownValues) {
    struct Case {
        const char* key;
        Json value;
        Kind kind;
        std::string path;
    };
    const std::vector<Case> cases{
        {"name", 5, Kind::typeMismatch, "name"},
        {"id", nullptr, Kind::typeMismatch, "id"},
        {"patterns", "~/x/**", Kind::typeMismatch, "patterns"},
        {"excludedPatterns", Json::array({"~/a", 1}), Kind::typeMismatch, "excludedPatterns[1]"},
        {"enabled", "true", Kind::typeMismatch, "enabled"},
        {"minAgeDays", 1.5, Kind::typeMismatch, "minAgeDays"},
        {"minAgeDays", 4294967296LL, Kind::dataCorrupted, "minAgeDays"},
        {"createdAt", 794052930.0, Kind::typeMismatch, "createdAt"},
        {"updatedAt", "yesterday", Kind::dataCorrupted, "updatedAt"},
        {"category", "developerCache", Kind::dataCorrupted, "category"},
        {"riskTier", "SAFE", Kind::dataCorrupted, "riskTier"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.key + (" = " + c.value.dump()));
        Json j = toJson(fullRule());
        j[c.key] = c.value;
        std::string path;
        EXPECT_EQ(decodeFailure(j, &path), c.kind);
        EXPECT_EQ(path, c.path);
    }
    EXPECT_EQ(decodeFailure(Json::array()), Kind::typeMismatch);
}

TEST(RuleCatalogJson, EmptyCatalogHasThreeKeysAndRoundTrips) {
    const RuleCatalog catalog = makeRuleCatalog({}, at("2026-03-01T10:15:30Z"));
    const Json j = toJson(catalog);
    EXPECT_EQ(j, Json::parse(R"({"rules":[],"updatedAt":"2026-03-01T10:15:30Z","version":1})"));
    EXPECT_EQ(ruleCatalogFromJson(j), catalog);
}

TEST(RuleCatalogJson, MakeSortsByIdAndDecodingKeepsFileOrder) {
    RuleDefinition b = fullRule(), a = fullRule(), dotted = fullRule();
    b.id = "b";
    a.id = "a";
    dotted.id = "a.z";
    const RuleCatalog catalog = makeRuleCatalog({b, dotted, a}, at("2026-03-01T10:15:30Z"));
    ASSERT_EQ(catalog.rules.size(), 3u);
    EXPECT_EQ(catalog.rules[0].id, "a");
    EXPECT_EQ(catalog.rules[1].id, "a.z");
    EXPECT_EQ(catalog.rules[2].id, "b");
    EXPECT_EQ(ruleCatalogFromJson(toJson(catalog)), catalog);

    Json unsorted = toJson(catalog);
    std::swap(unsorted["rules"][0], unsorted["rules"][2]);
    EXPECT_EQ(ruleCatalogFromJson(unsorted).rules.front().id, "b");
    unsorted["version"] = 7;
    EXPECT_EQ(ruleCatalogFromJson(unsorted).version, 7);
}

TEST(RuleCatalogJson, OneBadPartFailsTheWholeCatalog) {
    RuleDefinition a = fullRule(), b = fullRule(), c = fullRule();
    a.id = "a";
    b.id = "b";
    c.id = "c";
    const Json good = toJson(makeRuleCatalog({a, b, c}, at("2026-03-01T10:15:30Z")));
    struct Case {
        std::string name;
        Json document;
        Kind kind;
        std::string path;
    };
    std::vector<Case> cases;
    cases.push_back({"category of the middle rule", good, Kind::dataCorrupted, "rules[1].category"});
    cases.back().document["rules"][1]["category"] = "NOT_A_CATEGORY";
    cases.push_back({"exclusions of the last rule", good, Kind::keyNotFound, "rules[2].excludedPatterns"});
    cases.back().document["rules"][2].erase("excludedPatterns");
    cases.push_back({"updatedAt", good, Kind::keyNotFound, "updatedAt"});
    cases.back().document.erase("updatedAt");
    cases.push_back({"version", good, Kind::typeMismatch, "version"});
    cases.back().document["version"] = "1";
    cases.push_back({"rules", good, Kind::typeMismatch, "rules"});
    cases.back().document["rules"] = Json::object();
    for (const auto& bad : cases) {
        SCOPED_TRACE(bad.name);
        try {
            ruleCatalogFromJson(bad.document);
            ADD_FAILURE() << "decoded";
        } catch (const RuleDecodingError& error) {
            EXPECT_EQ(error.kind, bad.kind);
            EXPECT_EQ(error.codingPath, bad.path);
        }
    }
    try {
        ruleCatalogFromJson(cases[1].document);
    } catch (const std::exception& error) {
        EXPECT_STREQ(error.what(), "Missing required key at rules[2].excludedPatterns.");
    }
}

TEST(RuleBaseDirectory, RawValuesAreCaseNamesAndUnknownGivesNothing) {
    const std::vector<std::string> expected{"home",          "userCaches",    "userApplicationSupport",
                                            "userDeveloper", "systemLibrary", "absolute"};
    const auto all = allRuleBaseDirectories();
    ASSERT_EQ(all.size(), expected.size());
    for (std::size_t i = 0; i < all.size(); ++i) {
        EXPECT_EQ(rawValue(all[i]), expected[i]);
        EXPECT_EQ(ruleBaseDirectoryFromRawValue(expected[i]), all[i]);
        EXPECT_EQ(Json(all[i]).get<RuleBaseDirectory>(), all[i]);
    }
    for (const char* unknown : {"Home", "", "user_caches", "HOME"}) {
        EXPECT_FALSE(ruleBaseDirectoryFromRawValue(unknown)) << unknown;
    }
    EXPECT_THROW(Json("library").get<RuleBaseDirectory>(), Json::exception);
}

} // namespace
} // namespace unbulk
