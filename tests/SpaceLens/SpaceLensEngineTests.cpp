#include <filesystem>
#include <map>
#include <mutex>

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "SpaceLens/SpaceLensEngine.hpp"
#include "support/FaultyFileSystem.hpp"
#include "support/TempHome.hpp"

namespace unbulk {
namespace {

using testing::TempHome;

std::int64_t allocatedOf(const std::string& path) {
    struct stat st;
    return ::lstat(path.c_str(), &st) == 0 ? static_cast<std::int64_t>(st.st_blocks) * 512 : 0;
}

// Knows no types: the categorizer's last step answers "other".
struct NoFileTypes final : FileTypes {
    std::optional<TypeConformance> conformanceForExtension(const std::string&) const override { return std::nullopt; }
};

struct SpaceLensEngineTest : ::testing::Test {
    SpaceNode scan(const std::string& relative, int depth, std::shared_ptr<FileSystem> fs = makeDefaultFileSystem()) {
        return SpaceLensEngine(std::move(fs), std::make_shared<NoFileTypes>())
            .scanDirectory(FileURL(home.at(relative)), depth);
    }
    static std::map<std::string, const SpaceNode*> byName(const SpaceNode& node) {
        std::map<std::string, const SpaceNode*> out;
        for (const auto& child : node.children.value())
            out[child.name] = &child;
        return out;
    }
    TempHome home;
};

TEST_F(SpaceLensEngineTest, OpensToTheDepthLimitAndMeasuresEverythingBelowIt) {
    const std::string a = home.writeFile("t/big/deep/a.bin", 20000);
    const std::string b = home.writeFile("t/big/b.bin", 10000);
    const std::string c = home.writeFile("t/small.txt", 100);
    const SpaceNode root = scan("t", 1);
    ASSERT_TRUE(root.children);
    ASSERT_EQ(root.children->size(), 2u);
    const SpaceNode& big = (*root.children)[0]; // largest first
    EXPECT_EQ(big.name, "big");
    EXPECT_FALSE(big.children);     // cut off at the limit
    EXPECT_FALSE(big.fileCategory); // and so not classified
    EXPECT_EQ(big.itemCount, 2);
    EXPECT_EQ(big.allocatedSizeBytes, allocatedOf(a) + allocatedOf(b));
    EXPECT_EQ(big.logicalSizeBytes, 30000);
    EXPECT_EQ((*root.children)[1].fileCategory, FileCategory::documents);
    EXPECT_EQ(root.allocatedSizeBytes, allocatedOf(a) + allocatedOf(b) + allocatedOf(c));
    EXPECT_EQ(root.itemCount, 3);
    EXPECT_FALSE(root.fileCategory);
}

TEST_F(SpaceLensEngineTest, DepthZeroAndBelowGiveTheRootAloneWithEverythingMeasured) {
    home.writeFile("t/x/y/z.bin", 5000);
    for (int depth : {0, -3}) {
        const SpaceNode root = scan("t", depth);
        EXPECT_FALSE(root.children) << depth;
        EXPECT_EQ(root.logicalSizeBytes, 5000) << depth;
        EXPECT_EQ(root.itemCount, 1) << depth;
    }
}

TEST_F(SpaceLensEngineTest, HiddenEntriesOfOpenedDirectoriesCountForNothingButDeeperOnesDo) {
    home.writeFile("t/.hidden.bin", 7000);
    home.writeFile("t/.git/objects/x", 7000);
    home.writeFile("t/cut/.skipped", 5000);         // directly in a listed directory
    home.writeFile("t/cut/sub/.deep-hidden", 3000); // inside the recursive measure
    const SpaceNode root = scan("t", 1);
    ASSERT_EQ(root.children->size(), 1u);
    EXPECT_EQ(root.logicalSizeBytes, 3000);
}

TEST_F(SpaceLensEngineTest, AnEmptyDirectoryHasNoSizeAndOneItem) {
    home.makeDirectory("t/empty");
    const SpaceNode root = scan("t/empty", 2);
    EXPECT_EQ(root.children, std::vector<SpaceNode>{});
    EXPECT_EQ(std::tuple(root.allocatedSizeBytes, root.logicalSizeBytes, root.itemCount), std::tuple(0L, 0L, 1L));
}

TEST_F(SpaceLensEngineTest, PackagesBelowTheRootAreLeavesButTheRootIsOpenedEvenAsOne) {
    home.writeFile("t/Tool.app/Contents/MacOS/tool", 9000);
    home.writeFile("t/Tool.app/Contents/Info.plist", 1000);
    home.writeFile("t/Tool.app/Contents/Frameworks/Inner.framework/lib", 4000);
    const SpaceNode root = scan("t", 3);
    const SpaceNode& app = root.children->at(0);
    EXPECT_FALSE(app.children);
    EXPECT_EQ(app.fileCategory, FileCategory::binaries);
    EXPECT_EQ(app.itemCount, 1);
    EXPECT_EQ(app.logicalSizeBytes, 10000); // a package inside the package is skipped whole

    const SpaceNode opened = scan("t/Tool.app", 1);
    ASSERT_TRUE(opened.children);
    EXPECT_EQ(opened.children->at(0).name, "Contents");
}

TEST_F(SpaceLensEngineTest, LinksBelowTheRootAreLeavesOfTheirOwnSize) {
    home.writeFile("elsewhere/huge.bin", 50000);
    home.makeSymlink("t/link", home.at("elsewhere"));
    home.writeFile("t/file.bin", 10);
    const SpaceNode root = scan("t", 3);
    const auto children = byName(root);
    ASSERT_TRUE(children.contains("link"));
    EXPECT_FALSE(children.at("link")->children);
    EXPECT_LT(root.logicalSizeBytes, 50000);
    EXPECT_EQ(root.itemCount, 2);
}

TEST_F(SpaceLensEngineTest, UnreadableDirectoriesAreEmptyAndAMissingRootFails) {
    home.writeFile("t/locked/secret", 4000);
    home.writeFile("t/open/file", 100);
    auto faulty = std::make_shared<testing::FaultyFileSystem>();
    faulty->failOn(testing::FileSystemCall::contentsOfDirectory, home.at("t/locked"), EACCES);
    const SpaceNode root = scan("t", 2, faulty);
    const auto children = byName(root);
    EXPECT_EQ(children.at("locked")->children, std::vector<SpaceNode>{});
    EXPECT_EQ(children.at("locked")->itemCount, 0);
    EXPECT_EQ(root.logicalSizeBytes, 100);

    try {
        scan("nowhere", 2);
        ADD_FAILURE() << "a missing root was analysed";
    } catch (const NoSuchFileError& error) {
        EXPECT_STREQ(error.what(), ("The file \u201Cnowhere\u201D couldn\u2019t be opened because there is no "
                                    "such file. (" +
                                    home.at("nowhere") + ")")
                                       .c_str());
    }
}

TEST_F(SpaceLensEngineTest, ACancelledScanFails) {
    home.writeFile("t/a/x", 1);
    StopSource source;
    source.requestStop();
    EXPECT_THROW(SpaceLensEngine().scanDirectory(FileURL(home.at("t")), 2, source.token()), CancellationError);
}

TEST(SpaceLensFilterTest, ResultsAreNeverOpenedDirectoriesAndPassEveryGivenTest) {
    const Date now = std::chrono::system_clock::now();
    auto leaf = [&](std::string name, std::int64_t size, std::optional<FileCategory> category,
                    std::optional<Date> accessed, std::optional<Date> modified, bool directory = false) {
        SpaceNode node = SpaceNode::make(FileURL("/r/" + name), directory);
        node.allocatedSizeBytes = size;
        node.fileCategory = category;
        node.lastAccessedDate = accessed;
        node.lastModifiedDate = modified;
        return node;
    };
    const auto days = [](int n) { return std::chrono::hours(24 * n); };
    SpaceNode root = leaf("", 900, std::nullopt, now - days(400), now - days(400), true);
    SpaceNode sub = leaf("sub", 600, std::nullopt, now - days(400), now - days(400), true);
    sub.children =
        std::vector<SpaceNode>{leaf("old.zip", 500, FileCategory::archives, now - days(100), now - days(100)),
                               leaf("fresh.zip", 50, FileCategory::archives, now - days(1), now - days(300))};
    root.children = std::vector<SpaceNode>{
        sub, leaf("cut", 250, std::nullopt, now - days(200), now - days(200), true), // cut off: a result
        leaf("nodate.mov", 800, FileCategory::media, std::nullopt, std::nullopt)};

    auto names = [](const std::vector<SpaceNode>& nodes) {
        std::vector<std::string> out;
        for (const auto& node : nodes)
            out.push_back(node.name);
        return out;
    };
    using Names = std::vector<std::string>;
    EXPECT_EQ(names(SpaceLensEngine::filter(root, std::nullopt, std::nullopt, std::nullopt)),
              (Names{"nodate.mov", "old.zip", "cut", "fresh.zip"}));
    EXPECT_EQ(names(SpaceLensEngine::filter(root, 100, std::nullopt, std::nullopt)),
              (Names{"nodate.mov", "old.zip", "cut"}));
    // Aged by the last access, even where the modification is older; no date fails.
    EXPECT_EQ(names(SpaceLensEngine::filter(root, std::nullopt, 30.0 * 86400, std::nullopt)),
              (Names{"old.zip", "cut"}));
    EXPECT_EQ(names(SpaceLensEngine::filter(root, std::nullopt, std::nullopt, FileCategory::archives)),
              (Names{"old.zip", "fresh.zip"}));
}

// Progress hears of every leaf of the opened levels and every entry measured
// below them, once each, from whichever thread finished it; their bytes add
// up to the root's.
TEST_F(SpaceLensEngineTest, ProgressHearsOfEveryLeafAndMeasuredEntryOnce) {
    home.writeFile("t/big/deep/a.bin", 20000);
    home.writeFile("t/big/b.bin", 10000);
    home.writeFile("t/small.txt", 100);
    home.writeFile("t/Tool.app/Contents/bin", 5000);
    std::mutex mutex;
    std::map<std::string, std::int64_t> heard;
    const SpaceNode root = SpaceLensEngine(makeDefaultFileSystem(), std::make_shared<NoFileTypes>())
                               .scanDirectory(FileURL(home.at("t")), 1, {},
                                              [&](const std::string& path, std::int64_t bytes) {
                                                  std::lock_guard lock(mutex);
                                                  EXPECT_TRUE(heard.emplace(path, bytes).second) << path;
                                              });
    std::int64_t total = 0;
    for (const auto& [path, bytes] : heard) total += bytes;
    EXPECT_EQ(heard.size(), 4u); // small.txt, Tool.app, and big's two entries
    EXPECT_TRUE(heard.count(home.at("t/big/deep")) && heard.count(home.at("t/Tool.app")));
    EXPECT_EQ(total, root.allocatedSizeBytes);
}

} // namespace
} // namespace unbulk
