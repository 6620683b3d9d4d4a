#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Rules/GlobMatcher.hpp"
#include "Support/Paths.hpp"
#include "support/TempHome.hpp"

namespace unbulk {
namespace {

const FileURL home("/Users/me", true);

struct MatchCase {
    std::string pattern;
    std::string text;
    bool expected;
};

TEST(GlobMatcherTest, MatchesWholePaths) {
    const std::string docker = "~/Library/Containers/com.docker.docker/Data/vms/*/Docker.raw";
    const std::string vms = "/Users/me/Library/Containers/com.docker.docker/Data/vms/";
    const std::vector<MatchCase> cases = {
        // "**" stands for zero or more whole segments.
        {"~/Library/Caches/**", "/Users/me/Library/Caches", true},
        {"~/Library/Caches/**", "/Users/me/Library/Caches/a/b/c.db", true},
        {"~/Library/Caches/**", "/Users/me/Library/CachesX", false},
        {"~/Library/Caches/**", "/Users/me/Library", false},
        {"a/**/b", "/a/b", true},
        {"a/**/b", "/a/x/b", true},
        {"a/**/b", "/a/x/y/b", true},
        {"a/**/b", "/a/x/y/c", false},
        {"a/**/b", "/a/b/c", false},
        {"**", "/", true},
        {"**", "", true},
        {"**", "/x/y/z", true},
        {"~/a**b", "/Users/me/aXYb", true}, // not a whole segment: two stars
        {"~/a**b", "/Users/me/a/b", false},
        // "*" stays within one segment.
        {"~/.cache/whisper/*.pt", "/Users/me/.cache/whisper/base.pt", true},
        {"~/.cache/whisper/*.pt", "/Users/me/.cache/whisper/.pt", true},
        {"~/.cache/whisper/*.pt", "/Users/me/.cache/whisper/sub/base.pt", false},
        {"~/.cache/whisper/*.pt", "/Users/me/.cache/whisper/base.pth", false},
        {docker, vms + "0/Docker.raw", true},
        {docker, vms + "0/data/Docker.raw", false},
        {docker, vms + "Docker.raw", false},
        // The root: no segments on either side.
        {"", "/", true},
        {"", "", true},
        {"", "/x", false},
        {"/", "/", true},
        {"/", "/a", false},
        {"/a", "/", false},
        // Lengths: leftover pattern must be all "**"; leftover path never matches.
        {"~/foo/**/**", "/Users/me/foo", true},
        {"~/foo/*/**", "/Users/me/foo", false},
        {"~/foo/bar", "/Users/me/foo", false},
        {"~/foo", "/Users/me/foo/bar", false},
        {"~/foo/**", "/Users/me/foo/bar/baz", true},
        // Home marker.
        {"~", "/Users/me", true},
        {"~", "/Users/me/x", false},
        {"~", "/Users", false},
        // Case is never folded.
        {"~/Library/Caches/**", "/Users/me/library/caches", false},
        {"~/Cache", "/Users/me/cache", false},
        // The path is standardised; slashes in the pattern make no empty segments.
        {"~/foo", "/Users/me/foo/", true},
        {"~/foo", "/Users/me//foo///", true},
        {"~/foo", "/Users/me/./foo", true},
        {"~/foo", "/Users/me/x/../foo", true},
        {"~//foo//bar/", "/Users/me/foo/bar", true},
        {"/Users/me/./x/../y/", "/Users/me/y", true},
        // "~/" keeps ".." literally, and a standardised path has none left.
        {"~/x/../y", "/Users/me/y", false},
        {"~/x/../y", "/Users/me/x/../y", false},
        // Splitting drops the leading slash, so a relative pattern lines up with
        // an absolute path from the root.
        {"foo/*", "/foo/x", true},
        // Characters are canonically equivalent grapheme clusters.
        {"~/caf\u00e9", "/Users/me/cafe\u0301", true},
        {"~/cafe\u0301", "/Users/me/caf\u00e9", true},
        {"~/caf?/*", "/Users/me/cafe\u0301/x", true},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(GlobMatcher::matches(c.pattern, c.text, home), c.expected)
            << "pattern \"" << c.pattern << "\" path \"" << c.text << "\"";
    }
}

TEST(GlobMatcherTest, MatchesPathsOfManySegments) {
    std::string deep = "/Users/me";
    std::string literal = "~";
    for (int i = 0; i < 40; ++i) {
        deep += "/d" + std::to_string(i);
        literal += "/d" + std::to_string(i);
    }
    EXPECT_TRUE(GlobMatcher::matches(literal, deep, home));
    EXPECT_TRUE(GlobMatcher::matches("~/**/d39", deep, home));
    EXPECT_TRUE(GlobMatcher::matches("~/**/d30/**/d39/**", deep, home));
    EXPECT_FALSE(GlobMatcher::matches("~/**/d38", deep, home));
    EXPECT_FALSE(GlobMatcher::matches(literal + "/x", deep, home));
    EXPECT_FALSE(GlobMatcher::matches(literal, deep + "/x", home));
}

TEST(GlobMatcherTest, MatchWildcardOneSegment) {
    const std::string family = "\U0001F468\u200D\U0001F469\u200D\U0001F467";
    const std::string flags = "\U0001F1EB\U0001F1F7\U0001F1E9\U0001F1EA";
    const std::vector<MatchCase> cases = {
        {"", "", true},
        {"", "a", false},
        {"abc", "abc", true},
        {"abc", "abcd", false},
        {"*.pt", "base.pt", true},
        {"*b", "aab", true},
        {"a*b*c", "aXbYc", true},
        {"a*b*c", "abc", true},
        {"a*c", "abcbc", true},
        {"a*c", "abcb", false},
        {"a*", "ab*", true},
        {"**", "abc", true},
        {"Cache", "cache", false},
        {"\u00c9", "\u00e9", false},
        // A pattern "*" is compared as a character before it acts as a star.
        {"*", "", true},
        {"*", "abc", true},
        {"*", "*", true},
        {"*", "*abc", false},
        {"a*", "a*b", false},
        {"?", "*", true},
        {"?", "?", true},
        {"?", "", false},
        {"??", "a", false},
        // One "?" is one user-perceived character.
        {"?", "e\u0301", true},
        {"??", "e\u0301", false},
        {"e?", "e\u0301", false},
        {"caf?", "cafe\u0301", true},
        {"caf\u00e9", "cafe\u0301", true},
        {"cafe\u0301", "caf\u00e9", true},
        {"*\u0301", "cafe\u0301", false}, // a star with a mark is a literal
        {"?", family, true},
        {"?", "\U0001F1EB\U0001F1F7", true},
        {"??", flags, true},
        {"?", flags, false},
        {"\uAC00", "\u1100\u1161", true},
        {"\u1100\u1161", "\uAC00", true},
        {"?", "\u1100\u1161", true},
        {"?", "\r\n", true},
        {"??", "\r\n", false},
        // Stray bytes are characters of their own.
        {"?", "\xff", true},
        {"?", "\xff\xfe", false},
        {"a*", "a\xff\xfe", true},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(GlobMatcher::matchWildcard(c.pattern, c.text), c.expected)
            << "pattern \"" << c.pattern << "\" text \"" << c.text << "\"";
    }
}

struct TextCase {
    std::string input;
    std::string expected;
};

TEST(GlobMatcherTest, ExpandHome) {
    const std::vector<TextCase> cases = {
        {"~", "/Users/me"},
        {"~/", "/Users/me"},
        {"~/x", "/Users/me/x"},
        {"~/Library/Caches/**", "/Users/me/Library/Caches/**"},
        // The rest after "~/" is not standardised.
        {"~/a/../b", "/Users/me/a/../b"},
        {"~/./*", "/Users/me/./*"},
        {"~//a///b/", "/Users/me/a/b"},
        // Anything else is standardised as a path.
        {"/Users/me/./a//b/../c/", "/Users/me/a/c"},
        {"", "/"},
        {"/", "/"},
        {"/..", "/"},
        {".", "/"},
        {"~other/x", "~other/x"},
        {"rel/./p/", "rel/p"},
    };
    for (const auto& c : cases) EXPECT_EQ(GlobMatcher::expandHome(c.input, home), c.expected) << c.input;
    // The home itself is standardised first.
    FileURL untidy("/Users/me/../me/");
    EXPECT_EQ(GlobMatcher::expandHome("~", untidy), "/Users/me");
    EXPECT_EQ(GlobMatcher::expandHome("~/x", untidy), "/Users/me/x");
}

TEST(GlobMatcherTest, NormalizePath) {
    const std::vector<TextCase> cases = {
        {"", "/"},   {"/", "/"},         {".", "/"},
        {"//", "/"}, {"/a//b/", "/a/b"}, {"/a/./b/../c", "/a/c"},
        {"a/../b", "a/../b"},
    };
    for (const auto& c : cases) EXPECT_EQ(GlobMatcher::normalizePath(c.input), c.expected) << c.input;

    testing::TempHome temp;
    EXPECT_EQ(GlobMatcher::normalizePath("~/x/"), temp.path() + "/x");
    EXPECT_EQ(GlobMatcher::normalizePath("~"), temp.path());
}

TEST(StandardizingPathTest, ReproducesThePlatformRules) {
    const std::vector<TextCase> cases = {
        {"", ""},
        {"/", "/"},
        {"//", "/"},
        {"/a/b", "/a/b"},
        {"/a/b/", "/a/b"},
        {"/a//b", "/a/b"},
        {"/a/./b", "/a/b"},
        {"/a/b/..", "/a"},
        {"/..", "/"},
        {"/../a", "/a"},
        {"/a/../../b", "/b"},
        {"/a/..b/.../.c", "/a/..b/.../.c"},
        {"~", "/h"},
        {"~/", "/h"},
        {"~/a/../b", "/h/b"},
        {"~user/a", "~user/a"},
        {"~user//a/./", "~user/a"},
        {"a/~/b", "a/~/b"},
        {"a/../b", "a/../b"},
        {"../a/", "../a"},
        {"./a", "a"},
        {".", ""},
        {"./", ""},
        {"a/./b/", "a/b"},
    };
    for (const auto& c : cases) {
        EXPECT_EQ(paths::standardizingPath(c.input, "/h"), c.expected) << c.input;
        if (paths::isStandardizedPath(c.input)) {
            EXPECT_EQ(c.input, c.expected) << c.input;
        }
    }
    EXPECT_FALSE(paths::isStandardizedPath("/a/"));
    EXPECT_FALSE(paths::isStandardizedPath("/a/../b"));
    EXPECT_TRUE(paths::isStandardizedPath("a/../b"));
    // Without a home, a tilde stays.
    EXPECT_EQ(paths::standardizingPath("~/a/", ""), "~/a");
}

} // namespace
} // namespace unbulk
