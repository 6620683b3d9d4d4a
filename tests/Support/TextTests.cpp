#include <gtest/gtest.h>

#include "Support/Text.hpp"

namespace unbulk {
namespace {

using Strings = std::vector<std::string>;

TEST(TextTest, ReplacingSplittingAndJoining) {
    EXPECT_EQ(text::replacingAll("/home/me/x/home/me", "/home/me", "~"), "~/x~");
    EXPECT_EQ(text::replacingAll("aaa", "aa", "a"), "aa");  // the second "aa" overlaps the first
    EXPECT_EQ(text::replacingAll("ab", "a", "aa"), "aab");  // what is put in is not searched again
    EXPECT_EQ(text::replacingAll("same", "", "x"), "same"); // an empty target changes nothing
    EXPECT_EQ(text::splitNonEmpty(".a..b.", '.'), (Strings{"a", "b"}));
    EXPECT_EQ(text::splitNonEmpty("...", '.'), Strings{});
    EXPECT_EQ(text::joined({"cache", "tmp", ""}, ", "), "cache, tmp, ");
}

} // namespace
} // namespace unbulk
