#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Support/Paths.hpp"

namespace unbulk {
namespace {

struct Case {
    std::string input;
    std::string expected;
};

TEST(PathsTest, StandardizeResolvesLexically) {
    const std::vector<Case> cases{
        {"", ""},
        {"/", "/"},
        {"//", "/"},
        {"/a//b///c", "/a/b/c"},
        {"/a/b/", "/a/b"},
        {"/a/./b/.", "/a/b"},
        {"/a/b/../c", "/a/c"},
        {"/a/b/../../..", "/"},
        {"/../a", "/a"},
        {"/..", "/"},
        {"a/b/../c", "a/c"},
        {"a/..", "."},
        {".", "."},
        {"./a/", "a"},
        {"../a", "../a"},
        {"a/../../b", "../b"},
        {"../../a/..", "../.."},
    };
    for (const auto& c : cases) EXPECT_EQ(paths::standardize(c.input), c.expected) << "input: " << c.input;
}

TEST(PathsTest, ComponentsAreTheNonEmptyNames) {
    EXPECT_EQ(paths::components("/a//b/c/"), (std::vector<std::string>{"a", "b", "c"}));
    EXPECT_EQ(paths::components("a/b"), (std::vector<std::string>{"a", "b"}));
    EXPECT_TRUE(paths::components("/").empty());
    EXPECT_TRUE(paths::components("").empty());
}

TEST(PathsTest, AppendingNeverDoublesASlash) {
    EXPECT_EQ(paths::appending("/a", "b"), "/a/b");
    EXPECT_EQ(paths::appending("/a/", "b"), "/a/b");
    EXPECT_EQ(paths::appending("/a", "/b"), "/a/b");
    EXPECT_EQ(paths::appending("/", "b"), "/b");
    EXPECT_EQ(paths::appending("/a", ""), "/a");
    EXPECT_EQ(paths::appending("/a", "b/c"), "/a/b/c");
}

TEST(PathsTest, LastComponentAndItsRemoval) {
    struct Row {
        std::string path, last, parent;
    };
    const std::vector<Row> rows{
        {"/a/b/c", "c", "/a/b"}, {"/a/b/", "b", "/a"}, {"/a", "a", "/"},
        {"/", "/", "/"},         {"a", "a", ""},       {"a/b", "b", "a"},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(paths::lastComponent(row.path), row.last) << row.path;
        EXPECT_EQ(paths::deletingLastComponent(row.path), row.parent) << row.path;
    }
}

TEST(PathsTest, PathExtensionIsTheTextAfterTheLastDotOfTheName) {
    const std::vector<Case> cases{
        {"/x/a.tar.gz", "gz"}, {"/x/.bashrc", ""}, {"/x/Foo.app", "app"}, {"/x/Foo.app/", "app"},
        {"/x.d/file", ""},     {"/x/name.", ""},   {"noext", ""},         {"", ""},
    };
    for (const auto& c : cases) EXPECT_EQ(paths::pathExtension(c.input), c.expected) << "input: " << c.input;
}

TEST(PathsTest, BelowIsJudgedOnWholeComponents) {
    struct Row {
        std::string path, root;
        bool sameOrBelow, strictlyBelow;
    };
    const std::vector<Row> rows{
        {"/a/b", "/a/b", true, false},
        {"/a/b/c", "/a/b", true, true},
        {"/a/b/c/d", "/a/b", true, true},
        {"/a/bc", "/a/b", false, false},
        {"/a/b.d", "/a/b", false, false},
        {"/a", "/a/b", false, false},
        {"/b/a", "/a", false, false},
        {"/anything/at/all", "/", true, true},
        {"/", "/", true, false},
        {"relative", "/", false, false},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(paths::isSameOrBelow(row.path, row.root), row.sameOrBelow) << row.path << " vs " << row.root;
        EXPECT_EQ(paths::isStrictlyBelow(row.path, row.root), row.strictlyBelow) << row.path << " vs " << row.root;
    }
}

TEST(PathsTest, IsAbsolute) {
    EXPECT_TRUE(paths::isAbsolute("/"));
    EXPECT_TRUE(paths::isAbsolute("/a"));
    EXPECT_FALSE(paths::isAbsolute("a/b"));
    EXPECT_FALSE(paths::isAbsolute(""));
}

} // namespace
} // namespace unbulk
