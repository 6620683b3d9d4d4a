#include <gtest/gtest.h>

#include "Support/Paths.hpp"

namespace unbulk {
namespace {

TEST(PathsTest, StandardizeResolvesLexically) {
    const std::vector<std::pair<std::string, std::string>> cases{
        {"", ""},       {"//", "/"},           {"/a//b///c/", "/a/b/c"}, {"/a/./b/.", "/a/b"}, {"/a/b/../../..", "/"},
        {"/../a", "/a"}, {"a/b/../c", "a/c"}, {"a/..", "."},            {"a/../../b", "../b"}, {"../../a/..", "../.."}};
    for (const auto& [input, expected] : cases) EXPECT_EQ(paths::standardize(input), expected) << input;
}

TEST(PathsTest, BelowIsJudgedOnWholeComponents) {
    // path, root, same or below, strictly below
    const std::vector<std::tuple<std::string, std::string, bool, bool>> rows{
        {"/a/b", "/a/b", true, false},   {"/a/b/c/d", "/a/b", true, true}, {"/a/bc", "/a/b", false, false},
        {"/a", "/a/b", false, false},    {"/x/y", "/", true, true},        {"/", "/", true, false},
        {"relative", "/", false, false}};
    for (const auto& [path, root, sameOrBelow, strictlyBelow] : rows) {
        EXPECT_EQ(paths::isSameOrBelow(path, root), sameOrBelow) << path << " vs " << root;
        EXPECT_EQ(paths::isStrictlyBelow(path, root), strictlyBelow) << path << " vs " << root;
    }
}

} // namespace
} // namespace unbulk
