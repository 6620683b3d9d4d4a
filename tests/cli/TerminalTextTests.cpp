#include <cmath>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "tui/TerminalText.hpp"

namespace {

using namespace unbulk::cli::terminalText;

TEST(TerminalTextTest, WidthCountsCellsOfWholeCharacters) {
    const std::vector<std::pair<std::string, int>> cases{
        {"node_modules", 12},
        {"\u65E5\u672C\u8A9E", 6},                         // wide East Asian characters
        {"e\u0301te\u0301", 3},                            // combining accents take no cell
        {"\U0001F44D", 2},                                 // an emoji
        {"\U0001F468\u200D\U0001F469\u200D\U0001F467", 2}, // a family: one character
        {"\U0001F1EB\U0001F1F7", 2},                       // a flag
        {"", 0},
    };
    for (const auto& [text, width] : cases)
        EXPECT_EQ(displayWidth(text), width) << text;
}

TEST(TerminalTextTest, TruncationKeepsWholeCharactersAndFitsTheWidth) {
    const std::vector<std::tuple<std::string, int, std::string, std::string>> cases{
        // text, width, cut at the end, cut at the start
        {"node_modules", 12, "node_modules", "node_modules"},
        {"node_modules", 6, "node_\u2026", "\u2026dules"},
        {"\u65E5\u672C\u8A9E\u306E\u30D5", 7, "\u65E5\u672C\u8A9E\u2026", "\u2026\u8A9E\u306E\u30D5"},
        {"a\u65E5\u672C", 3, "a\u2026", "\u2026\u672C"}, // a wide character never straddles the edge
        {"e\u0301e\u0301e\u0301x", 3, "e\u0301e\u0301\u2026", "\u2026e\u0301x"},
        {"abc", 0, "", ""},
    };
    for (const auto& [text, width, end, start] : cases) {
        EXPECT_EQ(truncated(text, width), end) << text << " in " << width;
        EXPECT_EQ(truncatedAtStart(text, width), start) << text << " in " << width;
        EXPECT_EQ(displayWidth(fitted(text, width)), width) << text << " in " << width;
        EXPECT_EQ(displayWidth(fittedRight(text, width)), width) << text << " in " << width;
    }
}

TEST(TerminalTextTest, NothingInANameCanDriveTheTerminal) {
    EXPECT_EQ(printable("a\nb\x1b[31mc\x7f"), "a\uFFFDb\uFFFD[31mc\uFFFD");
    EXPECT_EQ(printable("caf\xC3 \xFF"), "caf\uFFFD \uFFFD"); // bytes that are not UTF-8
    EXPECT_EQ(printable("\u65E5\u672C e\u0301"), "\u65E5\u672C e\u0301");
}

TEST(TerminalTextTest, WrappingBreaksAtBlanksAndCutsOverlongWords) {
    EXPECT_EQ(wrapped("Path '/a/b' targets protected user directory", 20),
              (std::vector<std::string>{"Path '/a/b' targets", "protected user", "directory"}));
    EXPECT_EQ(wrapped("abcdefghij kl", 4), (std::vector<std::string>{"abcd", "efgh", "ij", "kl"}));
    EXPECT_EQ(wrapped("\u65E5\u672C\u8A9E", 4), (std::vector<std::string>{"\u65E5\u672C", "\u8A9E"}));
}

TEST(TerminalTextTest, ShareBarsCountsAndHomePaths) {
    EXPECT_EQ(shareBar(0.5, 10), "#####     ");
    EXPECT_EQ(shareBar(1.7, 4), "####");
    EXPECT_EQ(shareBar(std::nan(""), 3), "   ");
    EXPECT_EQ(grouped(0), "0");
    EXPECT_EQ(grouped(1234567), "1,234,567");
    EXPECT_EQ(grouped(-1000), "-1,000");
    EXPECT_EQ(homeRelative("/Users/me/Library/Caches", "/Users/me"), "~/Library/Caches");
    EXPECT_EQ(homeRelative("/Users/meg/x", "/Users/me"), "/Users/meg/x");
}

} // namespace
