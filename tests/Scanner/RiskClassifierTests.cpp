#include "Scanner/RiskClassifier.hpp"

#include <ostream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Rules/RuleRegistry.hpp"
#include "support/TempHome.hpp"

namespace unbulk {

void PrintTo(const RiskClassificationResult& r, std::ostream* out) {
    *out << "{" << rawValue(r.riskTier) << ", " << r.confidence << ", \"" << r.reason << "\", "
         << r.matchedRuleId.value_or("-") << ", tag " << r.hasCacheDirTag << "}";
}

namespace {

using Result = RiskClassificationResult;
using C = StorageCategory;
constexpr RiskTier safe = RiskTier::safeToDelete, review = RiskTier::reviewRequired;
constexpr const char* tagHeader = "Signature: 8a477f597d28d172789f06886806bc55\n";

Result plain(RiskTier tier, double confidence, std::string text) { return {tier, confidence, std::move(text)}; }
Result keep(const std::string& reason) { return plain(RiskTier::keep, 1.0, reason); }
const Result transient = plain(safe, 0.95, "Standard transient application caches, logs, or reports that "
                                           "regenerate automatically.");

class RiskClassifierTest : public ::testing::Test {
protected:
    testing::TempHome temp;
    std::shared_ptr<RuleRegistry> registry; // none unless a test makes one

    // "~/x" is read against the temporary home; anything else is taken as it is.
    Result classify(const std::string& path, C category, bool orphaned = false) const {
        const std::string full = path.rfind("~/", 0) == 0 ? temp.at(path.substr(2)) : path;
        return RiskClassifier(FileURL(temp.path(), true), registry, makeDefaultFileSystem())
            .classify(FileURL(full), category, orphaned);
    }
};

TEST_F(RiskClassifierTest, KeepBoundariesOnThePathAndOnALinksTarget) {
    temp.writeFile("Documents/secret/report.pdf", "mine");
    temp.makeSymlink("Library/Caches/app/docs", temp.at("Documents/secret"));
    const std::string documents = "Protected user personal directory (~/documents).";
    const std::vector<std::pair<std::string, Result>> cases{
        {"/Library/Caches/com.apple.x", keep("Protected system OS directory (/library).")},
        {"/Users/other/Documents/x", keep(documents)},
        {"~/DocumentsArchive/x", transient},
        {"~/.cargo/bin/rg", keep("Protected executable user tool binaries (~/.cargo/bin).")},
        {"~/.ssh/id_ed25519", keep("Protected security credentials or keychains.")},
        {"~/.zshrc", keep("Protected active configuration file.")},
        {"~/.zshrc.d/x", transient},
        {"~/.zshrc/x", transient},
        {"~/Library/Caches/app/docs/report.pdf", keep("Symlink target points to protected boundary: " + documents)},
    };
    for (const auto& [path, expected] : cases) EXPECT_EQ(classify(path, C::developerCache), expected) << path;
}

TEST_F(RiskClassifierTest, RulesThenTagsThenTheCategory) {
    temp.writeFile("Library/Caches/tool/CACHEDIR.TAG", std::string(tagHeader) + "# app\n");
    temp.writeFile("models/bare/CACHEDIR.TAG", tagHeader);
    temp.writeFile("models/badsig/CACHEDIR.TAG", "Signature: 00000000000000000000000000000000\n");
    temp.writeFile("models/file/CACHEDIR.TAG", tagHeader);
    temp.writeFile("models/file/weights.bin", "x");
    // Without a registry a valid tag beats the category, even a Docker VM's keep.
    EXPECT_EQ(classify("~/Library/Caches/tool", C::dockerVM),
              (Result{safe, 1.0, "Verified CACHEDIR.TAG cache specification (app)", std::nullopt, true}));
    EXPECT_EQ(classify("~/models/bare", C::aiModelWeights),
              (Result{safe, 1.0, "Verified CACHEDIR.TAG cache specification (standard cache)", std::nullopt, true}));
    const Result untagged = classify("~/models/none", C::aiModelWeights);
    EXPECT_EQ(classify("~/models/badsig", C::aiModelWeights), untagged);
    EXPECT_EQ(classify("~/models/file/weights.bin", C::aiModelWeights), untagged);

    // With one, the strictest match decides, the first of its tier by id, ahead
    // of the tag and the category. The built-in sys.user.caches matches as well.
    registry = std::make_shared<RuleRegistry>(std::nullopt, FileURL(temp.path(), true), makeDefaultFileSystem(),
                                              systemClock());
    for (const char* id : {"user.review.two", "user.review.one"})
        registry->registerRule({.id = id, .name = id, .riskTier = review, .patterns = {"~/Library/Caches/tool/**"}});
    EXPECT_EQ(classify("~/Library/Caches/tool", C::dockerVM),
              (Result{review, 1.0, "Matched RuleRegistry rule: user.review.one (user.review.one)", "user.review.one"}));
}

} // namespace
} // namespace unbulk
