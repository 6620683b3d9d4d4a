// The parallel measure of a tree against its serial definition: the same
// figures on trees with every kind of entry, under every option, and within
// a small descriptor limit whatever the shape of the tree.
#include <filesystem>
#include <random>
#include <string>

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "Platform/InodeSet.hpp"
#include "Platform/TreeMeasure.hpp"
#include "Platform/posix/PosixFileSystem.hpp"
#include "support/DeepTree.hpp"
#include "support/TempHome.hpp"

namespace unbulk {
namespace {

namespace stdfs = std::filesystem;

std::string describe(const TreeMeasure& m) {
    return "files " + std::to_string(m.files.count) + "/" + std::to_string(m.files.logicalBytes) + "/" +
           std::to_string(m.files.allocatedBytes) + " charged " + std::to_string(m.chargedLogicalBytes) + "/" +
           std::to_string(m.chargedAllocatedBytes) + " links " + std::to_string(m.links.count) + " others " +
           std::to_string(m.others.count) + " unexamined " + std::to_string(m.unexaminedEntries) + " unreadable " +
           std::to_string(m.unreadableDirectories);
}

// A tree with something of everything a measure meets: nested directories
// of files of many sizes, hard links inside it and to a file outside it,
// links to files, to directories, dangling and looping, packages, hidden
// entries at the top and deeper, fifos, empty directories and one wide
// directory of many files.
std::string makeMixedTree(const testing::TempHome& home) {
    const std::string root = home.makeDirectory("tree");
    std::mt19937 random(20261125);
    std::uniform_int_distribution<int> size(0, 20'000);
    std::vector<std::string> directories{""};
    for (int i = 0; i < 120; ++i) {
        const std::string& parent = directories[random() % directories.size()];
        const std::string name = (i % 9 == 0 ? ".hidden" : i % 11 == 0 ? "Tool.app" : "dir") + std::to_string(i);
        directories.push_back(parent.empty() ? name : parent + "/" + name);
        home.makeDirectory("tree/" + directories.back());
    }
    std::vector<std::string> files;
    for (int i = 0; i < 900; ++i) {
        const std::string& directory = directories[random() % directories.size()];
        const std::string name = (i % 13 == 0 ? ".f" : "f") + std::to_string(i);
        files.push_back(root + "/" + (directory.empty() ? name : directory + "/" + name));
        home.writeFile(stdfs::relative(files.back(), home.path()).string(), static_cast<std::uintmax_t>(size(random)));
    }
    for (int i = 0; i < 40; ++i) {
        const std::string& directory = directories[random() % directories.size()];
        const std::string at = root + "/" + (directory.empty() ? "" : directory + "/") + "hard" + std::to_string(i);
        stdfs::create_hard_link(files[random() % files.size()], at);
    }
    stdfs::create_hard_link(home.writeFile("outside/shared.bin", 50'000), root + "/shared-with-outside.bin");
    home.makeSymlink("tree/link-to-file", files[3]);
    home.makeSymlink("tree/link-to-directory", root + "/" + directories[5]);
    home.makeSymlink("tree/" + directories[7] + "/dangling", "nowhere");
    home.makeSymlink("tree/" + directories[8] + "/loop", ".");
    for (int i = 0; i < 3; ++i)
        EXPECT_EQ(::mkfifo((root + "/" + directories[10 + i] + "/pipe" + std::to_string(i)).c_str(), 0600), 0);
    for (int i = 0; i < 5; ++i) home.makeDirectory("tree/empty" + std::to_string(i) + "/inner");
    for (int i = 0; i < 3000; ++i) home.writeFile("tree/wide/w" + std::to_string(i), static_cast<std::uintmax_t>(i % 7));
    return root;
}

TEST(ParallelTreeMeasureTest, AnswersExactlyTheSerialMeasureUnderEveryOption) {
    testing::TempHome home;
    const std::string root = makeMixedTree(home);
    PosixFileSystem fs;
    for (WalkStatus status : {WalkStatus::none, WalkStatus::regularFiles, WalkStatus::all}) {
        for (bool packages : {true, false}) {
            for (bool hidden : {false, true}) {
                for (int inodes = 0; inodes < 3; ++inodes) {
                    SCOPED_TRACE(::testing::Message() << "status " << static_cast<int>(status) << " packages "
                                                      << packages << " skip hidden " << hidden << " inodes " << inodes);
                    const auto keeps = inodes == 1 ? InodeSet::Keeps::hardLinkedFiles : InodeSet::Keeps::everyFile;
                    InodeSet parallelSet(keeps), serialSet(keeps);
                    TreeMeasureOptions options{.status = status, .skipHiddenFiles = hidden,
                                               .descendIntoPackages = packages};
                    options.inodes = inodes == 0 ? nullptr : &parallelSet;
                    const TreeMeasure parallel = fs.measureTree(root, options);
                    options.inodes = inodes == 0 ? nullptr : &serialSet;
                    const TreeMeasure serial = measureTreeSerially(fs, root, options);
                    EXPECT_EQ(parallel, serial) << describe(parallel) << "\n" << describe(serial);
                    if (status == WalkStatus::none) continue;
                    EXPECT_GT(parallel.files.count, 3000);
                    if (inodes != 0 && !hidden) {
                        EXPECT_LT(parallel.chargedLogicalBytes, parallel.files.logicalBytes) << "hard links charged once";
                    }
                }
            }
        }
    }
}

// A comb: a deep spine whose every level also holds a few leaves, so that
// many directories wait for their turn at once. Under a limit of 64
// descriptors nothing may fail to open.
TEST(ParallelTreeMeasureTest, AWideAndDeepTreeStaysWithinASmallDescriptorLimit) {
    testing::TempHome home;
    const std::string root = home.makeDirectory("comb");
    const std::int64_t files = testing::makeComb(root, 1'000, 3, 5);
    testing::DescriptorLimit limit(64);
    const TreeMeasure measure = PosixFileSystem().measureTree(root, {});
    EXPECT_EQ(measure.unreadableDirectories, 0)
        << (measure.directoryErrors.empty() ? "" : measure.directoryErrors[0].message());
    EXPECT_EQ(measure.files.count, files);
    EXPECT_EQ(measure.files.logicalBytes, files * 5);
}

// Tests run as root, whom no mode stops; a child process that has given up
// root meets the unreadable and unsearchable directories for real.
TEST(ParallelTreeMeasureTest, UnreadableAndUnsearchableDirectoriesCountAsTheSerialWalkCountsThem) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    testing::TempHome home;
    const std::string root = makeMixedTree(home);
    // Open the way down for the child, from the temporary root only: the
    // folders above it (the system's temporary folder) are not ours to change.
    for (std::string path = root; path.size() >= home.root().size(); path = stdfs::path(path).parent_path().string())
        ::chmod(path.c_str(), 0755);
    // Shut, searchable but not listable, listable with its entries unexaminable.
    const std::pair<const char*, mode_t> closed[] = {
        {"tree/closed", 0000}, {"tree/deeper/closed-deeper", 0300}, {"tree/listable-only", 0444}};
    for (const auto& [directory, mode] : closed) {
        home.writeFile(std::string(directory) + "/file", 100);
        ::chmod(home.at(directory).c_str(), mode);
    }
    EXPECT_EXIT(
        {
            if (::geteuid() == 0 && (::setgid(65534) != 0 || ::setuid(65534) != 0)) std::_Exit(2);
            PosixFileSystem fs;
            const TreeMeasure parallel = fs.measureTree(root, {});
            const TreeMeasure serial = measureTreeSerially(fs, root, {});
            const bool same = parallel == serial;
            const bool met = parallel.unreadableDirectories == 2 && parallel.unexaminedEntries == 1 &&
                             !parallel.rootUnreadable;
            if (!same || !met) std::fprintf(stderr, "%s\n%s\n", describe(parallel).c_str(), describe(serial).c_str());
            std::_Exit(same && met ? 0 : 1);
        },
        ::testing::ExitedWithCode(0), "");
    for (const auto& [directory, mode] : closed) ::chmod(home.at(directory).c_str(), 0755);
}

} // namespace
} // namespace unbulk
