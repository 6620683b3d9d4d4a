#include <gtest/gtest.h>

#include "Support/FileURL.hpp"

namespace unbulk {
namespace {

TEST(FileURLTest, AbsoluteStringPercentEncodesThePathAndEndsADirectoryInOneSlash) {
    const std::vector<std::pair<FileURL, std::string>> rows{
        {FileURL("/Users/me/My Files"), "file:///Users/me/My%20Files"},
        {FileURL("/tmp/100%/caf\xC3\xA9"), "file:///tmp/100%25/caf%C3%A9"},
        {FileURL("/a-._~!$&'()*+,;=:@z"), "file:///a-._~!$&'()*+,;=:@z"},
        {FileURL("/q?x#y[b]\"<>\\^`{|}\t"), "file:///q%3Fx%23y%5Bb%5D%22%3C%3E%5C%5E%60%7B%7C%7D%09"},
        {FileURL("/a/b", true), "file:///a/b/"}, {FileURL("/a/b//", false), "file:///a/b"}, // the flag decides
        {FileURL("/", false), "file:///"}};
    for (const auto& [url, expected] : rows) EXPECT_EQ(url.absoluteString(), expected) << url.path();
}

TEST(FileURLTest, ParseReadsBackWhatAbsoluteStringWritesAndRejectsTheRest) {
    std::string everyByte = "/";
    for (int c = 1; c < 256; ++c) everyByte += c == '/' ? 'x' : static_cast<char>(c);
    for (const FileURL& url : {FileURL(everyByte), FileURL(everyByte + "/sub", true), FileURL("/", true)})
        EXPECT_EQ(FileURL::parse(url.absoluteString()), url) << url.absoluteString();
    EXPECT_EQ(FileURL::parse("FILE://localhost/a%c3%a9/"), FileURL("/a\xC3\xA9", true));

    for (const char* text : {"", "/plain/path", "file://", "file:/a/b", "http://example.com/a", "file://otherhost/a",
                             "file:///a%zz", "file:///a%4", "file:///%"})
        EXPECT_FALSE(FileURL::parse(text)) << text;
    // A view that ends inside an escape must not read past its end.
    const std::string_view longer = "file:///a%41";
    EXPECT_FALSE(FileURL::parse(longer.substr(0, longer.size() - 1)));
}

} // namespace
} // namespace unbulk
