#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "SpaceLens/EscapedPath.hpp"
#include "Support/FileURL.hpp"
#include "Support/Json.hpp"

namespace unbulk {
namespace {

// What the record's own encoding writes for the path and for its URL.
std::string wholeJson(const std::string& text) {
    std::string out;
    json::appendStringContent(out, text);
    return out;
}

void expectWrittenAsWhole(const EscapedPath& path, const std::string& context) {
    std::string json;
    path.appendJson(json);
    EXPECT_EQ(json, wholeJson(path.path())) << context;
    for (const bool isDirectory : {false, true}) {
        std::string url;
        path.appendUrlJson(url, isDirectory);
        EXPECT_EQ(url, wholeJson(FileURL(path.path(), isDirectory).absoluteString())) << context << " " << isDirectory;
    }
}

// Built name by name and cut back, the path's JSON and its URL's are what
// escaping the whole would give, odd names and odd roots included, and a
// plain name below an odd one as well.
TEST(EscapedPathTest, ExtendedAndCutBackItIsWrittenAsTheWholeWouldBe) {
    const std::vector<std::string> roots{"/", "/var/tmp/t", "/home/\xC3\xA9t\xC3\xA9", "/x/bad\xFF", "rel/a b"};
    const std::vector<std::string> names{
        "plain",          "with space",  "quote\"d", "back\\slash", "\xC3\xA9migr\xC3\xA9", "del\x7F", "nel\xC2\x85",
        "ls\xE2\x80\xA8", "bad\xFF\xFE", "100%",     "x.zip"};
    for (const std::string& root : roots) {
        EscapedPath path;
        path.assign(root);
        expectWrittenAsWhole(path, root);
        for (const std::string& first : names) {
            const EscapedPath::Mark atRoot = path.mark();
            path.append(first);
            expectWrittenAsWhole(path, path.path());
            for (const std::string& second : names) {
                const EscapedPath::Mark atFirst = path.mark();
                path.append(second);
                expectWrittenAsWhole(path, path.path());
                path.restore(atFirst);
            }
            expectWrittenAsWhole(path, path.path());
            path.restore(atRoot);
            EXPECT_EQ(path.path(), root);
        }
        expectWrittenAsWhole(path, root);
    }
}

} // namespace
} // namespace unbulk
