#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Support/Unicode.hpp"

namespace unbulk {
namespace {

using namespace std::string_literals;

const std::string family = "\U0001F468\u200D\U0001F469\u200D\U0001F467"; // man ZWJ woman ZWJ girl
const std::string franceFlag = "\U0001F1EB\U0001F1F7";
const std::string germanFlag = "\U0001F1E9\U0001F1EA";

TEST(UnicodeTest, GraphemeClustersAreUserPerceivedCharacters) {
    struct Case {
        std::string text;
        std::vector<std::string> clusters;
    };
    const std::vector<Case> cases = {
        {"", {}},
        {"abc", {"a", "b", "c"}},
        {"e\u0301x", {"e\u0301", "x"}},
        {"a\u0302\u0323", {"a\u0302\u0323"}},
        {family + "!", {family, "!"}},
        {franceFlag + germanFlag, {franceFlag, germanFlag}},
        {"\r\n\n", {"\r\n", "\n"}},
        {"\u1100\u1161\u11A8\uAC00", {"\u1100\u1161\u11A8", "\uAC00"}},
        // Stray bytes stand alone, and a mark behind one has no base to join.
        {"a\xff" "b", {"a", "\xff", "b"}},
        {"e\xff\u0301", {"e", "\xff", "\u0301"}},
        {"x\xe2\x82", {"x", "\xe2", "\x82"}},
        {"a\0b"s, {"a", "\0"s, "b"}},
    };
    for (const auto& c : cases) {
        auto clusters = unicode::graphemeClusters(c.text);
        EXPECT_EQ(clusters, c.clusters) << c.text;
        std::string joined;
        for (const auto& cluster : clusters) joined += cluster;
        EXPECT_EQ(joined, c.text);
    }
}

TEST(UnicodeTest, NfcComposesAndLeavesInvalidTextAlone) {
    struct Case {
        std::string text;
        std::string expected;
    };
    const std::vector<Case> cases = {
        {"", ""},
        {"plain ascii", "plain ascii"},
        {"cafe\u0301", "caf\u00e9"},
        {"caf\u00e9", "caf\u00e9"},
        {"\u212B", "\u00C5"},             // ANGSTROM SIGN is a singleton
        {"a\u0323\u0302", "\u1EAD"},      // marks in either order
        {"a\u0302\u0323", "\u1EAD"},
        {"\u1100\u1161\u11A8", "\uAC01"}, // jamo to syllable
        {"\uFB01", "\uFB01"},             // compatibility forms stay
        {"a\0e\u0301"s, "a\0\u00e9"s},
        {"e\u0301\xff", "e\u0301\xff"},
    };
    for (const auto& c : cases) EXPECT_EQ(unicode::nfc(c.text), c.expected) << c.text;
}

TEST(UnicodeTest, CanonicalEquivalence) {
    EXPECT_TRUE(unicode::canonicallyEquivalent("\u00e9", "e\u0301"));
    EXPECT_TRUE(unicode::canonicallyEquivalent("\u00C5", "\u212B"));
    EXPECT_TRUE(unicode::canonicallyEquivalent("\uAC00", "\u1100\u1161"));
    EXPECT_FALSE(unicode::canonicallyEquivalent("\u00e9", "e"));
    EXPECT_FALSE(unicode::canonicallyEquivalent("e", "E"));
    EXPECT_FALSE(unicode::canonicallyEquivalent("\uFB01", "fi"));
    EXPECT_FALSE(unicode::canonicallyEquivalent("\xff", "\xfe"));
}

TEST(UnicodeTest, IsAscii) {
    EXPECT_TRUE(unicode::isAscii(""));
    EXPECT_TRUE(unicode::isAscii("a/b\x7f"));
    EXPECT_FALSE(unicode::isAscii("caf\u00e9"));
    EXPECT_FALSE(unicode::isAscii("\x80"));
}

} // namespace
} // namespace unbulk
