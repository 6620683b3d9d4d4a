#include <gtest/gtest.h>

#include "Support/Unicode.hpp"

namespace unbulk {
namespace {

using namespace std::string_literals;

TEST(UnicodeTest, GraphemeClustersAreUserPerceivedCharacters) {
    const std::string family = "\U0001F468\u200D\U0001F469\u200D\U0001F467"; // man ZWJ woman ZWJ girl
    // Stray bytes stand alone, and a mark behind one has no base to join.
    const std::vector<std::pair<std::string, std::vector<std::string>>> cases = {
        {"", {}}, {"e\u0301x", {"e\u0301", "x"}}, {family + "!", {family, "!"}}, {"\r\n\n", {"\r\n", "\n"}},
        {"e\xff\u0301", {"e", "\xff", "\u0301"}}, {"x\xe2\x82\0"s, {"x", "\xe2", "\x82", "\0"s}}};
    for (const auto& [text, clusters] : cases) EXPECT_EQ(unicode::graphemeClusters(text), clusters) << text;
}

TEST(UnicodeTest, NfcComposesCanonicalEquivalentsAndLeavesInvalidTextAlone) {
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"cafe\u0301", "caf\u00e9"},  {"\u212B", "\u00C5"},         // ANGSTROM SIGN is a singleton
        {"a\u0323\u0302", "\u1EAD"}, {"a\u0302\u0323", "\u1EAD"}, // marks in either order
        {"\u1100\u1161\u11A8", "\uAC01"}, {"e\u0301\xff", "e\u0301\xff"}}; // jamo to syllable; invalid kept
    for (const auto& [text, expected] : cases) EXPECT_EQ(unicode::nfc(text), expected) << text;
    EXPECT_TRUE(unicode::canonicallyEquivalent("\u00e9", "e\u0301"));
    EXPECT_FALSE(unicode::canonicallyEquivalent("\xff", "\xfe"));
}

// Every place that compares names or paths without regard to case lowers them
// here, so a bundle at "/ÄPPS" and one at "/äpps" are one directory to them.
TEST(UnicodeTest, LowercasedLowersEveryScalarAndKeepsStrayBytes) {
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"\u00C9COLE/Stra\u00DFe.TXT", "\u00E9cole/stra\u00DFe.txt"},
        {"\u212A", "k"}, {"A\xff" "B\xc3", "a\xff" "b\xc3"}}; // KELVIN SIGN; stray bytes kept
    for (const auto& [text, expected] : cases) EXPECT_EQ(unicode::lowercased(text), expected) << text;
}

TEST(UnicodeTest, CapitalizedTitleCasesTheFirstScalarOfEachWord) {
    const std::vector<std::pair<std::string, std::string>> cases = {
        {"MICROSOFT office\tsuite", "Microsoft Office\tSuite"}, {"\u00E9lan vital", "\u00C9lan Vital"}, {"", ""},
        {"\u01C6ungla", "\u01C5ungla"}, // dz with caron takes its title-case form, not upper case
        {"a-b c.d", "A-b C.d"}};        // only whitespace and line breaks part words
    for (const auto& [text, expected] : cases) EXPECT_EQ(unicode::capitalized(text), expected) << text;
}

} // namespace
} // namespace unbulk
