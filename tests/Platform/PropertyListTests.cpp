#include <gtest/gtest.h>

#include <fstream>

#include "Platform/PropertyList.hpp"
#include "support/AppBundles.hpp"
#include "support/Files.hpp"
#include "support/TempHome.hpp"

namespace unbulk {
namespace {

using testing::PlistFormat;

using testing::readAll;

std::string writtenBy(const testing::TempHome& home, const Json& dictionary, PlistFormat format) {
    testing::writePlist(home.at("Info.plist"), dictionary, format);
    return readAll(home.at("Info.plist"));
}

TEST(PropertyListTest, ReadsTheSameDictionaryFromXmlAndBinaryWithUtf16Strings) {
    testing::TempHome home;
    const Json info = {{"CFBundleIdentifier", "com.acme.x"}, {"LSUIElement", true}, {"Count", 3}, {"Ratio", 0.5},
                       {"List", Json::array({"a", "b"})}, {"CFBundleName", "Caf\u00e9 \u2615"}, {"Cl\u00e9", "x"}};
    EXPECT_EQ(PropertyList::parseDictionary(writtenBy(home, info, PlistFormat::xml)), info);
    EXPECT_EQ(PropertyList::parseDictionary(writtenBy(home, info, PlistFormat::binary)), info);
}

// Found by the info_plist fuzzer: libplist stops the process on an assertion
// when a key (or, through its older getter, a string) holds a NUL, which a
// binary plist encodes as a UTF-16 unit 0. Such a plist reads as unreadable.
TEST(PropertyListTest, BinaryPlistsWithNulsInKeysOrStringsReadAsUnreadableWithoutStoppingTheProcess) {
    testing::TempHome home;
    const std::string bytes = writtenBy(home, {{std::string("Cl\u00e9\0x", 5), "x"}}, PlistFormat::binary);
    EXPECT_FALSE(PropertyList::parse(bytes).has_value());
    EXPECT_EQ(PropertyList::parseDictionary(bytes), Json::object());
    for (const char* name : {"string-with-nuls.bplist", "key-with-nuls.bplist"}) {
        const std::string path = std::string(UNBULK_SOURCE_DIR) + "/fuzz/corpus/info_plist/" + name;
        ASSERT_TRUE(std::ifstream(path)) << name;
        EXPECT_EQ(PropertyList::parseDictionary(readAll(path)), Json::object()) << name;
    }
}

// A dictionary {"a": [[[...]]]} with `depth` levels in all, as XML.
std::string nestedXml(int depth) {
    std::string text = "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\"><dict><key>a</key>";
    for (int i = 1; i < depth; ++i) text += "<array>";
    for (int i = 1; i < depth; ++i) text += "</array>";
    return text + "</dict></plist>";
}

// The same in the binary format, written byte by byte: object 0 is the
// dictionary, 1 its key, 2 and on the arrays, each holding the next.
std::string nestedBinary(int depth) {
    const int arrays = depth - 1, objects = arrays + 2;
    auto bigEndian = [](std::uint64_t value, int width) {
        std::string bytes;
        for (int i = width - 1; i >= 0; --i) bytes += static_cast<char>((value >> (8 * i)) & 0xFF);
        return bytes;
    };
    std::string body = "bplist00";
    std::vector<std::uint64_t> offsets;
    offsets.push_back(body.size());
    body += "\xD1" + bigEndian(1, 4) + bigEndian(2, 4);
    offsets.push_back(body.size());
    body += "\x51" "a";
    for (int i = 0; i < arrays; ++i) {
        offsets.push_back(body.size());
        body += i + 1 < arrays ? "\xA1" + bigEndian(static_cast<std::uint64_t>(i + 3), 4) : std::string("\xA0");
    }
    const std::uint64_t table = body.size();
    for (std::uint64_t offset : offsets) body += bigEndian(offset, 4);
    return body + std::string(6, '\0') + "\x04\x04" + bigEndian(static_cast<std::uint64_t>(objects), 8) +
           bigEndian(0, 8) + bigEndian(table, 8);
}

// Deeper than any real property list, deep enough to exhaust the stack of a
// reader that recurses: unreadable, as a corrupt one is. Within the limit
// the document reads in full.
TEST(PropertyListTest, NestingBeyondTheLimitReadsAsUnreadable) {
    for (const auto& make : {&nestedXml, &nestedBinary}) {
        const std::optional<Json> within = PropertyList::parse(make(PropertyList::maximumNestingDepth));
        ASSERT_TRUE(within.has_value());
        const Json* inner = &(*within)["a"];
        int depth = 2;
        while (!inner->empty()) inner = &(*inner)[0], ++depth;
        EXPECT_EQ(depth, PropertyList::maximumNestingDepth);
        EXPECT_FALSE(PropertyList::parse(make(PropertyList::maximumNestingDepth + 1)).has_value());
        EXPECT_EQ(PropertyList::parseDictionary(make(50'000)), Json::object());
    }
}

} // namespace
} // namespace unbulk
