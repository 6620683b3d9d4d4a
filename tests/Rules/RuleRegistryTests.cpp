#include "Rules/RuleRegistry.hpp"

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <filesystem>
#include <thread>

#include <gtest/gtest.h>

#include "Rules/BuiltInRules.hpp"
#include "Rules/RuleCatalog.hpp"
#include "Safety/SandboxSecurityError.hpp"
#include "support/FaultyFileSystem.hpp"
#include "support/TempHome.hpp"

namespace unbulk {
namespace {

using Strings = std::vector<std::string>;

const std::string invalidIdTail =
    "' is invalid. It must be non-empty and contain only alphanumeric characters, dots, and underscores.";

RuleDefinition dynamicRule(const std::string& id, Strings patterns = {"~/.cache/mlx/**"}) {
    return {.id = id, .name = "Rule " + id, .description = "Weights fetched by mlx.",
            .category = StorageCategory::aiModelWeights, .riskTier = RiskTier::reviewRequired,
            .patterns = std::move(patterns)};
}

template <typename Error, typename Call>
std::optional<Error> errorOf(const Call& call) {
    try {
        call();
    } catch (const Error& error) {
        return error;
    }
    return std::nullopt;
}

Strings idsOf(const std::vector<RuleDefinition>& rules) {
    Strings ids;
    for (const auto& rule : rules) ids.push_back(rule.id);
    return ids;
}

class RuleRegistryTest : public ::testing::Test {
protected:
    testing::TempHome temp;
    const std::string rulesPath = temp.at(".unbulk/rules.json");
    std::shared_ptr<testing::FaultyFileSystem> fileSystem = std::make_shared<testing::FaultyFileSystem>();

    RuleRegistry makeRegistry() { return RuleRegistry(std::nullopt, FileURL(temp.path(), true), fileSystem); }
    std::size_t writes() const { return fileSystem->callCount(testing::FileSystemCall::writeFileAtomically); }
    std::optional<std::string> storedText() const {
        std::error_code error;
        return fileSystem->readFile(rulesPath, 1 << 20, error);
    }
    RuleCatalog storedCatalog() const { return ruleCatalogFromJson(Json::parse(storedText().value())); }
};

TEST_F(RuleRegistryTest, RegisterWritesAPrettySortedCatalogAndKeepsABuiltInClaimDynamic) {
    auto registry = makeRegistry();
    auto rule = dynamicRule("custom_mlx_models");
    rule.excludedPatterns = {"/*"}; // exclusions are never put to the sandbox
    auto claimed = dynamicRule("custom.claims_builtin");
    claimed.isBuiltIn = true;
    // The file keeps whole seconds, so "now" is compared at that grain.
    const Date before = std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now());
    registry.registerRule(rule);
    registry.registerRule(claimed);
    const Date after = std::chrono::system_clock::now();

    const std::string text = storedText().value();
    const Json document = Json::parse(text);
    EXPECT_EQ(text, document.dump(2)); // two-space indentation, keys sorted at every level
    EXPECT_EQ(document.size(), 3u);
    EXPECT_EQ(document["version"], 1);
    const auto written = dates::parseISO8601(document["updatedAt"].get<std::string>());
    EXPECT_TRUE(written && before <= *written && *written <= after) << document["updatedAt"];
    const auto catalog = ruleCatalogFromJson(document);
    EXPECT_EQ(idsOf(catalog.rules), (Strings{claimed.id, rule.id}));
    EXPECT_EQ(catalog.rules[1], rule);

    // A rule that claims to be built in is kept as a dynamic one, dated now, all else copied.
    const auto stored = registry.rule(claimed.id).value();
    for (const auto& d : {stored.createdAt, stored.updatedAt}) EXPECT_TRUE(d && *d >= before && *d <= after);
    claimed.isBuiltIn = false;
    claimed.synthesizedBy = "dynamic";
    claimed.createdAt = stored.createdAt;
    claimed.updatedAt = stored.updatedAt;
    EXPECT_EQ(stored, claimed);
}

TEST_F(RuleRegistryTest, RefusalsReportTheirExactSentenceAndChangeNothing) {
    const std::string builtIn = "Cannot overwrite built-in rule 'dev.npm.cache' with a dynamic rule.";
    const std::vector<std::tuple<std::string, Strings, std::string>> cases{
        {"", {"~/x/**"}, "Rule ID '(empty)" + invalidIdTail},
        // A built-in id is refused before its patterns are looked at.
        {"dev.npm.cache", {}, builtIn},
        {"dev.npm.cache", {"/*"}, builtIn},
        {"custom.empty", {}, "Rule 'custom.empty' must define at least one path pattern."},
        // The id comes first: a space, an emoji, bytes that are not UTF-8.
        {"my rule", {}, "Rule ID 'my rule" + invalidIdTail},
        {"\xF0\x9F\x9A\x80.x", {"/*"}, "Rule ID '\xF0\x9F\x9A\x80.x" + invalidIdTail},
        {"bad\xFF", {"~/x/**"}, "Rule ID 'bad\xFF" + invalidIdTail},
    };
    auto registry = makeRegistry();
    const auto before = registry.allRules();
    for (const auto& [id, patterns, sentence] : cases) {
        auto error = errorOf<RuleRegistryError>([&, rule = dynamicRule(id, patterns)] { registry.registerRule(rule); });
        EXPECT_EQ(error ? error->what() : "(none)", sentence) << id;
    }
    EXPECT_EQ(registry.allRules(), before);
    EXPECT_FALSE(std::filesystem::exists(rulesPath));

    // Letters, marks and digits of any script are accepted, and ".", "_", "-".
    for (std::string id : {"my-rule.v2_x", "\u043f\u0440\u0430\u0432\u0438\u043b\u043e.\u0663", "cafe\u0301"}) {
        EXPECT_NO_THROW(registry.registerRule(dynamicRule(id))) << id;
    }
}

TEST_F(RuleRegistryTest, SandboxRefusalPassesThroughUnwrappedAndChangesNothing) {
    auto registry = makeRegistry();
    const auto good = dynamicRule("custom.x");
    registry.registerRule(good);
    const auto file = storedText();
    // The last one: every pattern is judged, not only the first.
    for (const Strings& patterns : {Strings{"/*"}, Strings{"~/Documents/*"}, Strings{"~/.cache/mlx/**", "/usr/*"}}) {
        EXPECT_THROW(registry.registerRule(dynamicRule("custom.x", patterns)), SandboxSecurityError) << patterns.back();
        EXPECT_EQ(registry.rule("custom.x"), good);
        EXPECT_EQ(storedText(), file);
    }
}

TEST_F(RuleRegistryTest, OnlyChangesToDynamicRulesReachTheFile) {
    auto registry = makeRegistry();
    registry.loadCustomRules(); // no file: nothing happens
    registry.setRuleEnabled("dev.npm.cache", false);
    EXPECT_NO_THROW(registry.removeRule("no.such.rule"));
    EXPECT_EQ(writes(), 0u);
    EXPECT_FALSE(std::filesystem::exists(temp.at(".unbulk")));

    registry.registerRule(dynamicRule("a.rule"));
    registry.setRuleEnabled("a.rule", false);
    fileSystem->resetCounts();
    registry.setRuleEnabled("sys.user.caches", false);
    EXPECT_EQ(writes(), 0u);

    // A fresh instance starts from the built-ins and reads the file only when asked.
    auto later = makeRegistry();
    EXPECT_TRUE(later.rule("dev.npm.cache")->enabled);
    EXPECT_FALSE(later.rule("a.rule"));
    later.loadCustomRules();
    EXPECT_FALSE(later.rule("a.rule")->enabled);
}

TEST_F(RuleRegistryTest, LoadingFailsOnABadFileAndSkipsRefusedRulesAndBuiltInIds) {
    for (const char* text : {"this is not json", "{}", R"({"version": 1, "rules": []})"}) {
        temp.writeFile(".unbulk/rules.json", text);
        const auto error = errorOf<RuleRegistryError>([&] { makeRegistry().loadCustomRules(); }).value();
        EXPECT_EQ(error.kind, RuleRegistryError::Kind::catalogDecodingFailed) << text;
        EXPECT_EQ(error.what(), "Failed to parse rules.json: " + error.payload);
    }

    auto early = dynamicRule("custom.dup"), late = early;
    late.name = "Late";
    const RuleCatalog catalog{.version = 1, .updatedAt = {},
                              .rules = {dynamicRule("custom.mlx"), dynamicRule("custom.root", {"/*"}),
                                        dynamicRule("dev.npm.cache"), early, late, dynamicRule("custom.dup", {"~/*"})}};
    temp.writeFile(".unbulk/rules.json", toJson(catalog).dump());
    auto registry = makeRegistry();
    registry.loadCustomRules();
    EXPECT_EQ(registry.rule("custom.mlx"), catalog.rules[0]);
    EXPECT_FALSE(registry.rule("custom.root"));
    EXPECT_EQ(registry.rule("dev.npm.cache")->name, "npm Cache");
    EXPECT_EQ(registry.rule("custom.dup"), late); // the later valid one: a refused one replaces nothing
    EXPECT_EQ(registry.allRules().size(), builtInRuleCount + 2);
}

TEST_F(RuleRegistryTest, AFailedSaveIsRaisedAndTheChangeStaysInMemory) {
    fileSystem->failOn(testing::FileSystemCall::writeFileAtomically, rulesPath, ENOSPC);
    auto registry = makeRegistry();
    const auto rule = dynamicRule("custom.x");
    auto error = errorOf<RuleRegistryError>([&] { registry.registerRule(rule); });
    EXPECT_EQ(error.value().what(), "Failed to persist rule catalog to disk: Failed to write rules to " + rulesPath +
                                        ": No space left on device");
    EXPECT_EQ(registry.rule("custom.x"), rule);
}

TEST_F(RuleRegistryTest, MatchingRulesHonourExclusionsAndSwitchesInIdOrder) {
    auto registry = makeRegistry();
    registry.registerRule(dynamicRule("Zeta.rule", {"~/Library/Caches/**"}));
    auto match = [&](const std::string& relative) { return idsOf(registry.matchingRules(temp.at(relative))); };
    const std::string incomplete = "Library/Caches/Homebrew/downloads/x.incomplete";
    // Byte order puts capitals first, whatever the locale.
    EXPECT_EQ(match(incomplete), (Strings{"Zeta.rule", "dev.homebrew.incomplete", "sys.user.caches"}));
    EXPECT_EQ(match("Library/Caches/Homebrew/downloads/x.tar.gz"),
              (Strings{"Zeta.rule", "dev.homebrew.cache", "sys.user.caches"}));
    registry.setRuleEnabled("sys.user.caches", false);
    registry.setRuleEnabled("Zeta.rule", false);
    EXPECT_EQ(match(incomplete), Strings{"dev.homebrew.incomplete"});
}

TEST_F(RuleRegistryTest, ConcurrentRegistrationsAndReadsLoseNothingAndNeverTearTheFile) {
    auto registry = makeRegistry();
    std::atomic<bool> done{false};
    std::atomic<int> tornReads{0};
    std::vector<std::thread> writers;
    for (char w : {'a', 'b', 'c', 'd'}) {
        writers.emplace_back([&, w] {
            for (char i = '0'; i < '8'; ++i) {
                registry.registerRule(dynamicRule({w, '.', i}, {"~/c/" + std::string{w, i}}));
            }
        });
    }
    std::thread reader([&] {
        while (!done) {
            registry.matchingRules(temp.at("c/a0"));
            if (auto text = storedText(); text && Json::parse(*text, nullptr, false).is_discarded()) ++tornReads;
        }
    });
    for (auto& thread : writers) thread.join();
    done = true;
    reader.join();

    EXPECT_EQ(tornReads, 0);
    EXPECT_EQ(registry.allRules().size(), builtInRuleCount + 32);
    const Strings stored = idsOf(storedCatalog().rules); // the last save holds every rule, in order
    EXPECT_EQ(stored.size(), 32u);
    EXPECT_TRUE(std::is_sorted(stored.begin(), stored.end()));
}

} // namespace
} // namespace unbulk
