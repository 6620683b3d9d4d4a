// The screens as the layouts compose them, read as text: what a name on disk
// may hold never reaches the terminal as anything but printable cells.

#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Models/ScanItem.hpp"
#include "Models/SpaceNode.hpp"
#include "tui/ExploreLayout.hpp"
#include "tui/ExploreView.hpp"
#include "tui/ReviewLayout.hpp"
#include "tui/ReviewList.hpp"
#include "tui/TerminalText.hpp"

namespace {

using namespace unbulk;
using namespace unbulk::cli;

// A name that would colour the screen, ring the bell and move the cursor,
// with a byte that is not UTF-8, in a folder of wide characters.
const std::string hostileName = "evil\x1b[31m\a\r\xff";
const std::string wideFolder =
    "/h/Library/Caches/\u65E5\u672C\u8A9E\u30A2\u30D7\u30EA\u306E\u30AD\u30E3\u30C3\u30B7\u30E5";

void expectOnlyPrintableCells(const Frame& frame) {
    const std::string text = frame.text();
    for (const char c : text) {
        EXPECT_TRUE(c == '\n' || static_cast<unsigned char>(c) >= 0x20) << "byte " << int(c) << " in\n" << text;
    }
    std::size_t start = 0;
    for (std::size_t end; (end = text.find('\n', start)) != std::string::npos; start = end + 1) {
        EXPECT_LE(terminalText::displayWidth(text.substr(start, end - start)), frame.width) << text;
    }
}

TEST(LayoutTest, ReviewRowsShowAnyNameInTheirWidth) {
    ReviewList list({DiscoveredItem::make({.url = FileURL(wideFolder + "/" + hostileName, true),
                                           .category = StorageCategory::systemCaches,
                                           .allocatedSizeBytes = 1000,
                                           .itemDescription = hostileName + " Cache"})},
                    std::chrono::system_clock::now());
    for (const int width : {50, 80, 120}) {
        Viewport viewport;
        const Frame frame = reviewLayout::list(list, viewport, "/h", {}, width, 10);
        expectOnlyPrintableCells(frame);
        // The end of the path is what shows.
        EXPECT_NE(frame.text().find("evil\uFFFD[31m\uFFFD\uFFFD\uFFFD"), std::string::npos) << frame.text();
    }
}

TEST(LayoutTest, ExploreRowsAndDetailsShowAnyNameInTheirWidth) {
    SpaceNode root = SpaceNode::make(FileURL("/h/p", true), true);
    SpaceNode child = SpaceNode::make(FileURL("/h/p/" + hostileName), false);
    child.allocatedSizeBytes = 10;
    child.itemCount = 1;
    child.fileCategory = FileCategory::other;
    root.children = std::vector<SpaceNode>{child};
    const ExploreView view(root, [](const std::string&) -> SpaceNode { throw std::logic_error("nothing to open"); });
    for (const int width : {40, 100}) {
        Viewport viewport;
        Frame frame = exploreLayout::directory(view, viewport, "/h", hostileName, Style::error, "", width, 12);
        expectOnlyPrintableCells(frame);
        EXPECT_NE(frame.text().find("evil\uFFFD[31m"), std::string::npos) << frame.text();
        frame.box("Details", exploreLayout::details(child, std::chrono::system_clock::now()));
        expectOnlyPrintableCells(frame);
    }
}

} // namespace
