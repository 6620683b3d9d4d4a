#include <map>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Models/SpaceNode.hpp"
#include "tui/ExploreView.hpp"

namespace {

using namespace unbulk;
using namespace unbulk::cli;

SpaceNode file(const std::string& path, std::int64_t bytes,
               std::optional<FileCategory> category = FileCategory::other) {
    SpaceNode node = SpaceNode::make(FileURL(path), false);
    node.allocatedSizeBytes = node.logicalSizeBytes = bytes;
    node.itemCount = 1;
    node.fileCategory = category;
    return node;
}

// A directory as the parent's listing has it: measured whole, not opened.
SpaceNode folder(const std::string& path, std::int64_t bytes, std::int64_t items) {
    SpaceNode node = SpaceNode::make(FileURL(path, true), true);
    node.allocatedSizeBytes = node.logicalSizeBytes = bytes;
    node.itemCount = items;
    return node;
}

SpaceNode opened(const std::string& path, std::vector<SpaceNode> children) {
    SpaceNode node = SpaceNode::make(FileURL(path, true), true);
    for (const SpaceNode& child : children) {
        node.allocatedSizeBytes += child.allocatedSizeBytes;
        node.logicalSizeBytes += child.logicalSizeBytes;
        node.itemCount += child.itemCount;
    }
    node.children = std::move(children);
    return node;
}

// /p holds a (two files), an app bundle, and z.txt; /p/a holds x and y.
struct Disk {
    std::map<std::string, SpaceNode> directories{
        {"/p/a", opened("/p/a", {file("/p/a/x", 300), file("/p/a/y", 100)})},
    };
    std::vector<std::string> measured;

    ExploreView view() {
        SpaceNode bundle = folder("/p/Tool.app", 250, 1);
        bundle.fileCategory = FileCategory::binaries; // a package is a leaf
        return ExploreView(opened("/p", {folder("/p/a", 400, 2), bundle, file("/p/z.txt", 50)}),
                           [this](const std::string& path) {
                               measured.push_back(path);
                               return directories.at(path);
                           });
    }
};

std::vector<std::string> names(const ExploreView& view) {
    std::vector<std::string> out;
    for (const SpaceNode* entry : view.entries())
        out.push_back(entry->name);
    return out;
}

TEST(ExploreViewTest, OpensADirectoryOnceAndComesBackToWhereItWas) {
    Disk disk;
    ExploreView view = disk.view();
    EXPECT_EQ(names(view), (std::vector<std::string>{"a", "Tool.app", "z.txt"}));
    EXPECT_DOUBLE_EQ(view.share(*view.entries()[0]), 400.0 / 700.0);

    // Neither a package nor a file opens.
    view.moveCursor(1);
    EXPECT_FALSE(view.open());
    view.moveCursor(1);
    EXPECT_FALSE(view.open());
    EXPECT_TRUE(disk.measured.empty());

    view.moveToFirst();
    EXPECT_TRUE(view.openNeedsMeasure());
    ASSERT_TRUE(view.open());
    EXPECT_EQ(view.directory().path, "/p/a");
    EXPECT_EQ(names(view), (std::vector<std::string>{"x", "y"}));
    view.moveCursor(1);
    ASSERT_TRUE(view.up());
    EXPECT_FALSE(view.up());
    EXPECT_EQ(view.highlighted()->name, "a");
    EXPECT_FALSE(view.openNeedsMeasure());
    ASSERT_TRUE(view.open());
    EXPECT_EQ(view.highlighted()->name, "x");
    EXPECT_EQ(disk.measured, std::vector<std::string>{"/p/a"});
}

TEST(ExploreViewTest, SortsBySizeNameOrFilesWithTheCursorOnItsEntry) {
    Disk disk;
    ExploreView view = disk.view();
    view.moveToLast(); // z.txt
    view.cycleSort();
    EXPECT_EQ(view.sort(), ExploreSort::name);
    EXPECT_EQ(names(view), (std::vector<std::string>{"a", "Tool.app", "z.txt"}));
    view.cycleSort();
    EXPECT_EQ(names(view), (std::vector<std::string>{"a", "Tool.app", "z.txt"})); // files: 2, then ties by name
    view.cycleSort();
    EXPECT_EQ(view.sort(), ExploreSort::size);
    EXPECT_EQ(view.highlighted()->name, "z.txt");
}

TEST(ExploreViewTest, ARemovedEntryLeavesEveryTotalAbove) {
    Disk disk;
    ExploreView view = disk.view();
    ASSERT_TRUE(view.open());
    view.removeEntry("/p/a/x");
    EXPECT_EQ(names(view), std::vector<std::string>{"y"});
    EXPECT_EQ(view.directory().allocatedSizeBytes, 100);
    EXPECT_EQ(view.directory().itemCount, 1);
    ASSERT_TRUE(view.up());
    EXPECT_EQ(view.directory().allocatedSizeBytes, 400);
    EXPECT_EQ(view.directory().itemCount, 3);
    // a is now smaller than the bundle, and the cursor went with it.
    EXPECT_EQ(names(view), (std::vector<std::string>{"Tool.app", "a", "z.txt"}));
    EXPECT_EQ(view.highlighted()->name, "a");
    EXPECT_EQ(view.highlighted()->allocatedSizeBytes, 100);

    view.removeEntry("/p/a");
    EXPECT_EQ(names(view), (std::vector<std::string>{"Tool.app", "z.txt"}));
    EXPECT_EQ(view.directory().allocatedSizeBytes, 300);
}

TEST(ExploreViewTest, MeasuringAgainFollowsTheDiskAndForgetsWhatLayBelow) {
    Disk disk;
    disk.directories["/p"] = opened("/p", {folder("/p/a", 1000, 5), file("/p/z.txt", 50)});
    ExploreView view = disk.view();
    ASSERT_TRUE(view.open());
    disk.directories["/p/a"] = opened("/p/a", {file("/p/a/x", 300), file("/p/a/w", 900)});
    view.remeasure();
    EXPECT_EQ(names(view), (std::vector<std::string>{"w", "x"}));
    ASSERT_TRUE(view.up());
    EXPECT_EQ(view.directory().allocatedSizeBytes, 1500); // 700 and the 800 that came
    EXPECT_EQ(view.highlighted()->allocatedSizeBytes, 1200);

    view.remeasure();
    EXPECT_EQ(names(view), (std::vector<std::string>{"a", "z.txt"}));
    EXPECT_TRUE(view.openNeedsMeasure()); // what was kept of a is gone
    EXPECT_EQ(disk.measured, (std::vector<std::string>{"/p/a", "/p/a", "/p"}));
}

} // namespace
