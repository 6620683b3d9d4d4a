#include "Rules/RuleRegistry.hpp"

#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Rules/BuiltInRules.hpp"
#include "Rules/RuleCatalog.hpp"
#include "Safety/SandboxSecurityError.hpp"
#include "Support/Json.hpp"
#include "support/FaultyFileSystem.hpp"
#include "support/TempHome.hpp"

namespace unbulk {
namespace {

using Strings = std::vector<std::string>;

RuleDefinition dynamicRule(const std::string& id, Strings patterns = {"~/.cache/mlx/**"}) {
    return {.id = id, .name = "Rule " + id, .description = "Weights fetched by mlx.",
            .category = StorageCategory::aiModelWeights, .riskTier = RiskTier::reviewRequired,
            .patterns = std::move(patterns)};
}

// The sentence a call is refused with; "sandbox" for the sandbox's own error, which passes through unwrapped.
template <typename Call>
std::string refusalOf(const Call& call) try {
    call();
    return "(accepted)";
} catch (const RuleRegistryError& e) { return e.what(); } catch (const SandboxSecurityError&) { return "sandbox"; }

Strings idsOf(const std::vector<RuleDefinition>& rules) {
    Strings ids;
    for (const auto& rule : rules) ids.push_back(rule.id);
    return ids;
}

struct RuleRegistryTest : ::testing::Test {
    testing::TempHome temp;
    const std::string rulesPath = temp.at(".unbulk/rules.json");
    std::shared_ptr<testing::FaultyFileSystem> fileSystem = std::make_shared<testing::FaultyFileSystem>();

    RuleRegistry makeRegistry() { return RuleRegistry(std::nullopt, FileURL(temp.path(), true), fileSystem, systemClock()); }
    std::size_t writes() const { return fileSystem->callCount(testing::FileSystemCall::writeFileAtomically); }
    std::optional<std::string> storedText() const {
        PlatformError error;
        return fileSystem->readFile(rulesPath, 1 << 20, error);
    }
};

TEST_F(RuleRegistryTest, RegisterWritesAPrettySortedCatalogAndKeepsABuiltInClaimDynamic) {
    auto registry = makeRegistry();
    auto rule = dynamicRule("custom_mlx_models");
    rule.excludedPatterns = {"/*"}; // exclusions are never put to the sandbox
    auto claimed = dynamicRule("custom.claims_builtin");
    claimed.isBuiltIn = true;
    const Date before = std::chrono::system_clock::now();
    registry.registerRule(rule);
    registry.registerRule(claimed);
    const Date after = std::chrono::system_clock::now();

    const std::string text = storedText().value();
    const Json document = Json::parse(text);
    // Two-space indentation, keys sorted at every level, "/" written "\/".
    EXPECT_EQ(text, json::pretty(document));
    EXPECT_NE(text.find(R"("~\/.cache\/mlx\/**")"), std::string::npos);
    EXPECT_EQ(document["version"], 1);
    const auto catalog = ruleCatalogFromJson(document);
    EXPECT_EQ(idsOf(catalog.rules), (Strings{claimed.id, rule.id}));
    EXPECT_EQ(catalog.rules[1], rule);

    // A rule that claims to be built in is kept as a dynamic one, dated now, all else copied.
    const auto stored = registry.rule(claimed.id).value();
    for (const auto& d : {stored.createdAt, stored.updatedAt}) EXPECT_TRUE(d && *d >= before && *d <= after);
    claimed.isBuiltIn = false, claimed.synthesizedBy = "dynamic";
    claimed.createdAt = stored.createdAt, claimed.updatedAt = stored.updatedAt;
    EXPECT_EQ(stored, claimed);
}

TEST_F(RuleRegistryTest, RefusalsReportTheirExactSentenceAndChangeNothing) {
    const std::string badId = "' is invalid. It must be non-empty and contain only alphanumeric characters, dots, "
                              "and underscores.";
    const std::vector<std::tuple<std::string, Strings, std::string>> cases{
        {"", {"~/x/**"}, "Rule ID '(empty)" + badId},
        // A built-in id is refused before its patterns are looked at.
        {"dev.npm.cache", {"/*"}, "Cannot overwrite built-in rule 'dev.npm.cache' with a dynamic rule."},
        {"custom.x", {}, "Rule 'custom.x' must define at least one path pattern."},
        // The id comes first: a space, an emoji.
        {"my rule", {}, "Rule ID 'my rule" + badId},
        {"\xF0\x9F\x9A\x80.x", {"/*"}, "Rule ID '\xF0\x9F\x9A\x80.x" + badId},
        // Every pattern is judged, not only the first.
        {"custom.x", {"~/.cache/mlx/**", "/usr/*"}, "sandbox"}};
    auto registry = makeRegistry();
    registry.registerRule(dynamicRule("custom.x"));
    const auto before = registry.allRules();
    const auto file = storedText();
    for (const auto& [id, patterns, sentence] : cases)
        EXPECT_EQ(refusalOf([&] { registry.registerRule(dynamicRule(id, patterns)); }), sentence) << id;
    EXPECT_EQ(registry.allRules(), before);
    EXPECT_EQ(storedText(), file);

    // Letters, marks and digits of any script are accepted, and ".", "_", "-".
    for (std::string id : {"my-rule.v2_x", "\u043f\u0440\u0430\u0432\u0438\u043b\u043e.\u0663", "cafe\u0301"})
        EXPECT_NO_THROW(registry.registerRule(dynamicRule(id))) << id;
}

TEST_F(RuleRegistryTest, OnlyChangesToDynamicRulesReachTheFileAndAFailedSaveIsRaised) {
    auto registry = makeRegistry();
    registry.loadCustomRules(); // no file: nothing happens
    registry.setRuleEnabled("dev.npm.cache", false);
    EXPECT_NO_THROW(registry.removeRule("no.such.rule"));
    EXPECT_EQ(writes(), 0u);

    registry.registerRule(dynamicRule("a.rule"));
    registry.setRuleEnabled("a.rule", false);
    fileSystem->resetCounts();
    registry.setRuleEnabled("sys.user.caches", false);
    EXPECT_EQ(writes(), 0u);

    // A fresh instance starts from the built-ins and reads the file only when asked.
    auto later = makeRegistry();
    later.loadCustomRules();
    EXPECT_FALSE(later.rule("a.rule")->enabled);

    // A failed save is raised, and the change stays in memory.
    fileSystem->failOn(testing::FileSystemCall::writeFileAtomically, rulesPath, ENOSPC);
    const auto rule = dynamicRule("custom.x");
    EXPECT_EQ(refusalOf([&] { registry.registerRule(rule); }),
              "Failed to persist rule catalog to disk: Failed to write rules to " + rulesPath +
                  ": No space left on device");
    EXPECT_EQ(registry.rule("custom.x"), rule);
}

// The rules file names itself and the call that could not read it.
TEST_F(RuleRegistryTest, AnUnreadableRulesFileNamesItselfAndTheCall) {
    temp.makeDirectory(".unbulk/rules.json");
    EXPECT_EQ(refusalOf([&] { makeRegistry().loadCustomRules(); }),
              "Failed to persist rule catalog to disk: Could not read rules file at " + rulesPath + ": read('" +
                  rulesPath + "'): " + std::error_code(EISDIR, std::generic_category()).message());
}

TEST_F(RuleRegistryTest, LoadingFailsOnABadFileAndSkipsRefusedRulesAndBuiltInIds) {
    // The decoding failure's own sentence, not the one for an unreadable file.
    for (const char* text : {"this is not json", "{}"}) {
        temp.writeFile(".unbulk/rules.json", text);
        EXPECT_THAT(refusalOf([&] { makeRegistry().loadCustomRules(); }),
                    ::testing::StartsWith("Failed to parse rules.json: "));
    }

    const RuleCatalog catalog{.rules = {dynamicRule("custom.mlx"), dynamicRule("custom.root", {"/*"}),
                                        dynamicRule("dev.npm.cache"), dynamicRule("custom.dup", {"~/c/**"}),
                                        dynamicRule("custom.dup", {"~/*"})}};
    temp.writeFile(".unbulk/rules.json", toJson(catalog).dump());
    auto registry = makeRegistry();
    registry.loadCustomRules();
    EXPECT_EQ(registry.rule("custom.mlx"), catalog.rules[0]);
    EXPECT_FALSE(registry.rule("custom.root"));
    EXPECT_EQ(registry.rule("dev.npm.cache")->name, "npm Cache");
    EXPECT_EQ(registry.rule("custom.dup"), catalog.rules[3]); // a refused later one replaces nothing
    EXPECT_EQ(registry.allRules().size(), builtInRuleCount + 2);
}

TEST_F(RuleRegistryTest, MatchingRulesHonourExclusionsAndSwitchesInIdOrder) {
    auto registry = makeRegistry();
    registry.registerRule(dynamicRule("Zeta.rule", {"~/Library/Caches/**"}));
    const std::string incomplete = temp.at("Library/Caches/Homebrew/downloads/x.incomplete");
    // Byte order puts capitals first, whatever the locale; the cache rule excludes what is still downloading.
    EXPECT_EQ(idsOf(registry.matchingRules(incomplete)),
              (Strings{"Zeta.rule", "dev.homebrew.incomplete", "sys.user.caches"}));
    for (const char* id : {"sys.user.caches", "Zeta.rule"}) registry.setRuleEnabled(id, false);
    EXPECT_EQ(idsOf(registry.matchingRules(incomplete)), Strings{"dev.homebrew.incomplete"});
}

TEST_F(RuleRegistryTest, ConcurrentRegistrationsAndReadsLoseNothingAndNeverTearTheFile) {
    auto registry = makeRegistry();
    std::vector<std::thread> threads;
    for (char w : {'a', 'b', 'c', 'd'}) {
        threads.emplace_back([&, w] {
            for (char i = '0'; i < '8'; ++i) {
                registry.registerRule(dynamicRule({w, '.', i}, {"~/c/" + std::string{w}}));
                registry.matchingRules(temp.at("c/a0"));
                // Every read finds a whole file, never a torn one.
                if (auto text = storedText()) { EXPECT_FALSE(Json::parse(*text, nullptr, false).is_discarded()); }
            }
        });
    }
    for (auto& thread : threads) thread.join();

    EXPECT_EQ(registry.allRules().size(), builtInRuleCount + 32);
    // The last save holds every rule, in order.
    const Strings stored = idsOf(ruleCatalogFromJson(Json::parse(storedText().value())).rules);
    EXPECT_EQ(stored.size(), 32u);
    EXPECT_TRUE(std::is_sorted(stored.begin(), stored.end()));
}

} // namespace
} // namespace unbulk
