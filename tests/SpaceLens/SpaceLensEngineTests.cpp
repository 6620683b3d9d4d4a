#include <map>
#include <mutex>

#include <gtest/gtest.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <tbb/task_arena.h>

#include "SpaceLens/SpaceLensEngine.hpp"
#include "Support/Paths.hpp"
#include "support/FaultyFileSystem.hpp"
#include "support/Files.hpp"
#include "support/TempHome.hpp"

namespace unbulk {
namespace {

// Knows no types: the categorizer's last step answers "other".
struct NoFileTypes final : FileTypes {
    std::optional<TypeConformance> conformanceForExtension(const std::string&) const override { return std::nullopt; }
};

struct SpaceLensEngineTest : ::testing::Test {
    SpaceNode scan(const std::string& relative, int depth, std::shared_ptr<FileSystem> fs = makeDefaultFileSystem(),
                   const ItemProgress& progress = {}) {
        return SpaceLensEngine(std::move(fs), std::make_shared<NoFileTypes>())
            .scanDirectory(FileURL(home.at(relative)), depth, {}, progress);
    }
    static std::map<std::string, const SpaceNode*> byName(const SpaceNode& node) {
        std::map<std::string, const SpaceNode*> out;
        for (const auto& child : node.children.value()) out[child.name] = &child;
        return out;
    }
    testing::TempHome home;
};

TEST_F(SpaceLensEngineTest, OpensToTheDepthLimitAndMeasuresEverythingBelowIt) {
    home.writeFile("t/big/deep/a.bin", 20000);
    home.writeFile("t/big/b.bin", 10000);
    home.writeFile("t/small.txt", 100);
    const SpaceNode root = scan("t", 1);
    ASSERT_EQ(root.children.value().size(), 2u);
    const SpaceNode& big = (*root.children)[0]; // largest first
    EXPECT_EQ(big.name, "big");
    EXPECT_FALSE(big.children || big.fileCategory); // cut off at the limit, and so not classified
    // items, allocated, logical
    EXPECT_EQ(std::tuple(big.itemCount, big.allocatedSizeBytes, big.logicalSizeBytes),
              std::tuple(2L, testing::diskUsage(home.at("t/big")).allocated, 30000L));
    EXPECT_EQ((*root.children)[1].fileCategory, FileCategory::documents);
    EXPECT_EQ(std::pair(root.allocatedSizeBytes, root.itemCount),
              std::pair(testing::diskUsage(home.at("t")).allocated, 3L));
    EXPECT_FALSE(root.fileCategory);
    // A depth below one gives the root alone, measured whole: SpaceLensCliTest asks for -1.
}

TEST_F(SpaceLensEngineTest, HiddenEntriesAtOpenedLevelsCountForNothing) {
    home.writeFile("t/.hidden.bin", 7000);
    home.writeFile("t/.git/objects/x", 7000);
    home.writeFile("t/cut/.skipped", 5000);         // directly in a listed directory
    home.writeFile("t/cut/sub/.deep-hidden", 3000); // inside the recursive measure
    const SpaceNode root = scan("t", 1);
    ASSERT_EQ(root.children->size(), 1u);
    EXPECT_EQ(root.logicalSizeBytes, 3000);
}

TEST_F(SpaceLensEngineTest, PackagesBelowTheRootAreLeaves) {
    home.writeFile("t/Tool.app/Contents/MacOS/tool", 9000);
    home.writeFile("t/Tool.app/Contents/Info.plist", 1000);
    home.writeFile("t/Tool.app/Contents/Frameworks/Inner.framework/lib", 4000);
    const SpaceNode root = scan("t", 3);
    const SpaceNode& app = root.children->at(0);
    EXPECT_FALSE(app.children);
    EXPECT_EQ(app.fileCategory, FileCategory::binaries);
    // A package inside the package is skipped whole.
    EXPECT_EQ(std::pair(app.itemCount, app.logicalSizeBytes), std::pair(1L, 10000L));
}

TEST_F(SpaceLensEngineTest, LinksOpenWhereTheyLeadAtOpenedLevelsAndDanglingOnesAreLeftOut) {
    home.writeFile("elsewhere/sub/huge.bin", 50000);
    home.makeSymlink("elsewhere/sub/inner-link", home.at("elsewhere")); // below the limit: not followed
    home.makeSymlink("t/link", home.at("elsewhere"));
    home.makeSymlink("t/dangling", home.at("nowhere"));
    home.makeSymlink("t/back", home.at("t")); // leads into its own tree: not opened again
    home.writeFile("t/file.bin", 10);
    const SpaceNode root = scan("t", 2);
    const auto children = byName(root);
    EXPECT_FALSE(children.contains("dangling"));
    const SpaceNode& link = *children.at("link");
    EXPECT_TRUE(link.isDirectory);
    ASSERT_TRUE(link.children);
    EXPECT_EQ(std::tuple(link.logicalSizeBytes, link.itemCount), std::tuple(50000L, 2L)); // the file and the inner link
    EXPECT_FALSE(children.at("back")->children);
}

// Every node is dated by its own status: an opened or cut-off directory by
// the directory itself as it was before the scan read it (reading a
// directory may move its access date), a link by the link, never by what it
// leads to.
TEST_F(SpaceLensEngineTest, NodesAreDatedByTheirOwnStatus) {
    home.writeFile("t/opened/cut/file", 10);
    home.writeFile("elsewhere/file", 10);
    home.makeSymlink("t/link", home.at("elsewhere"));
    const auto setDates = [&](const std::string& relative, std::int64_t accessed, std::int64_t modified) {
        const struct timespec times[2] = {{static_cast<time_t>(accessed), 0}, {static_cast<time_t>(modified), 0}};
        ASSERT_EQ(::utimensat(AT_FDCWD, home.at(relative).c_str(), times, AT_SYMLINK_NOFOLLOW), 0) << relative;
    };
    setDates("t/opened/cut", 1'100'000'000, 1'000'000'000);
    setDates("t/opened", 1'300'000'000, 1'200'000'000);
    setDates("t/link", 1'500'000'000, 1'400'000'000);
    setDates("elsewhere", 1'700'000'000, 1'600'000'000);
    const SpaceNode root = scan("t", 2);
    using Dates = std::pair<std::int64_t, std::int64_t>; // seconds since 1970: accessed, modified
    const auto dated = [](const SpaceNode& node) {
        const auto seconds = [](Date date) {
            return std::chrono::duration_cast<std::chrono::seconds>(date.time_since_epoch()).count();
        };
        return Dates(seconds(node.lastAccessedDate.value()), seconds(node.lastModifiedDate.value()));
    };
    const auto children = byName(root);
    const SpaceNode& opened = *children.at("opened");
    EXPECT_EQ(dated(opened), Dates(1'300'000'000, 1'200'000'000));
    ASSERT_EQ(opened.children.value().size(), 1u);
    EXPECT_EQ(dated(opened.children->front()), Dates(1'100'000'000, 1'000'000'000));
    EXPECT_EQ(dated(*children.at("link")), Dates(1'500'000'000, 1'400'000'000));
}

TEST_F(SpaceLensEngineTest, UnreadableDirectoriesAreEmptyAndACancelledScanFails) {
    home.writeFile("t/locked/secret", 4000);
    home.writeFile("t/open/file", 100);
    auto faulty = std::make_shared<testing::FaultyFileSystem>();
    faulty->failOn(testing::FileSystemCall::openDirectory, home.at("t/locked"), EACCES);
    const SpaceNode root = scan("t", 2, faulty);
    const SpaceNode& locked = *byName(root).at("locked");
    EXPECT_EQ(locked.children, std::vector<SpaceNode>{});
    EXPECT_EQ(locked.itemCount, 0);
    EXPECT_EQ(root.logicalSizeBytes, 100);

    StopSource source;
    source.requestStop();
    EXPECT_THROW(SpaceLensEngine(makeDefaultFileSystem(), std::make_shared<NoFileTypes>()).scanDirectory(FileURL(home.at("t")), 2, source.token()), CancellationError);
}

// Text output keeps the root's ten largest children and nothing below them,
// yet every size is measured in full.
TEST_F(SpaceLensEngineTest, ATreeKeepsWhatItsRetentionAsksForAndMeasuresTheRest) {
    for (int i = 1; i <= 12; ++i)
        home.writeFile("t/f" + std::to_string(i), static_cast<std::uintmax_t>(i) * 5000);
    home.writeFile("t/f99/inner/a", 90000);
    const SpaceTree tree = SpaceLensEngine(makeDefaultFileSystem(), std::make_shared<NoFileTypes>())
                               .scanTree(FileURL(home.at("t")), 3, {}, {}, {.depth = 1, .children = 10});
    const SpaceTree::Run* run = tree.children(tree.root());
    ASSERT_NE(run, nullptr);
    std::vector<std::string> names;
    for (const auto& child : run->nodes) names.emplace_back(run->name(child));
    EXPECT_EQ(names, (std::vector<std::string>{"f99", "f12", "f11", "f10", "f9", "f8", "f7", "f6", "f5", "f4"}));
    EXPECT_EQ(tree.children(run->nodes[0]), nullptr); // opened, but its children are not kept
    EXPECT_EQ(run->nodes[0].itemCount, 1);
    EXPECT_EQ(std::pair(tree.root().logicalSizeBytes, tree.root().itemCount), std::pair(90000L + 78 * 5000, 13L));
}

// Among children of one size, the kept ones are the first finished, as in
// the whole tree. On one thread, progress hears of them in the order they
// finish.
TEST_F(SpaceLensEngineTest, AmongEqualChildrenTheFirstFinishedAreKept) {
    std::vector<std::string> order;
    for (int i = 0; i < 40; ++i) home.writeFile("t/f" + std::to_string(i), 100);
    tbb::task_arena oneThread(1);
    const SpaceTree tree = oneThread.execute([&] {
        return SpaceLensEngine(makeDefaultFileSystem(), std::make_shared<NoFileTypes>()).scanTree(
            FileURL(home.at("t")), 1, {},
            [&](const std::string& path, std::int64_t) { order.push_back(paths::lastComponent(path)); },
            {.depth = 1, .children = 5});
    });
    const SpaceTree::Run* run = tree.children(tree.root());
    ASSERT_NE(run, nullptr);
    ASSERT_EQ(run->nodes.size(), 5u);
    for (std::size_t i = 0; i < 5; ++i) EXPECT_EQ(run->name(run->nodes[i]), order[i]);
}

TEST(SpaceLensFilterTest, ResultsAreNeverOpenedDirectoriesAndPassEveryGivenTest) {
    const Date now = std::chrono::system_clock::now();
    // Ages in days, the same for access and modification unless given apart; none means no dates at all.
    auto leaf = [&](std::string name, std::int64_t size, std::optional<FileCategory> category, std::optional<int> age,
                    bool directory = false, std::optional<int> modifiedAge = {}) {
        SpaceNode node = SpaceNode::make(FileURL("/r/" + name), directory);
        node.allocatedSizeBytes = size;
        node.fileCategory = category;
        if (age) node.lastAccessedDate = now - std::chrono::hours(24 * *age);
        if (age) node.lastModifiedDate = now - std::chrono::hours(24 * modifiedAge.value_or(*age));
        return node;
    };
    SpaceNode root = leaf("", 900, std::nullopt, 400, true), sub = leaf("sub", 600, std::nullopt, 400, true);
    sub.children = std::vector<SpaceNode>{leaf("old.zip", 500, FileCategory::archives, 100),
                                          leaf("fresh.zip", 50, FileCategory::archives, 1, false, 300)};
    root.children = std::vector<SpaceNode>{sub, leaf("cut", 250, std::nullopt, 200, true), // cut off: a result
                                           leaf("nodate.mov", 800, FileCategory::media, std::nullopt)};

    using Names = std::vector<std::string>;
    auto filtered = [&](std::optional<std::int64_t> minSize, std::optional<double> minAge,
                        std::optional<FileCategory> category) {
        Names out;
        for (const auto& node : SpaceLensEngine::filter(root, minSize, minAge, category, now)) out.push_back(node.name);
        return out;
    };
    EXPECT_EQ(filtered(std::nullopt, std::nullopt, std::nullopt), (Names{"nodate.mov", "old.zip", "cut", "fresh.zip"}));
    // Aged by the last access, even where the modification is older; no date fails.
    EXPECT_EQ(filtered(std::nullopt, 30.0 * 86400, std::nullopt), (Names{"old.zip", "cut"}));
    EXPECT_EQ(filtered(std::nullopt, std::nullopt, FileCategory::archives), (Names{"old.zip", "fresh.zip"}));
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
    const SpaceNode root = scan("t", 1, makeDefaultFileSystem(), [&](const std::string& path, std::int64_t bytes) {
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
