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

} // namespace
} // namespace unbulk
