#include "Scanner/RiskClassifier.hpp"

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Rules/CacheDirTagDetector.hpp"
#include "Rules/RuleRegistry.hpp"
#include "support/TempHome.hpp"

namespace unbulk {
void PrintTo(const RiskClassificationResult& result, std::ostream* out) {
    *out << "{" << rawValue(result.riskTier) << ", " << result.confidence << ", \"" << result.reason << "\", "
         << result.matchedRuleId.value_or("-") << ", tag " << result.hasCacheDirTag << "}";
}
} // namespace unbulk

namespace unbulk {
namespace {

namespace fs = std::filesystem;
using Result = RiskClassificationResult;
using C = StorageCategory;

constexpr const char* transient = "Standard transient application caches, logs, or reports that regenerate "
                                  "automatically.";
constexpr const char* weights =
    "Pretrained AI model weights require significant network bandwidth and time to re-download.";
constexpr const char* tagHeader = "Signature: 8a477f597d28d172789f06886806bc55";

Result keep(const std::string& reason) { return {RiskTier::keep, 1.0, reason, std::nullopt, false}; }
Result symlinkKeep(const std::string& reason) {
    return keep("Symlink target points to protected boundary: " + reason);
}
Result safeTransient() { return {RiskTier::safeToDelete, 0.95, transient, std::nullopt, false}; }
Result weightsReview() { return {RiskTier::reviewRequired, 1.0, weights, std::nullopt, false}; }
Result ruleMatch(RiskTier tier, const std::string& name, const std::string& id) {
    return {tier, 1.0, "Matched RuleRegistry rule: " + name + " (" + id + ")", id, false};
}
Result tagged(const std::string& comment) {
    return {RiskTier::safeToDelete, 1.0, "Verified CACHEDIR.TAG cache specification (" + comment + ")", std::nullopt,
            true};
}

class RiskClassifierTest : public ::testing::Test {
protected:
    testing::TempHome temp;
    const std::string home = temp.path();
    const FileURL homeURL{home, true};
    std::shared_ptr<FileSystem> fileSystem = makeDefaultFileSystem();
    const RiskClassifier plain{homeURL, nullptr, fileSystem};

    // "~/x" is read against the temporary home; anything else is taken as it is.
    std::string expand(const std::string& path) const {
        return path.rfind("~/", 0) == 0 ? temp.at(path.substr(2)) : path;
    }

    Result classify(const std::string& path, C category, bool isOrphaned = false) const {
        return classifyWith(plain, path, category, isOrphaned);
    }
    Result classifyWith(const RiskClassifier& classifier, const std::string& path, C category,
                        bool isOrphaned = false) const {
        return classifier.classify(fileSystem->fileURL(expand(path)), category, isOrphaned);
    }

    std::shared_ptr<RuleRegistry> makeRegistry() const {
        return std::make_shared<RuleRegistry>(std::nullopt, homeURL, fileSystem);
    }

    static RuleDefinition dynamicRule(std::string id, std::string name, RiskTier tier, std::string pattern) {
        return RuleDefinition{.id = std::move(id),
                              .name = std::move(name),
                              .description = "A test rule.",
                              .category = StorageCategory::dynamicRule,
                              .riskTier = tier,
                              .patterns = {std::move(pattern)}};
    }
};

struct Case {
    std::string path;
    Result expected;
};

void expectAll(const std::vector<Case>& cases, const std::function<Result(const std::string&)>& classify) {
    for (const auto& c : cases) {
        SCOPED_TRACE(c.path);
        EXPECT_EQ(classify(c.path), c.expected);
    }
}

TEST_F(RiskClassifierTest, KeepBoundariesOnThePath) {
    const std::string credentials = "Protected security credentials or keychains.";
    const std::string configuration = "Protected active configuration file.";
    const std::vector<Case> cases{
        // System paths, named in lower case, matched on whole components.
        {"/Library/Caches/com.apple.x", keep("Protected system OS directory (/library).")},
        {"/LIBRARY", keep("Protected system OS directory (/library).")},
        {"/usr/local/lib/x", keep("Protected system OS directory (/usr).")},
        {"/private/var/db/x", keep("Protected system OS directory (/private/var/db).")},
        {"/var/root/.cache", keep("Protected system OS directory (/var/root).")},
        {"/Volumes/Disk/x", keep("Protected system OS directory (/volumes).")},
        {"/usrlocal/x", safeTransient()},
        {"/private/var/folders/ab/x", safeTransient()},
        // Personal directories: this home, and any account under /Users.
        {"~/Documents", keep("Protected user personal directory (~/documents).")},
        {"~/DESKTOP/notes.txt", keep("Protected user personal directory (~/desktop).")},
        {"~/Movies/./clip.mov/", keep("Protected user personal directory (~/movies).")},
        {"/Users/other/Documents/x", keep("Protected user personal directory (~/documents).")},
        {"/users/Other/PICTURES", keep("Protected user personal directory (~/pictures).")},
        {"~/DocumentsArchive/x", safeTransient()},
        {"/Users/Documents/x", safeTransient()},
        // Tool binaries and credentials: the dots are literal in the any-account test.
        {"~/.cargo/bin/rg", keep("Protected executable user tool binaries (~/.cargo/bin).")},
        {"/Users/other/.bun/bin/bun", keep("Protected executable user tool binaries (~/.bun/bin).")},
        {"/Users/other/xcargo/bin/rg", safeTransient()},
        {"~/.ssh/id_ed25519", keep(credentials)},
        {"~/Library/Keychains/login.keychain-db", keep(credentials)},
        {"~/.cargo/credentials.toml", keep(credentials)},
        {"~/.npmrc", keep(credentials)},
        {"/Users/other/.aws/config", keep(credentials)},
        {"/Users/other/xssh/id", safeTransient()},
        // Configuration files: the file itself only, never below it.
        {"~/.zshrc", keep(configuration)},
        {"~/.cargo/config.toml", keep(configuration)},
        {"~/.gradle/gradle.properties", keep(configuration)},
        {"/Users/other/.gitconfig", keep(configuration)},
        {"~/.zshrc.d/x", safeTransient()},
        {"~/.zshrc/x", safeTransient()},
        {"/Users/other/.bashrc.bak", safeTransient()},
        {"/Users/other/.gitconfig/x", safeTransient()},
        {"/Users/other/xgitconfig", safeTransient()},
    };
    expectAll(cases, [&](const std::string& path) { return classify(path, C::developerCache); });
}

TEST_F(RiskClassifierTest, SystemPathsKeepWhateverTheCategory) {
    for (const auto& row : storageCategoryTable) {
        for (bool orphaned : {false, true}) {
            SCOPED_TRACE(std::string(row.rawValue));
            EXPECT_EQ(classify("/Library/Developer/x", row.category, orphaned),
                      keep("Protected system OS directory (/library)."));
        }
    }
}

TEST_F(RiskClassifierTest, KeepBoundariesOnALinksTarget) {
    temp.makeDirectory("Documents/secret");
    temp.makeDirectory(".ssh");
    temp.makeDirectory("elsewhere/place");
    temp.makeSymlink("Library/Caches/app/docs", temp.at("Documents/secret"));
    temp.makeSymlink("Library/Caches/app/keys", temp.at(".ssh"));
    temp.makeSymlink("Library/Caches/app/ok", temp.at("elsewhere/place"));
    temp.makeSymlink("Library/Caches/app/dangling", "/Users/other/Documents/x");
    const std::vector<Case> cases{
        {"~/Library/Caches/app/docs", symlinkKeep("Protected user personal directory (~/documents).")},
        {"~/Library/Caches/app/docs/report.pdf", symlinkKeep("Protected user personal directory (~/documents).")},
        {"~/Library/Caches/app/keys/id_rsa", symlinkKeep("Protected security credentials or keychains.")},
        // A target that does not exist is judged as written.
        {"~/Library/Caches/app/dangling", symlinkKeep("Protected user personal directory (~/documents).")},
        {"~/Library/Caches/app/ok", safeTransient()},
    };
    expectAll(cases, [&](const std::string& path) { return classify(path, C::systemCaches); });
}

TEST_F(RiskClassifierTest, ALinksTargetIsAlsoJudgedAgainstTheResolvedHome) {
    // The classifier knows the home only by a link to it; the link target of an
    // item is a real path, so it is compared with the home resolved as well.
    const std::string homeLink = temp.root() + "/homelink";
    fs::create_symlink(home, homeLink);
    temp.makeDirectory("Documents/secret");
    temp.makeSymlink("Library/Caches/app/docs", temp.at("Documents/secret"));
    const RiskClassifier viaLink{FileURL(homeLink, true), nullptr, fileSystem};
    EXPECT_EQ(classifyWith(viaLink, "~/Library/Caches/app/docs", C::systemCaches),
              symlinkKeep("Protected user personal directory (~/documents)."));
    // The path itself is judged against the home as given.
    EXPECT_EQ(classifyWith(viaLink, homeLink + "/Documents/x", C::systemCaches),
              keep("Protected user personal directory (~/documents)."));
}

TEST_F(RiskClassifierTest, TheStrictestMatchingRuleDecidesTheFirstOfItsTierWinning) {
    auto registry = makeRegistry();
    // Sorted by id the matches are sys.user.caches (safe), user.review.one and
    // user.review.two (both review).
    registry->registerRule(
        dynamicRule("user.review.two", "Review Two", RiskTier::reviewRequired, "~/Library/Caches/com.example/**"));
    registry->registerRule(
        dynamicRule("user.review.one", "Review One", RiskTier::reviewRequired, "~/Library/Caches/com.example/**"));
    registry->registerRule(dynamicRule("custom.aws", "AWS Cache", RiskTier::safeToDelete, "~/.aws/cli/cache/**"));
    const RiskClassifier withRules{homeURL, registry, fileSystem};

    // The category plays no part once a rule matched: a live Docker VM would keep.
    EXPECT_EQ(classifyWith(withRules, "~/Library/Caches/com.example/blob", C::dockerVM),
              ruleMatch(RiskTier::reviewRequired, "Review One", "user.review.one"));
    EXPECT_EQ(classifyWith(withRules, "~/Library/Caches/other/blob", C::aiModelWeights),
              ruleMatch(RiskTier::safeToDelete, "User Application Caches", "sys.user.caches"));
    // Keep boundaries come before any rule.
    EXPECT_EQ(classifyWith(withRules, "~/.aws/cli/cache/token", C::dynamicRule),
              keep("Protected security credentials or keychains."));
    // Without a registry the rule step is skipped.
    EXPECT_EQ(classify("~/Library/Caches/com.example/blob", C::dockerVM),
              keep("Active Docker VM disk image. Uninstallation or shutdown required."));
    EXPECT_EQ(classify("~/Library/Caches/com.example/blob", C::systemCaches), safeTransient());
}

TEST_F(RiskClassifierTest, CacheDirectoryTags) {
    temp.writeFile("models/commented/CACHEDIR.TAG", std::string(tagHeader) + "\n# Made by mlx\n");
    temp.writeFile("models/bare/CACHEDIR.TAG", std::string(tagHeader) + "\n");
    temp.makeDirectory("models/written");
    CacheDirTagDetector::writeTag(fileSystem->fileURL(temp.at("models/written")), std::string("unbulk"), *fileSystem);
    temp.writeFile("models/badsig/CACHEDIR.TAG", "Signature: 00000000000000000000000000000000\n# Made by x\n");
    temp.writeFile("models/file/CACHEDIR.TAG", std::string(tagHeader) + "\n");
    temp.writeFile("models/file/weights.bin", "x");
    temp.writeFile("Documents/cache/CACHEDIR.TAG", std::string(tagHeader) + "\n");

    const std::vector<Case> cases{
        // A valid tag beats the category.
        {"~/models/commented", tagged("Made by mlx")},
        {"~/models/bare", tagged("standard cache")},
        {"~/models/written", tagged("This file is a cache directory tag created by unbulk.")},
        // A bad signature is ignored, and so is a tag beside a plain file.
        {"~/models/badsig", weightsReview()},
        {"~/models/file/weights.bin", weightsReview()},
        {"~/models/missing", weightsReview()},
        // Keep boundaries come first.
        {"~/Documents/cache", keep("Protected user personal directory (~/documents).")},
    };
    expectAll(cases, [&](const std::string& path) { return classify(path, C::aiModelWeights); });
}

TEST_F(RiskClassifierTest, ARuleMatchComesBeforeACacheTag) {
    temp.writeFile(".cache/huggingface/hub/models--x/CACHEDIR.TAG", std::string(tagHeader) + "\n# hub\n");
    temp.writeFile("Library/Caches/tagged/CACHEDIR.TAG", std::string(tagHeader) + "\n# app\n");
    const RiskClassifier withRules{homeURL, makeRegistry(), fileSystem};
    EXPECT_EQ(classifyWith(withRules, "~/.cache/huggingface/hub/models--x", C::aiModelWeights),
              ruleMatch(RiskTier::reviewRequired, "HuggingFace Hub Models", "ai.huggingface.hub"));
    EXPECT_EQ(classifyWith(withRules, "~/Library/Caches/tagged", C::systemCaches),
              ruleMatch(RiskTier::safeToDelete, "User Application Caches", "sys.user.caches"));
    // Without the registry the tag decides.
    EXPECT_EQ(classify("~/.cache/huggingface/hub/models--x", C::aiModelWeights), tagged("hub"));
}

TEST_F(RiskClassifierTest, CategoryDefaults) {
    const std::string fallback = "Category default risk classification.";
    struct Row {
        C category;
        Result expected;
    };
    const std::vector<Row> rows{
        {C::developerCache, safeTransient()},
        {C::systemCaches, safeTransient()},
        {C::systemLogs, safeTransient()},
        {C::crashReports, safeTransient()},
        {C::browserCaches, safeTransient()},
        {C::leftovers, safeTransient()},
        {C::aiModelWeights, weightsReview()},
        {C::xcodeArtifacts,
         {RiskTier::safeToDelete, 0.95, "Xcode intermediate build products regenerate automatically on compilation.",
          std::nullopt, false}},
        {C::strayDependencies,
         {RiskTier::reviewRequired, 0.9,
          "Stray project dependencies in home root require verification before deletion.", std::nullopt, false}},
        {C::mailDownloads,
         {RiskTier::reviewRequired, 1.0,
          "Locally cached email attachments may not exist on remote mail server if deleted.", std::nullopt, false}},
        {C::dynamicRule, {RiskTier::safeToDelete, 0.85, fallback, std::nullopt, false}},
        {C::applicationBundles, {RiskTier::reviewRequired, 0.85, fallback, std::nullopt, false}},
        {C::largeFiles, {RiskTier::reviewRequired, 0.85, fallback, std::nullopt, false}},
        {C::startupItems, {RiskTier::reviewRequired, 0.85, fallback, std::nullopt, false}},
        {C::unknownAnomaly, {RiskTier::reviewRequired, 0.85, fallback, std::nullopt, false}},
    };
    ASSERT_EQ(rows.size() + 1, storageCategoryTable.size()); // dockerVM below
    for (const auto& row : rows) {
        for (bool orphaned : {false, true}) {
            SCOPED_TRACE(std::string(rawValue(row.category)) + (orphaned ? " orphaned" : ""));
            EXPECT_EQ(classify("~/Projects/thing/data", row.category, orphaned), row.expected);
        }
    }

    EXPECT_EQ(classify("~/Library/Containers/com.docker.docker/Data/vms/0/data/Docker.raw", C::dockerVM, true),
              (Result{RiskTier::reviewRequired, 1.0, "Orphaned Docker VM disk image from uninstalled Docker Desktop.",
                      std::nullopt, false}));
    EXPECT_EQ(classify("~/Library/Containers/com.docker.docker/Data/vms/0/data/Docker.raw", C::dockerVM, false),
              keep("Active Docker VM disk image. Uninstallation or shutdown required."));
}

TEST_F(RiskClassifierTest, XcodeArchivesAreFoundCaseSensitivelyAnywhereInThePath) {
    const Result archives{RiskTier::reviewRequired, 1.0,
                          "Xcode release archives contain dSYMs needed for App Store crash symbolication.",
                          std::nullopt, false};
    const Result products{RiskTier::safeToDelete, 0.95,
                          "Xcode intermediate build products regenerate automatically on compilation.", std::nullopt,
                          false};
    const std::vector<Case> cases{
        {"~/Library/Developer/Xcode/Archives/2024-01-01/x.xcarchive", archives},
        {"~/Library/Developer/Xcode/DerivedData/ArchivesTool-abc", archives},
        {"~/Library/Developer/Xcode/archives/2024-01-01/x.xcarchive", products},
        {"~/Library/Developer/Xcode/DerivedData/App-abc", products},
    };
    expectAll(cases, [&](const std::string& path) { return classify(path, C::xcodeArtifacts); });
}

} // namespace
} // namespace unbulk
