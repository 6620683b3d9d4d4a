#include <fcntl.h>
#include <unistd.h>

#include <random>

#include <gtest/gtest.h>

#include "SpaceLens/SpaceLensEngine.hpp"
#include "SpaceLens/SpaceTree.hpp"
#include "Support/Json.hpp"
#include "Support/Unicode.hpp"
#include "support/FaultyFileSystem.hpp"
#include "support/TempHome.hpp"

namespace unbulk {
namespace {

// Names a writer must escape or replace, beside plain ones. A name the file
// system refuses (bytes that are not UTF-8, on the Mac) is left out.
const std::vector<std::string> oddNames{
    "plain",       "with space",    "quote\"d",    "back\\slash", "\xC3\xA9migr\xC3\xA9", "tab\tname",
    "del\x7F",     "nel\xC2\x85",   "ls\xE2\x80\xA8", "bad\xFF\xFE", "slash/less", "x.zip",
    "Makefile",    "1.0",           "\xF0\x9F\x93\x81 folder"};

bool touch(const std::string& path, std::size_t size) {
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
    if (fd < 0) return false;
    const std::string bytes(size, 'x');
    const bool written = ::write(fd, bytes.data(), bytes.size()) == static_cast<ssize_t>(bytes.size());
    ::close(fd);
    return written;
}

// A tree of every kind of node, the same for the same seed: nested folders,
// files of many sizes (equal ones among them, so that order among equals is
// tested too), odd names, a package, links that open, dangle or lead back.
void generate(const testing::TempHome& home, const std::string& root, unsigned seed) {
    std::mt19937 random(seed);
    std::vector<std::string> folders{home.makeDirectory(root)};
    for (int i = 0; i < 40; ++i) {
        const std::string& parent = folders[random() % folders.size()];
        // Some folders have odd names too, so that plain names lie below odd ones.
        std::string name = "d" + std::to_string(i);
        if (i % 7 == 5) name = oddNames[random() % oddNames.size()] + std::to_string(i);
        if (name.find('/') != std::string::npos) name = "slash" + std::to_string(i);
        folders.push_back(parent + "/" + name);
        ::mkdir(folders.back().c_str(), 0755);
    }
    const std::size_t sizes[] = {0, 0, 1, 100, 100, 4096, 5000, 70000};
    for (int i = 0; i < 300; ++i) {
        const std::string& folder = folders[random() % folders.size()];
        std::string name = i % 5 == 0 ? oddNames[random() % oddNames.size()] : "f" + std::to_string(i) + ".txt";
        if (name == "slash/less") name = "slash";
        touch(folder + "/" + name + (i % 5 == 0 ? std::to_string(i) : ""), sizes[random() % std::size(sizes)]);
    }
    home.writeFile(root + "/Tool.app/Contents/MacOS/tool", 9000);
    home.writeFile(root + "/.hidden", 300);
    home.makeDirectory(root + "/empty");
    home.makeSymlink(root + "/d3/to-d1", folders[1]);
    home.makeSymlink(root + "/dangling", home.at("nowhere"));
    home.makeSymlink(root + "/d2/back", home.at(root));
}

std::string streamed(const SpaceTree& tree, DateEncoding dates, JsonSharing sharing = {}) {
    std::string text;
    writeJson(
        tree, dates, [&](std::string_view piece) { text += piece; }, sharing);
    return text;
}

// Ways of sharing the writing: the default, which the small trees here do
// not reach; every run of two nodes or more shared, in batches of one or
// two, heavy children written as they go at every size.
const JsonSharing everyWayOfSharing[] = {
    {},
    {.parallelFrom = 2, .batchNodes = 1, .bufferedUpTo = 1},
    {.parallelFrom = 2, .batchNodes = 2, .bufferedUpTo = 3},
    {.parallelFrom = 8, .batchNodes = 5, .bufferedUpTo = 20},
};

struct NoFileTypes final : FileTypes {
    std::optional<TypeConformance> conformanceForExtension(const std::string&) const override { return std::nullopt; }
};

TEST(SpaceTreeTest, StreamedJsonIsTheRecordsOwnEncodingByteForByte) {
    testing::TempHome home;
    auto faulty = std::make_shared<testing::FaultyFileSystem>();
    for (unsigned seed = 1; seed <= 3; ++seed) {
        const std::string root = "tree" + std::to_string(seed);
        generate(home, root, seed);
        // An opened directory that cannot be read has an empty children array.
        faulty->failOn(testing::FileSystemCall::openDirectory, home.at(root + "/d0"), EACCES);
        const SpaceLensEngine engine(faulty, std::make_shared<NoFileTypes>());
        for (const std::int64_t depth : {-1, 0, 1, 2, 3, 50}) {
            const SpaceTree tree = engine.scanTree(FileURL(home.at(root)), depth);
            const SpaceNode record = tree.toSpaceNode();
            for (const DateEncoding dates : {DateEncoding::secondsSinceReferenceDate, DateEncoding::iso8601}) {
                const std::string expected = json::pretty(toJson(record, dates));
                for (std::size_t way = 0; way < std::size(everyWayOfSharing); ++way) {
                    EXPECT_EQ(streamed(tree, dates, everyWayOfSharing[way]), expected)
                        << "seed " << seed << ", depth " << depth << ", sharing " << way;
                }
            }
        }
    }
}

// The root's path is the one asked for, however it is spelled, and the
// root of the file system has no name of its own to add a slash to.
TEST(SpaceTreeTest, RootPathsAreWrittenAsAsked) {
    testing::TempHome home;
    home.writeFile("t/a", 10);
    // Nothing is read below "/", so as not to walk the machine.
    auto unreadableRoot = std::make_shared<testing::FaultyFileSystem>();
    for (const auto call : {testing::FileSystemCall::walk, testing::FileSystemCall::contentsOfDirectory,
                            testing::FileSystemCall::openDirectory})
        unreadableRoot->failBelow(call, "/", EACCES);
    const std::vector<std::pair<std::string, std::shared_ptr<FileSystem>>> roots{
        {home.at("t/../t"), makeDefaultFileSystem()}, {home.at("t") + "//", makeDefaultFileSystem()},
        {"/", unreadableRoot}};
    for (const auto& [path, fileSystem] : roots) {
        const SpaceTree tree = SpaceLensEngine(fileSystem, std::make_shared<NoFileTypes>()).scanTree(FileURL(path), 1);
        EXPECT_EQ(streamed(tree, DateEncoding::secondsSinceReferenceDate), json::pretty(toJson(tree.toSpaceNode())))
            << path;
    }
}

// Never the whole text at once: pieces of a bounded size, each of whole
// characters, which is what a writer that escapes them one by one needs.
TEST(SpaceTreeTest, JsonIsHandedOnInBoundedPiecesOfWholeCharacters) {
    testing::TempHome home;
    for (int i = 0; i < 1500; ++i)
        home.writeFile("t/\xC3\xA9t\xC3\xA9-" + std::to_string(i), static_cast<std::uintmax_t>(i));
    const SpaceTree tree =
        SpaceLensEngine(makeDefaultFileSystem(), std::make_shared<NoFileTypes>()).scanTree(FileURL(home.at("t")), 1);
    for (const JsonSharing& sharing : everyWayOfSharing) {
        std::vector<std::string> pieces;
        writeJson(
            tree, DateEncoding::secondsSinceReferenceDate, [&](std::string_view piece) { pieces.emplace_back(piece); },
            sharing);
        ASSERT_GT(pieces.size(), 4u);
        for (const auto& piece : pieces) {
            EXPECT_LT(piece.size(), 80'000u);
            EXPECT_TRUE(unicode::scalars(piece).has_value());
        }
    }
}

} // namespace
} // namespace unbulk
