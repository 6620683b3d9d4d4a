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

// One tree for every pattern below; a row marked sorted has no order of its own.
TEST_F(RulePathResolverTest, PatternsMatchWhatTheyShould) {
    for (const char* file : {"tool/cache/a/b", "work/one/tmp/f", "work/file/tmp", "elsewhere/tmp/f", ".npm/_cacache/i",
                             "visible/_cacache/i", "src/node_modules/x", "src/a/b/node_modules/x", "p/cache/x", "file",
                             "src/.git/node_modules/x", "outside/node_modules/x"})
        home.writeFile(file, "x");
    home.writeFile("work/two/tmp", "a file named tmp");
    home.writeFile("work/three", "a file where a directory could be");
    home.makeSymlink("work/linked", home.at("elsewhere"));
    home.makeSymlink("src/link", home.at("outside"));
    const struct { std::string pattern; Paths expected; bool sort = false; } rows[] = {
        // A trailing "**" stands for the directory itself, once.
        {"~/tool/cache/**", {"tool/cache"}},
        // The last segment takes files and directories, inner segments only real directories.
        {"~/work/*/tmp", {"work/file/tmp", "work/one/tmp", "work/two/tmp"}, true},
        {"~/work/t*", {"work/three", "work/two"}, true},
        {"~/work/link?d", {}}, // a link matches no wildcard, also as the last segment
        // Wildcards skip hidden entries, but a literal segment names them.
        {"~/*/_cacache", {"visible/_cacache"}},
        {"~/.npm/_cac?che", {".npm/_cacache"}},
        // "**" is zero or more directories, following no link and entering no hidden one.
        {"~/src/**/node_modules", {"src/a/b/node_modules", "src/node_modules"}, true},
        // "**" as zero directories and "*" as "cache" reach the same path, reported once.
        {"~/p/**/*", {"p/cache", "p/cache/x"}},
        // A branch that cannot be listed yields nothing.
        {"~/file/*", {}},
    };
    for (const auto& row : rows)
        EXPECT_EQ(row.sort ? sorted(resolve(row.pattern)) : resolve(row.pattern), row.expected) << row.pattern;
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

} // namespace
} // namespace unbulk
