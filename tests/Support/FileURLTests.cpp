#include <string>
#include <string_view>
#include <vector>

#include <gtest/gtest.h>

#include "Support/FileURL.hpp"

namespace unbulk {
namespace {

TEST(FileURLTest, AbsoluteStringPercentEncodesThePath) {
    struct Row {
        std::string path;
        std::string expected;
    };
    const std::vector<Row> rows{
        {"/Users/me/My Files", "file:///Users/me/My%20Files"},
        {"/tmp/100%", "file:///tmp/100%25"},
        {"/tmp/caf\xC3\xA9", "file:///tmp/caf%C3%A9"},
        {"/tmp/\xE2\x80\xA2", "file:///tmp/%E2%80%A2"},
        {"/a-._~!$&'()*+,;=:@z", "file:///a-._~!$&'()*+,;=:@z"},
        {"/q?x#y", "file:///q%3Fx%23y"},
        {"/[b]\"c\"<d>\\e^f`g{h}|i", "file:///%5Bb%5D%22c%22%3Cd%3E%5Ce%5Ef%60g%7Bh%7D%7Ci"},
        {"/tab\there", "file:///tab%09here"},
    };
    for (const auto& row : rows) EXPECT_EQ(FileURL(row.path).absoluteString(), row.expected) << row.path;
}

TEST(FileURLTest, DirectoriesEndInOneSlash) {
    EXPECT_EQ(FileURL("/a/b", true).absoluteString(), "file:///a/b/");
    EXPECT_EQ(FileURL("/a/b/", true).absoluteString(), "file:///a/b/");
    EXPECT_EQ(FileURL("/a/b/", false).absoluteString(), "file:///a/b");
    EXPECT_EQ(FileURL("/", true).absoluteString(), "file:///");
    EXPECT_EQ(FileURL("/", false).absoluteString(), "file:///");
    // The path never keeps the slash; the flag carries it.
    EXPECT_EQ(FileURL("/a/b//", true).path(), "/a/b");
    EXPECT_EQ(FileURL("/", true).path(), "/");
}

TEST(FileURLTest, ParseReadsBackWhatAbsoluteStringWrites) {
    std::string everyByte = "/";
    for (int c = 1; c < 256; ++c) {
        if (c != '/') everyByte += static_cast<char>(c);
    }
    const std::vector<FileURL> urls{
        FileURL("/plain/file.txt"),      FileURL("/a dir/with space", true), FileURL("/tmp/caf\xC3\xA9 %41"),
        FileURL("/", true),              FileURL(everyByte),                 FileURL(everyByte + "/sub", true),
    };
    for (const auto& url : urls) {
        auto parsed = FileURL::parse(url.absoluteString());
        ASSERT_TRUE(parsed.has_value()) << url.absoluteString();
        EXPECT_EQ(*parsed, url) << url.absoluteString();
    }
}

TEST(FileURLTest, ParseAcceptsLocalhostAndAnyCaseOfTheScheme) {
    auto local = FileURL::parse("file://localhost/a/b");
    ASSERT_TRUE(local.has_value());
    EXPECT_EQ(local->path(), "/a/b");
    EXPECT_FALSE(local->isDirectory());

    auto upper = FileURL::parse("FILE:///a/b/");
    ASSERT_TRUE(upper.has_value());
    EXPECT_EQ(upper->path(), "/a/b");
    EXPECT_TRUE(upper->isDirectory());

    auto lowerEscape = FileURL::parse("file:///a%c3%a9");
    ASSERT_TRUE(lowerEscape.has_value());
    EXPECT_EQ(lowerEscape->path(), "/a\xC3\xA9");
}

TEST(FileURLTest, ParseRejectsWhatIsNotALocalFileURL) {
    const std::vector<std::string> rejected{
        "",
        "/plain/path",
        "file:",
        "file://",
        "file:/a/b",
        "http://example.com/a",
        "https:///a",
        "file://otherhost/a",
        "file:///a%zz",
        "file:///a%G1",
        "file:///a%4",
        "file:///a%",
        "file:///%",
    };
    for (const auto& text : rejected) EXPECT_FALSE(FileURL::parse(text).has_value()) << text;

    // A view that ends inside an escape must not read past its end.
    const std::string longer = "file:///a%41";
    EXPECT_FALSE(FileURL::parse(std::string_view(longer).substr(0, longer.size() - 1)).has_value());
    EXPECT_FALSE(FileURL::parse(std::string_view(longer).substr(0, longer.size() - 2)).has_value());
}

TEST(FileURLTest, PathArithmeticKeepsTheDirectoryFlagTrue) {
    FileURL base("/a/./b/../c", true);
    EXPECT_EQ(base.standardized(), FileURL("/a/c", true));

    FileURL child = FileURL("/a", true).appending("f.txt");
    EXPECT_EQ(child.path(), "/a/f.txt");
    EXPECT_FALSE(child.isDirectory());
    EXPECT_EQ(FileURL("/a", true).appending("d", true).absoluteString(), "file:///a/d/");

    FileURL parent = FileURL("/a/f.txt").deletingLastComponent();
    EXPECT_EQ(parent.path(), "/a");
    EXPECT_TRUE(parent.isDirectory());
    EXPECT_EQ(FileURL("/a/f.txt").lastComponent(), "f.txt");
}

} // namespace
} // namespace unbulk
