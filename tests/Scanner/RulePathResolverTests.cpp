#include <algorithm>
#include <map>

#include <gtest/gtest.h>

#include "Scanner/RulePathResolver.hpp"
#include "support/ForwardingFileSystem.hpp"
#include "support/TempHome.hpp"

namespace unbulk {
namespace {

using testing::TempHome;

struct RulePathResolverTest : ::testing::Test {
    std::vector<std::string> resolve(std::string_view pattern) {
        std::vector<std::string> out;
        for (const auto& url : RulePathResolver::resolveMatchingPaths(pattern, homeURL, *fileSystem)) {
            out.push_back(url.path().substr(home.path().size() + 1));
        }
        return out;
    }
    std::vector<std::string> sorted(std::vector<std::string> paths) {
        std::sort(paths.begin(), paths.end());
        return paths;
    }

    TempHome home;
    FileURL homeURL{home.path(), true};
    std::shared_ptr<FileSystem> fileSystem = makeDefaultFileSystem();
};

using Paths = std::vector<std::string>;

TEST_F(RulePathResolverTest, ATrailingDoubleStarStandsForTheDirectoryItselfOnce) {
    home.writeFile("tool/cache/a/b", "x");
    EXPECT_EQ(resolve("~/tool/cache/**"), Paths{"tool/cache"});
    EXPECT_EQ(resolve("~/tool/missing/**"), Paths{});
    EXPECT_EQ(resolve("~/tool/cache/a/b"), Paths{"tool/cache/a/b"});
}

TEST_F(RulePathResolverTest, TheLastSegmentTakesFilesAndDirectoriesInnerSegmentsOnlyRealDirectories) {
    home.writeFile("work/one/tmp/f", "x");
    home.writeFile("work/two/tmp", "a file named tmp");
    home.writeFile("work/file/tmp", "x");
    home.writeFile("work/three", "a file where a directory could be");
    home.writeFile("elsewhere/tmp/f", "x");
    home.makeSymlink("work/linked", home.at("elsewhere"));
    EXPECT_EQ(sorted(resolve("~/work/*/tmp")), (Paths{"work/file/tmp", "work/one/tmp", "work/two/tmp"}));
    EXPECT_EQ(sorted(resolve("~/work/t*")), (Paths{"work/three", "work/two"}));
    // A link matches no wildcard, also as the last segment.
    EXPECT_EQ(resolve("~/work/link?d"), Paths{});
}

TEST_F(RulePathResolverTest, WildcardsSkipHiddenEntriesButALiteralSegmentNamesThem) {
    home.writeFile(".npm/_cacache/index", "x");
    home.writeFile("visible/_cacache/index", "x");
    EXPECT_EQ(resolve("~/*/_cacache"), Paths{"visible/_cacache"});
    EXPECT_EQ(resolve("~/.npm/_cac?che"), Paths{".npm/_cacache"});
}

TEST_F(RulePathResolverTest, DoubleStarMatchesZeroOrMoreDirectoriesWithoutFollowingLinksOrEnteringHiddenOnes) {
    home.writeFile("src/node_modules/x", "x");
    home.writeFile("src/a/b/node_modules/x", "x");
    home.writeFile("src/.git/node_modules/x", "x");
    home.writeFile("outside/node_modules/x", "x");
    home.makeSymlink("src/link", home.at("outside"));
    EXPECT_EQ(sorted(resolve("~/src/**/node_modules")), (Paths{"src/a/b/node_modules", "src/node_modules"}));
}

TEST_F(RulePathResolverTest, APathReachedTwiceIsReportedOnce) {
    home.writeFile("p/cache/x", "x");
    // "**" as zero directories and "*" as "cache" reach the same path.
    EXPECT_EQ(resolve("~/p/**/*"), (Paths{"p/cache", "p/cache/x"}));
}

// Counts the walks that start at each directory.
class WalkCounter : public testing::ForwardingFileSystem {
public:
    using ForwardingFileSystem::ForwardingFileSystem;
    void walk(const std::string& root, const WalkOptions& options, const WalkCallbacks& callbacks) const override {
        ++walksFrom[root];
        ForwardingFileSystem::walk(root, options, callbacks);
    }
    mutable std::map<std::string, int> walksFrom;
};

TEST_F(RulePathResolverTest, SeveralDoubleStarsWalkEachDirectoryOnceForEachOfThem) {
    std::string deep = "t";
    for (int i = 0; i < 8; ++i) deep += "/d";
    home.writeFile(deep + "/leaf", "x");
    home.writeFile("t/leaf", "x");
    const auto counter = std::make_shared<WalkCounter>(fileSystem);
    fileSystem = counter;
    EXPECT_EQ(sorted(resolve("~/t/**/**/**/**/leaf")), (Paths{deep + "/leaf", "t/leaf"}));
    ASSERT_FALSE(counter->walksFrom.empty());
    for (const auto& [root, walks] : counter->walksFrom) EXPECT_LE(walks, 4) << root;
}

TEST_F(RulePathResolverTest, AMissingLiteralPrefixOrAnUnreadableBranchYieldsNothing) {
    EXPECT_EQ(resolve("~/absent/*/x"), Paths{});
    home.writeFile("file", "x");
    EXPECT_EQ(resolve("~/file/*"), Paths{});
}

} // namespace
} // namespace unbulk
