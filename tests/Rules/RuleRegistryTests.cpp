#include "Rules/RuleRegistry.hpp"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <optional>
#include <ostream>
#include <regex>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>

#include "Rules/BuiltInRules.hpp"
#include "Rules/RuleCatalog.hpp"
#include "Safety/SandboxSecurityError.hpp"
#include "support/FaultyFileSystem.hpp"
#include "support/TempHome.hpp"

namespace unbulk {
void PrintTo(const RuleRegistryError& error, std::ostream* out) { *out << error.what(); }
} // namespace unbulk

namespace unbulk {
namespace {

namespace fs = std::filesystem;
using Kind = RuleRegistryError::Kind;
using Strings = std::vector<std::string>;
using testing::FaultyFileSystem;
using testing::FileSystemCall;

constexpr const char* invalidIdTail =
    "' is invalid. It must be non-empty and contain only alphanumeric characters, dots, and underscores.";

Date at(const char* iso) { return *dates::parseISO8601(iso); }

// The file keeps whole seconds, so "now" is compared at that grain.
Date nowSeconds() { return std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now()); }

RuleDefinition dynamicRule(std::string id, Strings patterns = {"~/.cache/mlx/**"}) {
    std::string name = "Rule " + id;
    return RuleDefinition{
        .id = std::move(id),
        .name = std::move(name),
        .description = "Weights fetched by mlx.",
        .category = StorageCategory::aiModelWeights,
        .riskTier = RiskTier::reviewRequired,
        .patterns = std::move(patterns),
        .excludedPatterns = {},
        .isRegenerable = false,
        .isBuiltIn = false,
        .enabled = true,
    };
}

template <typename Error>
std::optional<Error> errorOf(const std::function<void()>& call) {
    try {
        call();
    } catch (const Error& error) {
        return error;
    }
    return std::nullopt;
}

std::optional<std::string> readText(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return std::nullopt;
    return std::string(std::istreambuf_iterator<char>(in), {});
}

Strings idsOf(const std::vector<RuleDefinition>& rules) {
    Strings ids;
    for (const auto& rule : rules) ids.push_back(rule.id);
    return ids;
}

class RuleRegistryTest : public ::testing::Test {
protected:
    testing::TempHome temp;
    const FileURL homeURL{temp.path(), true};
    const std::string rulesPath = temp.at(".unbulk/rules.json");
    std::shared_ptr<FaultyFileSystem> fileSystem = std::make_shared<FaultyFileSystem>();

    RuleRegistry makeRegistry() { return RuleRegistry(std::nullopt, homeURL, fileSystem); }

    bool rulesFileExists() const { return fs::exists(fs::symlink_status(rulesPath)); }

    RuleCatalog storedCatalog() const {
        auto text = readText(rulesPath);
        if (!text) throw std::runtime_error("no rules file");
        return ruleCatalogFromJson(Json::parse(*text));
    }

    Strings storedIds() const { return idsOf(storedCatalog().rules); }

    // Writes rules.json by hand, rules in the given order (duplicates kept).
    void writeStoredRules(const std::vector<Json>& rules) const {
        Json array = Json::array();
        for (const auto& rule : rules) array.push_back(rule);
        Json document{{"version", 1}, {"updatedAt", "2026-03-01T10:15:30Z"}, {"rules", array}};
        temp.writeFile(".unbulk/rules.json", document.dump(2));
    }

    size_t writes() const {
        return fileSystem->callCount(FileSystemCall::writeFileAtomically) +
               fileSystem->callCount(FileSystemCall::createDirectory);
    }
};

// registerRule

TEST_F(RuleRegistryTest, RegisterCreatesTheDirectoryAndWritesAPrettySortedCatalog) {
    ASSERT_FALSE(fs::exists(temp.at(".unbulk")));
    auto registry = makeRegistry();
    const auto rule = dynamicRule("custom_mlx_models");
    const Date before = nowSeconds();
    registry.registerRule(rule);
    const Date after = std::chrono::system_clock::now();

    ASSERT_TRUE(fs::is_directory(temp.at(".unbulk")));
    auto text = readText(rulesPath);
    ASSERT_TRUE(text);
    const Json document = Json::parse(*text);
    // Two-space indentation with keys in sorted order, at every level.
    EXPECT_EQ(*text, document.dump(2));
    EXPECT_LT(text->find("\"rules\""), text->find("\"updatedAt\""));
    EXPECT_LT(text->find("\"updatedAt\""), text->find("\"version\""));
    EXPECT_EQ(document.size(), 3u);
    EXPECT_EQ(document["version"], 1);

    const std::string updatedAt = document["updatedAt"].get<std::string>();
    EXPECT_TRUE(std::regex_match(updatedAt, std::regex(R"(\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ)"))) << updatedAt;
    const auto written = dates::parseISO8601(updatedAt);
    ASSERT_TRUE(written);
    EXPECT_GE(*written, before);
    EXPECT_LE(*written, after);

    // An absent optional is left out, never written as null.
    ASSERT_EQ(document["rules"].size(), 1u);
    EXPECT_FALSE(document["rules"][0].contains("createdAt"));
    EXPECT_FALSE(document["rules"][0].contains("minAgeDays"));

    const RuleCatalog catalog = ruleCatalogFromJson(document);
    ASSERT_EQ(catalog.rules.size(), 1u);
    EXPECT_EQ(catalog.rules[0], rule);
    EXPECT_EQ(registry.rule("custom_mlx_models"), rule);
    EXPECT_EQ(registry.allRules().size(), builtInRuleCount + 1);
}

TEST_F(RuleRegistryTest, IdsOfLettersDigitsDotsUnderscoresAndHyphensOfAnyScriptAreAccepted) {
    auto registry = makeRegistry();
    const Strings ids{
        "my-rule.v2_x",
        "\u043f\u0440\u0430\u0432\u0438\u043b\u043e.\u0663\u0664", // Cyrillic letters, Arabic-Indic digits
        "\u89c4\u5219_cache",                                       // CJK
        "cafe\u0301",                                               // a combining mark
        "Rule.2",
    };
    for (const auto& id : ids) {
        SCOPED_TRACE(id);
        EXPECT_NO_THROW(registry.registerRule(dynamicRule(id)));
        EXPECT_TRUE(registry.rule(id));
    }
    Strings sorted = ids;
    std::sort(sorted.begin(), sorted.end());
    EXPECT_EQ(storedIds(), sorted);
}

TEST_F(RuleRegistryTest, RefusalsReportTheirExactSentenceAndChangeNothing) {
    struct Case {
        std::string label;
        std::function<void(RuleRegistry&)> operation;
        RuleRegistryError expected;
        std::string description;
    };
    const auto withPatterns = [](std::string id, Strings patterns) {
        return [=](RuleRegistry& registry) { registry.registerRule(dynamicRule(id, patterns)); };
    };
    std::vector<Case> cases{
        {"empty id", withPatterns("", {"~/.cache/x/**"}), {Kind::invalidRuleId, "(empty)"},
         "Rule ID '(empty)' is invalid. It must be non-empty and contain only alphanumeric characters, dots, and "
         "underscores."},
        // The id is judged before anything else, and a built-in id before the patterns.
        {"bad id, no patterns", withPatterns("my rule", {}), {Kind::invalidRuleId, "my rule"},
         std::string("Rule ID 'my rule") + invalidIdTail},
        {"built-in id", withPatterns("dev.npm.cache", {"~/.npm/other/**"}),
         {Kind::cannotOverwriteBuiltIn, "dev.npm.cache"},
         "Cannot overwrite built-in rule 'dev.npm.cache' with a dynamic rule."},
        {"built-in id, no patterns", withPatterns("dev.npm.cache", {}), {Kind::cannotOverwriteBuiltIn, "dev.npm.cache"},
         "Cannot overwrite built-in rule 'dev.npm.cache' with a dynamic rule."},
        {"built-in id, refused pattern", withPatterns("dev.npm.cache", {"/*"}),
         {Kind::cannotOverwriteBuiltIn, "dev.npm.cache"},
         "Cannot overwrite built-in rule 'dev.npm.cache' with a dynamic rule."},
        {"no patterns", withPatterns("custom.empty", {}), {Kind::emptyPatterns, "custom.empty"},
         "Rule 'custom.empty' must define at least one path pattern."},
        {"enable unknown", [](RuleRegistry& registry) { registry.setRuleEnabled("no.such.rule", true); },
         {Kind::invalidRuleId, "Rule with ID 'no.such.rule' not found."},
         std::string("Rule ID 'Rule with ID 'no.such.rule' not found.") + invalidIdTail},
        {"remove built-in", [](RuleRegistry& registry) { registry.removeRule("sys.user.caches"); },
         {Kind::cannotOverwriteBuiltIn, "Built-in rule 'sys.user.caches' cannot be deleted."},
         "Cannot overwrite built-in rule 'Built-in rule 'sys.user.caches' cannot be deleted.' with a dynamic rule."},
    };
    // Any scalar that is not a letter, mark or digit of some script, or ".", "_", "-"; and text that is not UTF-8.
    for (std::string id : {"a/b", "rule*", "dev:npm", "tab\tid", "\xF0\x9F\x9A\x80.rule", "bad\xFF", "cut\xC3",
                           "over\xC0\xAElong", "\xED\xA0\x80surrogate"}) {
        cases.push_back({id, withPatterns(id, {"~/.cache/x/**"}), {Kind::invalidRuleId, id},
                         "Rule ID '" + id + invalidIdTail});
    }

    auto registry = makeRegistry();
    const auto before = registry.allRules();
    for (const auto& c : cases) {
        SCOPED_TRACE(c.label);
        auto error = errorOf<RuleRegistryError>([&] { c.operation(registry); });
        ASSERT_TRUE(error);
        EXPECT_EQ(*error, c.expected);
        EXPECT_EQ(error->what(), c.description);
    }
    EXPECT_EQ(registry.allRules(), before);
    EXPECT_FALSE(rulesFileExists());
}

TEST_F(RuleRegistryTest, SandboxRefusalPassesThroughUnwrappedAndChangesNothing) {
    using SK = SandboxSecurityError::Kind;
    struct Case {
        Strings patterns;
        SK kind;
        std::string detail; // scope, matched directory or matched prefix
    };
    const std::vector<Case> cases{
        {{"/*"}, SK::wildcardTargetsForbiddenScope, "Root filesystem"},
        {{"~/*"}, SK::wildcardTargetsForbiddenScope, "Entire home directory"},
        {{"~/Documents/*"}, SK::forbiddenUserDirectory, "Documents"},
        // Every pattern is judged, not only the first.
        {{"~/.cache/mlx/**", "/usr/local/*"}, SK::forbiddenSystemPath, "/usr"},
    };
    auto registry = makeRegistry();
    for (const auto& c : cases) {
        SCOPED_TRACE(c.patterns.back());
        auto error = errorOf<SandboxSecurityError>([&] { registry.registerRule(dynamicRule("custom.bad", c.patterns)); });
        ASSERT_TRUE(error);
        EXPECT_EQ(error->kind, c.kind);
        EXPECT_EQ(error->forbiddenScope + error->matchedDirectory + error->matchedPrefix, c.detail);
        EXPECT_FALSE(registry.rule("custom.bad"));
    }
    EXPECT_FALSE(rulesFileExists());

    // A pattern without wildcards is a path, and a link along it is followed.
    temp.makeDirectory("Documents/notes");
    temp.makeSymlink(".cache/link", temp.at("Documents"));
    auto error = errorOf<SandboxSecurityError>(
        [&] { registry.registerRule(dynamicRule("custom.bad", {"~/.cache/link/notes"})); });
    ASSERT_TRUE(error);
    EXPECT_EQ(error->kind, SK::forbiddenUserDirectory);
    EXPECT_EQ(error->path, temp.at("Documents/notes"));
    EXPECT_FALSE(registry.rule("custom.bad"));

    // A refused replacement leaves the earlier rule and its file as they were.
    const auto good = dynamicRule("custom.bad");
    registry.registerRule(good);
    const auto before = readText(rulesPath);
    EXPECT_THROW(registry.registerRule(dynamicRule("custom.bad", {"~/*"})), SandboxSecurityError);
    EXPECT_EQ(registry.rule("custom.bad"), good);
    EXPECT_EQ(readText(rulesPath), before);
}

TEST_F(RuleRegistryTest, ExcludedPatternsAreNotJudgedByTheSandbox) {
    auto registry = makeRegistry();
    auto rule = dynamicRule("custom.excluding");
    rule.excludedPatterns = {"/*", "~/Documents/**"};
    EXPECT_NO_THROW(registry.registerRule(rule));
    EXPECT_EQ(storedCatalog().rules.at(0).excludedPatterns, rule.excludedPatterns);
}

TEST_F(RuleRegistryTest, IncomingBuiltInFlagIsTurnedIntoADynamicRule) {
    auto registry = makeRegistry();

    auto bare = dynamicRule("custom.claims_builtin");
    bare.isBuiltIn = true;
    const Date before = nowSeconds();
    registry.registerRule(bare);
    const Date after = std::chrono::system_clock::now();
    auto stored = registry.rule(bare.id);
    ASSERT_TRUE(stored);
    EXPECT_FALSE(stored->isBuiltIn);
    EXPECT_EQ(stored->synthesizedBy, "dynamic");
    ASSERT_TRUE(stored->createdAt && stored->updatedAt);
    EXPECT_TRUE(before <= *stored->createdAt && *stored->createdAt <= after);
    EXPECT_TRUE(before <= *stored->updatedAt && *stored->updatedAt <= after);
    auto expected = bare;
    expected.isBuiltIn = false;
    expected.synthesizedBy = stored->synthesizedBy;
    expected.createdAt = stored->createdAt;
    expected.updatedAt = stored->updatedAt;
    EXPECT_EQ(*stored, expected); // everything else copied

    auto dated = dynamicRule("custom.dated");
    dated.isBuiltIn = true;
    dated.synthesizedBy = "anomaly_detector";
    dated.createdAt = at("2026-03-01T10:15:30Z");
    dated.updatedAt = at("2026-03-02T08:00:00Z");
    registry.registerRule(dated);
    stored = registry.rule(dated.id);
    ASSERT_TRUE(stored);
    EXPECT_FALSE(stored->isBuiltIn);
    EXPECT_EQ(stored->synthesizedBy, "anomaly_detector");
    EXPECT_EQ(stored->createdAt, dated.createdAt);
    ASSERT_TRUE(stored->updatedAt);
    EXPECT_GE(*stored->updatedAt, before);

    // Being dynamic now, both reach the file.
    const auto catalog = storedCatalog();
    EXPECT_EQ(idsOf(catalog.rules), (Strings{"custom.claims_builtin", "custom.dated"}));
    for (const auto& rule : catalog.rules) EXPECT_FALSE(rule.isBuiltIn);
}

TEST_F(RuleRegistryTest, RegisteringAnExistingDynamicIdReplacesIt) {
    auto registry = makeRegistry();
    registry.registerRule(dynamicRule("custom.x", {"~/.cache/first/**"}));
    auto second = dynamicRule("custom.x", {"~/.cache/second/**"});
    second.name = "Second";
    registry.registerRule(second);

    EXPECT_EQ(registry.rule("custom.x"), second);
    EXPECT_EQ(registry.allRules().size(), builtInRuleCount + 1);
    const auto catalog = storedCatalog();
    ASSERT_EQ(catalog.rules.size(), 1u);
    EXPECT_EQ(catalog.rules[0], second);
}

TEST_F(RuleRegistryTest, ANewInstanceWritesOnlyWhatItHoldsOverwritingTheEarlierFile) {
    makeRegistry().registerRule(dynamicRule("first.rule"));
    EXPECT_EQ(storedIds(), Strings{"first.rule"});

    // A fresh instance starts from the built-ins and does not read the file.
    auto second = makeRegistry();
    EXPECT_FALSE(second.rule("first.rule"));
    second.registerRule(dynamicRule("second.rule"));
    EXPECT_EQ(storedIds(), Strings{"second.rule"});

    // After an explicit load the stored rule is held, so it is written again.
    auto third = makeRegistry();
    third.loadCustomRules();
    third.registerRule(dynamicRule("third.rule"));
    EXPECT_EQ(storedIds(), (Strings{"second.rule", "third.rule"}));
}

// setRuleEnabled

TEST_F(RuleRegistryTest, DisablingABuiltInStaysInMemoryAndTouchesNoFile) {
    {
        auto registry = makeRegistry();
        fileSystem->resetCounts();
        registry.setRuleEnabled("dev.npm.cache", false);
        EXPECT_FALSE(registry.rule("dev.npm.cache")->enabled);
        EXPECT_EQ(writes(), 0u);
        EXPECT_FALSE(rulesFileExists());
        EXPECT_FALSE(fs::exists(temp.at(".unbulk")));
    }
    EXPECT_TRUE(makeRegistry().rule("dev.npm.cache")->enabled);

    // An existing file is left byte for byte.
    auto registry = makeRegistry();
    registry.registerRule(dynamicRule("custom.x"));
    const auto before = readText(rulesPath);
    fileSystem->resetCounts();
    registry.setRuleEnabled("sys.user.caches", false);
    EXPECT_EQ(writes(), 0u);
    EXPECT_EQ(readText(rulesPath), before);
}

TEST_F(RuleRegistryTest, DisablingADynamicRulePersists) {
    auto registry = makeRegistry();
    registry.registerRule(dynamicRule("custom.x"));
    registry.setRuleEnabled("custom.x", false);
    EXPECT_FALSE(registry.rule("custom.x")->enabled);
    EXPECT_FALSE(storedCatalog().rules.at(0).enabled);

    auto later = makeRegistry();
    later.loadCustomRules();
    EXPECT_FALSE(later.rule("custom.x")->enabled);
}

TEST_F(RuleRegistryTest, RemovingAnUnknownIdIsSilentAndTouchesNoFile) {
    auto registry = makeRegistry();
    fileSystem->resetCounts();
    EXPECT_NO_THROW(registry.removeRule("no.such.rule"));
    EXPECT_EQ(writes(), 0u);
    EXPECT_FALSE(rulesFileExists());
    EXPECT_EQ(registry.allRules().size(), builtInRuleCount);
}

TEST_F(RuleRegistryTest, RemovingADynamicRuleRewritesTheFile) {
    auto registry = makeRegistry();
    registry.registerRule(dynamicRule("a.rule"));
    registry.registerRule(dynamicRule("b.rule"));
    registry.removeRule("a.rule");
    EXPECT_FALSE(registry.rule("a.rule"));
    EXPECT_EQ(storedIds(), Strings{"b.rule"});
    registry.removeRule("b.rule");
    EXPECT_TRUE(storedCatalog().rules.empty());
    EXPECT_EQ(registry.allRules().size(), builtInRuleCount);
}

// loadCustomRules

TEST_F(RuleRegistryTest, LoadingWithoutAFileDoesNothing) {
    auto registry = makeRegistry();
    fileSystem->resetCounts();
    EXPECT_NO_THROW(registry.loadCustomRules());
    EXPECT_EQ(registry.allRules().size(), builtInRuleCount);
    EXPECT_EQ(writes(), 0u);
    EXPECT_FALSE(fs::exists(temp.at(".unbulk")));
}

TEST_F(RuleRegistryTest, LoadingAFileThatIsNotACatalogFailsToParse) {
    for (const char* text : {"this is not json", "", "[]", "42", "{}", "{\"version\": 1, \"rules\": []}"}) {
        SCOPED_TRACE(text);
        temp.writeFile(".unbulk/rules.json", text);
        auto registry = makeRegistry();
        auto error = errorOf<RuleRegistryError>([&] { registry.loadCustomRules(); });
        ASSERT_TRUE(error);
        EXPECT_EQ(error->kind, Kind::catalogDecodingFailed);
        EXPECT_FALSE(error->payload.empty());
        EXPECT_EQ(std::string(error->what()), "Failed to parse rules.json: " + error->payload);
        EXPECT_EQ(registry.allRules().size(), builtInRuleCount);
    }
}

TEST_F(RuleRegistryTest, LoadingAValidFileAddsItsRulesExactly) {
    auto mlx = dynamicRule("custom.mlx");
    mlx.minAgeDays = 30;
    mlx.synthesizedBy = "anomaly_detector";
    mlx.createdAt = at("2026-03-01T10:15:30Z");
    mlx.updatedAt = at("2026-03-02T08:00:00Z");
    mlx.enabled = false;
    auto logs = dynamicRule("custom.logs", {"~/work/logs/*.log"});
    logs.category = StorageCategory::systemLogs;
    logs.riskTier = RiskTier::safeToDelete;
    auto flagged = dynamicRule("custom.flagged");
    flagged.isBuiltIn = true; // kept as it came
    writeStoredRules({toJson(mlx), toJson(logs), toJson(flagged)});

    auto registry = makeRegistry();
    registry.loadCustomRules();
    EXPECT_EQ(registry.rule("custom.mlx"), mlx);
    EXPECT_EQ(registry.rule("custom.logs"), logs);
    EXPECT_EQ(registry.rule("custom.flagged"), flagged);
    EXPECT_EQ(registry.allRules().size(), builtInRuleCount + 3);
}

TEST_F(RuleRegistryTest, LoadingSkipsRulesTheSandboxRefusesAndBuiltInIds) {
    auto first = dynamicRule("custom.first");
    auto root = dynamicRule("custom.root", {"/*"});
    auto secondBad = dynamicRule("custom.second_bad", {"~/.cache/ok/**", "~/Documents/*"});
    auto npm = dynamicRule("dev.npm.cache", {"~/.npm/**"});
    npm.name = "Impostor";
    auto last = dynamicRule("custom.last");
    writeStoredRules({toJson(first), toJson(root), toJson(secondBad), toJson(npm), toJson(last)});

    auto registry = makeRegistry();
    EXPECT_NO_THROW(registry.loadCustomRules());
    EXPECT_EQ(registry.rule("custom.first"), first);
    EXPECT_EQ(registry.rule("custom.last"), last);
    EXPECT_FALSE(registry.rule("custom.root"));
    EXPECT_FALSE(registry.rule("custom.second_bad"));
    auto builtIn = registry.rule("dev.npm.cache");
    ASSERT_TRUE(builtIn);
    EXPECT_TRUE(builtIn->isBuiltIn);
    EXPECT_EQ(builtIn->name, "npm Cache");
    EXPECT_EQ(registry.allRules().size(), builtInRuleCount + 2);
}

TEST_F(RuleRegistryTest, LoadingTakesTheLaterOfTwoValidRulesOfOneId) {
    auto early = dynamicRule("custom.dup");
    early.name = "Early";
    auto late = dynamicRule("custom.dup");
    late.name = "Late";
    auto refused = dynamicRule("custom.dup", {"~/*"});
    refused.name = "Refused";
    writeStoredRules({toJson(early), toJson(late), toJson(refused)});

    auto registry = makeRegistry();
    registry.loadCustomRules();
    EXPECT_EQ(registry.rule("custom.dup"), late); // a refused later one replaces nothing
}

TEST_F(RuleRegistryTest, AFailedDecodeTakesNoRule) {
    Json broken = toJson(dynamicRule("custom.broken"));
    broken.erase("excludedPatterns");
    writeStoredRules({toJson(dynamicRule("custom.good")), broken});

    auto registry = makeRegistry();
    const auto before = registry.allRules();
    auto error = errorOf<RuleRegistryError>([&] { registry.loadCustomRules(); });
    ASSERT_TRUE(error);
    EXPECT_EQ(error->kind, Kind::catalogDecodingFailed);
    EXPECT_EQ(registry.allRules(), before);
}

TEST_F(RuleRegistryTest, AnUnreadableFileFailsWithItsPath) {
    writeStoredRules({toJson(dynamicRule("custom.good"))});
    fileSystem->failOn(FileSystemCall::readFile, rulesPath, EACCES);
    auto registry = makeRegistry();
    auto error = errorOf<RuleRegistryError>([&] { registry.loadCustomRules(); });
    ASSERT_TRUE(error);
    EXPECT_EQ(*error, RuleRegistryError(Kind::catalogPersistenceFailed,
                                        "Could not read rules file at " + rulesPath + ": Permission denied"));
    EXPECT_FALSE(registry.rule("custom.good"));
}

// saveCustomRules failures

TEST_F(RuleRegistryTest, AFailedAtomicWriteIsRaisedAndTheRuleStaysInMemory) {
    fileSystem->failOn(FileSystemCall::writeFileAtomically, rulesPath, ENOSPC);
    auto registry = makeRegistry();
    const auto rule = dynamicRule("custom.x");
    auto error = errorOf<RuleRegistryError>([&] { registry.registerRule(rule); });
    ASSERT_TRUE(error);
    EXPECT_EQ(*error, RuleRegistryError(Kind::catalogPersistenceFailed,
                                        "Failed to write rules to " + rulesPath + ": No space left on device"));
    EXPECT_EQ(std::string(error->what()),
              "Failed to persist rule catalog to disk: Failed to write rules to " + rulesPath +
                  ": No space left on device");
    EXPECT_EQ(registry.rule("custom.x"), rule);
    EXPECT_FALSE(rulesFileExists());

    // Removal and enabling save the same way and fail the same way.
    EXPECT_THROW(registry.setRuleEnabled("custom.x", false), RuleRegistryError);
    EXPECT_FALSE(registry.rule("custom.x")->enabled);
    EXPECT_THROW(registry.removeRule("custom.x"), RuleRegistryError);
    EXPECT_FALSE(registry.rule("custom.x"));
}

TEST_F(RuleRegistryTest, ADirectoryThatCannotBeCreatedFailsTheSave) {
    temp.writeFile(".unbulk", "a file where the directory should be");
    auto registry = makeRegistry();
    auto error = errorOf<RuleRegistryError>([&] { registry.registerRule(dynamicRule("custom.x")); });
    ASSERT_TRUE(error);
    EXPECT_EQ(error->kind, Kind::catalogPersistenceFailed);
    const std::string prefix = "Failed to write rules to " + rulesPath + ": ";
    EXPECT_EQ(error->payload.substr(0, prefix.size()), prefix);
    EXPECT_GT(error->payload.size(), prefix.size());
    EXPECT_TRUE(registry.rule("custom.x"));
    EXPECT_EQ(readText(temp.at(".unbulk")), "a file where the directory should be");
}

// Listings

TEST_F(RuleRegistryTest, AllRulesAreTheBuiltInsSortedByPlainStringOrder) {
    auto registry = makeRegistry();
    const auto rules = registry.allRules();
    ASSERT_EQ(rules.size(), builtInRuleCount);
    Strings expected = idsOf(buildDefaultCatalog(Date{}));
    std::sort(expected.begin(), expected.end());
    EXPECT_EQ(idsOf(rules), expected);
    for (const auto& rule : rules) EXPECT_TRUE(rule.isBuiltIn && rule.enabled) << rule.id;

    // Byte order puts capitals before lower case, whatever the locale.
    registry.registerRule(dynamicRule("Zeta.rule"));
    registry.registerRule(dynamicRule("dev.npm.cachez"));
    const Strings ids = idsOf(registry.allRules());
    EXPECT_EQ(ids.front(), "Zeta.rule");
    EXPECT_TRUE(std::is_sorted(ids.begin(), ids.end()));
    auto npm = std::find(ids.begin(), ids.end(), "dev.npm.cache");
    ASSERT_NE(npm, ids.end());
    EXPECT_EQ(*std::next(npm), "dev.npm.cachez");
}

TEST_F(RuleRegistryTest, ActiveRulesAndCategoryListingsDropDisabledRules) {
    auto registry = makeRegistry();
    auto off = dynamicRule("custom.off");
    off.enabled = false;
    registry.registerRule(off);
    registry.registerRule(dynamicRule("custom.on"));
    registry.setRuleEnabled("dev.npm.cache", false);
    registry.setRuleEnabled("ai.ollama.models", false);

    const Strings active = idsOf(registry.activeRules());
    EXPECT_EQ(active.size(), builtInRuleCount - 2 + 1);
    EXPECT_TRUE(std::is_sorted(active.begin(), active.end()));
    for (const char* id : {"custom.off", "dev.npm.cache", "ai.ollama.models"}) {
        EXPECT_EQ(std::count(active.begin(), active.end(), id), 0) << id;
    }

    auto category = [&](StorageCategory c) {
        Strings ids = idsOf(registry.rules(c));
        return std::set<std::string>(ids.begin(), ids.end());
    };
    EXPECT_EQ(category(StorageCategory::aiModelWeights),
              (std::set<std::string>{"ai.huggingface.hub", "ai.whisper.models", "ai.lmstudio.models",
                                     "ai.vllm.weights", "custom.on"}));
    EXPECT_EQ(category(StorageCategory::dockerVM), std::set<std::string>{"dev.docker.orphaned_vm"});
    EXPECT_EQ(category(StorageCategory::xcodeArtifacts),
              (std::set<std::string>{"dev.xcode.derived_data", "dev.xcode.simulator_caches"}));
    EXPECT_TRUE(category(StorageCategory::largeFiles).empty());
}

TEST_F(RuleRegistryTest, RuleWithIdFindsOneRule) {
    auto registry = makeRegistry();
    auto homebrew = registry.rule("dev.homebrew.cache");
    ASSERT_TRUE(homebrew);
    EXPECT_EQ(homebrew->name, "Homebrew Cache");
    EXPECT_EQ(homebrew->excludedPatterns, Strings{"~/Library/Caches/Homebrew/downloads/*.incomplete"});
    EXPECT_FALSE(registry.rule("dev.homebrew"));
    EXPECT_FALSE(registry.rule("DEV.NPM.CACHE"));
    EXPECT_FALSE(registry.rule(""));
}

// matchingRules

TEST_F(RuleRegistryTest, MatchingRulesHonourExclusionsAndComeSortedById) {
    auto registry = makeRegistry();
    auto match = [&](const std::string& relative) { return idsOf(registry.matchingRules(temp.at(relative))); };

    EXPECT_EQ(match("Library/Caches/Homebrew/downloads/x.incomplete"),
              (Strings{"dev.homebrew.incomplete", "sys.user.caches"}));
    EXPECT_EQ(match("Library/Caches/Homebrew/downloads/x.tar.gz"), (Strings{"dev.homebrew.cache", "sys.user.caches"}));
    EXPECT_EQ(match("Library/Logs/DiagnosticReports/a.ips"), (Strings{"sys.crash.user_reports", "sys.user.logs"}));
    EXPECT_EQ(match(".cargo/bin/cargo"), Strings{});
    EXPECT_EQ(match("Projects/app/src/main.c"), Strings{});

    // A dynamic rule takes its place in id order; its exclusions win over its patterns.
    auto rule = dynamicRule("aaa.pip", {"~/Library/Caches/pip/**"});
    rule.excludedPatterns = {"~/Library/Caches/pip/keep/**"};
    registry.registerRule(rule);
    EXPECT_EQ(match("Library/Caches/pip/http/x"), (Strings{"aaa.pip", "dev.pip.cache", "sys.user.caches"}));
    EXPECT_EQ(match("Library/Caches/pip/keep/x"), (Strings{"dev.pip.cache", "sys.user.caches"}));
}

TEST_F(RuleRegistryTest, DisabledRulesNeverMatch) {
    auto registry = makeRegistry();
    registry.setRuleEnabled("sys.user.caches", false);
    EXPECT_EQ(idsOf(registry.matchingRules(temp.at("Library/Caches/Homebrew/downloads/x.incomplete"))),
              Strings{"dev.homebrew.incomplete"});
    registry.setRuleEnabled("dev.homebrew.incomplete", false);
    EXPECT_TRUE(registry.matchingRules(temp.at("Library/Caches/Homebrew/downloads/x.incomplete")).empty());
    registry.setRuleEnabled("sys.user.caches", true);
    EXPECT_EQ(idsOf(registry.matchingRules(temp.at("Library/Caches/Homebrew/downloads/x.incomplete"))),
              Strings{"sys.user.caches"});
}

// Concurrency

TEST_F(RuleRegistryTest, ConcurrentRegistrationsAndReadsLoseNothingAndNeverTearTheFile) {
    auto registry = makeRegistry();
    constexpr int writers = 4;
    constexpr int perWriter = 8;
    std::atomic<bool> done{false};
    std::atomic<int> tornReads{0};
    std::atomic<int> brokenRules{0};

    std::vector<std::thread> threads;
    for (int w = 0; w < writers; ++w) {
        threads.emplace_back([&, w] {
            for (int i = 0; i < perWriter; ++i) {
                registry.registerRule(
                    dynamicRule("thread" + std::to_string(w) + ".rule" + std::to_string(i),
                                {"~/.cache/t" + std::to_string(w) + "/r" + std::to_string(i) + "/**"}));
            }
        });
    }
    std::thread registryReader([&] {
        while (!done) {
            for (const auto& rule : registry.allRules()) {
                if (!rule.isBuiltIn && rule.name != "Rule " + rule.id) ++brokenRules;
            }
            registry.matchingRules(temp.at(".cache/t0/r0/x"));
        }
    });
    std::thread fileReader([&] {
        while (!done) {
            if (auto text = readText(rulesPath)) {
                try {
                    ruleCatalogFromJson(Json::parse(*text));
                } catch (const std::exception&) {
                    ++tornReads;
                }
            }
        }
    });
    for (auto& thread : threads) thread.join();
    done = true;
    registryReader.join();
    fileReader.join();

    EXPECT_EQ(tornReads, 0);
    EXPECT_EQ(brokenRules, 0);
    std::set<std::string> expected;
    for (int w = 0; w < writers; ++w) {
        for (int i = 0; i < perWriter; ++i) expected.insert("thread" + std::to_string(w) + ".rule" + std::to_string(i));
    }
    EXPECT_EQ(registry.allRules().size(), builtInRuleCount + expected.size());
    for (const auto& id : expected) EXPECT_TRUE(registry.rule(id)) << id;
    const Strings stored = storedIds();
    EXPECT_EQ(std::set<std::string>(stored.begin(), stored.end()), expected);
    EXPECT_TRUE(std::is_sorted(stored.begin(), stored.end()));
    EXPECT_EQ(idsOf(registry.matchingRules(temp.at(".cache/t2/r5/x"))), Strings{"thread2.rule5"});
}

} // namespace
} // namespace unbulk
