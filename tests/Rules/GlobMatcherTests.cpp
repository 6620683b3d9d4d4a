#include <gtest/gtest.h>

#include "Rules/GlobMatcher.hpp"
#include "Support/Paths.hpp"

namespace unbulk {
namespace {

const FileURL home("/Users/me", true);

using TextCases = std::vector<std::pair<std::string, std::string>>;

TEST(GlobMatcherTest, MatchesWholePaths) {
    const std::vector<std::tuple<std::string, std::string, bool>> cases = {
        // "**" stands for zero or more whole segments, and only as a whole segment.
        {"~/Library/Caches/**", "/Users/me/Library/Caches", true},
        {"~/Library/Caches/**", "/Users/me/Library/Caches/a/b/c.db", true},
        {"~/Library/Caches/**", "/Users/me/Library/CachesX", false},
        {"a/**/b", "/a/b", true}, {"a/**/b", "/a/x/y/b", true}, {"**", "/", true}, {"~/a**b", "/Users/me/a/b", false},
        // "*" stays within one segment, and may match nothing.
        {"~/.cache/whisper/*.pt", "/Users/me/.cache/whisper/base.pt", true},
        {"~/.cache/whisper/*.pt", "/Users/me/.cache/whisper/sub/base.pt", false},
        // The root has no segments: "" and "/" match it alone.
        {"", "/", true}, {"/", "/", true}, {"", "/x", false},
        // Leftover pattern must be all "**"; leftover path never matches.
        {"~/foo/**/**", "/Users/me/foo", true}, {"~/foo/*/**", "/Users/me/foo", false},
        {"~/foo", "/Users/me/foo/bar", false},
        // A pattern "*" meets a text "*" as a literal first, and then has no star to fall back on.
        {"/*", "/*", true}, {"/*", "/*abc", false}, {"/a*", "/a*b", false}, {"/a*c", "/abcbc", true},
        {"/?", "/*", true},
        // The path is standardised; repeated slashes in the pattern make no empty segments.
        {"~/foo", "/Users/me//foo///", true}, {"~//foo//bar/", "/Users/me/foo/bar", true},
        {"~/x/../y", "/Users/me/y", false}, // "~/" keeps ".." as written
        // One "?" is one user-perceived character; canonically equivalent characters are equal.
        {"/?", "/e\u0301", true}, {"/??", "/e\u0301", false}, {"/caf\u00e9", "/cafe\u0301", true}};
    for (const auto& [pattern, path, expected] : cases)
        EXPECT_EQ(GlobMatcher::matches(pattern, path, home), expected) << "\"" << pattern << "\" vs \"" << path << "\"";
    // A segment is never empty inside a path, so the empty text is asked of one segment directly.
    EXPECT_TRUE(GlobMatcher::matchWildcard("*", ""));
    EXPECT_FALSE(GlobMatcher::matchWildcard("?", ""));
}

// Twenty "**" segments against a path 60 deep that fails only at its last
// segment: trying every way of sharing the segments out would not finish in
// a lifetime, so this returns at all only because each failed split is
// remembered.
TEST(GlobMatcherTest, ManyGlobstarsAgainstADeepPathFinish) {
    std::string pattern, path;
    for (int i = 0; i < 20; ++i) pattern += "/**/a";
    for (int i = 0; i < 60; ++i) path += "/a";
    EXPECT_TRUE(GlobMatcher::matches(pattern + "/b", path + "/b", home));
    EXPECT_FALSE(GlobMatcher::matches(pattern + "/b", path + "/c", home));
    EXPECT_FALSE(GlobMatcher::matches(pattern + "/a", "/a/a/a", home));
}

TEST(GlobMatcherTest, ExpandHomeAndNormalizePath) {
    const TextCases cases = {{"~", "/Users/me"}, {"~/", "/Users/me"}, {"", "/"}, {"~other/x", "~other/x"},
                             {"~/a/../b", "/Users/me/a/../b"}, // the rest after "~/" is not standardised...
                             {"~//a///b/", "/Users/me/a/b"},   // ...apart from its slashes
                             {"/Users/me/./a//b/../c/", "/Users/me/a/c"}};
    for (const auto& [input, expected] : cases) EXPECT_EQ(GlobMatcher::expandHome(input, home), expected) << input;

    EXPECT_EQ(GlobMatcher::normalizePath("", home), "/");
    EXPECT_EQ(GlobMatcher::normalizePath("~/x/", home), "/Users/me/x");
}

TEST(StandardizingPathTest, ReproducesThePlatformRules) {
    const TextCases cases = {{"", ""}, {"//", "/"}, {"/a//b/", "/a/b"}, {"/a/b/..", "/a"}, {"~/a/../b", "/h/b"},
                             {".", ""}, {"~user//a/./", "~user/a"}, {"/a/..b/.../.c", "/a/..b/.../.c"},
                             {"a/../b", "a/../b"}}; // ".." is resolved in absolute paths only
    for (const auto& [input, expected] : cases) {
        EXPECT_EQ(paths::standardizingPath(input, "/h"), expected) << input;
        EXPECT_EQ(paths::isStandardizedPath(input), input == expected) << input;
    }
    EXPECT_EQ(paths::standardizingPath("~/a/", ""), "~/a"); // without a home, a tilde stays
}

} // namespace
} // namespace unbulk
