#include <cerrno>
#include <chrono>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include <fcntl.h>
#include <sys/stat.h>

#include <gtest/gtest.h>

#include "Scanner/ItemMeasurer.hpp"
#include "support/FaultyFileSystem.hpp"
#include "support/TempHome.hpp"

namespace unbulk {
namespace {

namespace fs = std::filesystem;
using testing::FaultyFileSystem;
using testing::FileSystemCall;
using testing::TempHome;

constexpr std::int64_t MiB = 1024 * 1024;

// What the disk says a file occupies, independently of the code under test.
std::int64_t allocatedOf(const std::string& path) {
    struct stat st {};
    if (::lstat(path.c_str(), &st) != 0) ADD_FAILURE() << "lstat " << path;
    return static_cast<std::int64_t>(st.st_blocks) * 512;
}

Date at(std::int64_t seconds) { return Date{std::chrono::seconds{seconds}}; }

void setTimes(const std::string& path, std::int64_t accessed, std::int64_t modified) {
    const struct timespec times[2] = {{static_cast<time_t>(accessed), 0}, {static_cast<time_t>(modified), 0}};
    ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW), 0) << path;
}

class ItemMeasurerTest : public ::testing::Test {
protected:
    MeasuredMetrics measure(const std::string& path,
                            UnreadableDirectories unreadable = UnreadableDirectories::ignore) const {
        return ItemMeasurer::measureItem(*fileSystem, path, unreadable);
    }

    TempHome home;
    std::shared_ptr<FileSystem> fileSystem = makeDefaultFileSystem();
};

TEST_F(ItemMeasurerTest, SingleFileGivesItsOwnSizesAndDates) {
    const std::string file = home.writeFile("one.bin", 5000);
    setTimes(file, 1'700'000'100, 1'700'000'000);
    const MeasuredMetrics metrics = measure(file);
    EXPECT_EQ(metrics, (MeasuredMetrics{.allocatedBytes = allocatedOf(file),
                                        .logicalBytes = 5000,
                                        .fileCount = 1,
                                        .lastAccessedDate = at(1'700'000'100),
                                        .lastModifiedDate = at(1'700'000'000),
                                        .requiresFullDiskAccess = false}));
    EXPECT_GT(metrics.allocatedBytes, 0);
}

TEST_F(ItemMeasurerTest, EmptyDirectoryIsOneFileOfNoBytes) {
    const std::string dir = home.makeDirectory("empty");
    EXPECT_EQ(measure(dir), (MeasuredMetrics{.allocatedBytes = 0, .logicalBytes = 0, .fileCount = 1}));
}

TEST_F(ItemMeasurerTest, MissingPathMeasuresAsZeros) {
    EXPECT_EQ(measure(home.at("nowhere")), MeasuredMetrics{});
    EXPECT_EQ(measure(home.at("nowhere")).fileCount, 0);
    EXPECT_FALSE(ItemMeasurer::passesKeepTest(measure(home.at("nowhere"))));
}

TEST_F(ItemMeasurerTest, NestedFilesAreSummedAtEveryDepthHiddenOnesIncluded) {
    const std::vector<std::string> files = {
        home.writeFile("tree/a.txt", 100),
        home.writeFile("tree/sub/b.bin", 3000),
        home.writeFile("tree/sub/deeper/c.bin", 70'000),
        home.writeFile("tree/.hidden/d", 10),
        home.writeFile("tree/sub/deeper/empty", 0),
    };
    home.makeDirectory("tree/sub/nothing-here");
    std::int64_t allocated = 0;
    for (const auto& file : files) allocated += allocatedOf(file);

    const MeasuredMetrics metrics = measure(home.at("tree"));
    EXPECT_EQ(metrics.logicalBytes, 100 + 3000 + 70'000 + 10);
    EXPECT_EQ(metrics.allocatedBytes, allocated);
    EXPECT_EQ(metrics.fileCount, 5);
    EXPECT_FALSE(metrics.requiresFullDiskAccess);
}

TEST_F(ItemMeasurerTest, HardLinksInOneFolderCountAsFilesButTheirBytesOnce) {
    const std::string file = home.writeFile("linked/original", MiB);
    fs::create_hard_link(file, home.at("linked/second"));
    const MeasuredMetrics metrics = measure(home.at("linked"));
    EXPECT_EQ(metrics.fileCount, 2);
    EXPECT_EQ(metrics.logicalBytes, MiB);
    EXPECT_EQ(metrics.allocatedBytes, allocatedOf(file));
}

TEST_F(ItemMeasurerTest, FileLinkedIntoTwoMeasuredFoldersCountsInBoth) {
    const std::string file = home.writeFile("left/shared", 40'000);
    fs::create_directories(home.at("right"));
    fs::create_hard_link(file, home.at("right/shared"));
    for (const char* folder : {"left", "right"}) {
        SCOPED_TRACE(folder);
        const MeasuredMetrics metrics = measure(home.at(folder));
        EXPECT_EQ(metrics.logicalBytes, 40'000);
        EXPECT_EQ(metrics.allocatedBytes, allocatedOf(file));
        EXPECT_EQ(metrics.fileCount, 1);
    }
}

TEST_F(ItemMeasurerTest, SymbolicLinksAddNothingAndAreNotFollowed) {
    home.writeFile("big/payload", 2 * MiB);
    const std::string small = home.writeFile("measured/small", 700);
    home.makeSymlink("measured/to-folder", home.at("big"));
    home.makeSymlink("measured/to-file", home.at("big/payload"));
    home.makeSymlink("measured/dangling", home.at("gone"));
    const MeasuredMetrics metrics = measure(home.at("measured"));
    EXPECT_EQ(metrics.logicalBytes, 700);
    EXPECT_EQ(metrics.allocatedBytes, allocatedOf(small));
    EXPECT_EQ(metrics.fileCount, 1);
    EXPECT_FALSE(metrics.requiresFullDiskAccess);
}

TEST_F(ItemMeasurerTest, KeepsTheNewestAccessAndModificationDatesOfFilesOnly) {
    const std::string a = home.writeFile("dated/a", 1);
    const std::string b = home.writeFile("dated/sub/b", 1);
    const std::string c = home.writeFile("dated/c", 1);
    // The newest access and the newest modification lie on different files.
    setTimes(a, 1'600'000'900, 1'600'000'100);
    setTimes(b, 1'600'000'200, 1'600'000'800);
    setTimes(c, 1'600'000'300, 1'600'000'300);
    // Directories add no dates, however new.
    setTimes(home.at("dated/sub"), 1'900'000'000, 1'900'000'000);
    setTimes(home.at("dated"), 1'900'000'000, 1'900'000'000);
    // Nor does a link.
    home.makeSymlink("dated/link", a);
    setTimes(home.at("dated/link"), 1'950'000'000, 1'950'000'000);

    const MeasuredMetrics metrics = measure(home.at("dated"));
    EXPECT_EQ(metrics.lastAccessedDate, at(1'600'000'900));
    EXPECT_EQ(metrics.lastModifiedDate, at(1'600'000'800));

    // last_write_time sets the same date the measurement reads back.
    const auto when = fs::file_time_type::clock::now() + std::chrono::hours(24 * 400);
    fs::last_write_time(c, when);
    const Date expected = std::chrono::time_point_cast<Date::duration>(fs::file_time_type::clock::to_sys(when));
    EXPECT_EQ(measure(home.at("dated")).lastModifiedDate, expected);
}

TEST_F(ItemMeasurerTest, EmptyDirectoryHasNoDates) {
    home.makeDirectory("bare/inner");
    const MeasuredMetrics metrics = measure(home.at("bare"));
    EXPECT_FALSE(metrics.lastAccessedDate);
    EXPECT_FALSE(metrics.lastModifiedDate);
}

// ---- what cannot be read

class FaultyMeasurerTest : public ItemMeasurerTest {
protected:
    MeasuredMetrics measureFaulty(const std::string& path,
                                  UnreadableDirectories unreadable = UnreadableDirectories::ignore) const {
        return ItemMeasurer::measureItem(*faulty, path, unreadable);
    }

    std::shared_ptr<FaultyFileSystem> faulty = std::make_shared<FaultyFileSystem>();
};

TEST_F(FaultyMeasurerTest, AnEntryThatCannotBeExaminedIsLeftOutAndFlagsTheItem) {
    const std::string kept = home.writeFile("item/kept", 1000);
    const std::string refused = home.writeFile("item/refused", 9000);
    faulty->failOn(FileSystemCall::walk, refused, EACCES);
    for (auto unreadable : {UnreadableDirectories::ignore, UnreadableDirectories::flagPermissionErrors}) {
        const MeasuredMetrics metrics = measureFaulty(home.at("item"), unreadable);
        EXPECT_TRUE(metrics.requiresFullDiskAccess);
        EXPECT_EQ(metrics.fileCount, 1);
        EXPECT_EQ(metrics.logicalBytes, 1000);
        EXPECT_EQ(metrics.allocatedBytes, allocatedOf(kept));
    }
}

TEST_F(FaultyMeasurerTest, AnUnopenableSubdirectoryFlagsOnlyPermissionRefusalsAndOnlyWhenAsked) {
    const std::string outside = home.writeFile("item/top", 300);
    home.writeFile("item/locked/inside", 50'000);
    struct Case {
        int errorNumber;
        UnreadableDirectories unreadable;
        bool flagged;
    };
    for (const Case& c : {Case{EACCES, UnreadableDirectories::ignore, false},
                          Case{EPERM, UnreadableDirectories::ignore, false},
                          Case{EACCES, UnreadableDirectories::flagPermissionErrors, true},
                          Case{EPERM, UnreadableDirectories::flagPermissionErrors, true},
                          Case{ENOENT, UnreadableDirectories::flagPermissionErrors, false},
                          Case{EIO, UnreadableDirectories::flagPermissionErrors, false}}) {
        SCOPED_TRACE(::testing::Message() << "errno " << c.errorNumber << " flagging "
                                        << (c.unreadable == UnreadableDirectories::flagPermissionErrors));
        faulty->clearFailures();
        faulty->failOn(FileSystemCall::walk, home.at("item/locked"), c.errorNumber);
        const MeasuredMetrics metrics = measureFaulty(home.at("item"), c.unreadable);
        EXPECT_EQ(metrics.requiresFullDiskAccess, c.flagged);
        // What lies inside is never counted; the rest is.
        EXPECT_EQ(metrics.fileCount, 1);
        EXPECT_EQ(metrics.logicalBytes, 300);
        EXPECT_EQ(metrics.allocatedBytes, allocatedOf(outside));
    }
}

TEST_F(FaultyMeasurerTest, SingleFileWhoseStatusFailsIsOneFlaggedFileOfNoBytes) {
    const std::string file = home.writeFile("file.bin", 4096);
    faulty->failOn(FileSystemCall::linkStatus, file, EACCES);
    const MeasuredMetrics expected{.fileCount = 1, .requiresFullDiskAccess = true};
    EXPECT_EQ(ItemMeasurer::measureSingleFile(*faulty, file), expected);
    EXPECT_EQ(measureFaulty(file), expected);
}

// A file system that removes the other files of a folder as soon as the
// walk shows it the first one: what was listed is gone when it is examined.
class VanishingFileSystem final : public FileSystem {
public:
    explicit VanishingFileSystem(std::shared_ptr<FileSystem> inner) : inner_(std::move(inner)) {}

    void walk(const std::string& root, const WalkOptions& options, const WalkCallbacks& callbacks) const override {
        WalkCallbacks wrapped = callbacks;
        wrapped.visit = [&](const WalkEntry& entry) {
            if (!removed_ && entry.kind == FileKind::regular) {
                removed_ = true;
                const fs::path folder = fs::path(entry.path).parent_path();
                for (const auto& sibling : fs::directory_iterator(folder)) {
                    if (sibling.path() != entry.path) fs::remove(sibling.path());
                }
            }
            return callbacks.visit(entry);
        };
        inner_->walk(root, options, wrapped);
    }

    std::optional<FileStatus> status(const std::string& p, std::error_code& e) const override {
        return inner_->status(p, e);
    }
    std::optional<FileStatus> linkStatus(const std::string& p, std::error_code& e) const override {
        return inner_->linkStatus(p, e);
    }
    std::vector<DirectoryEntry> contentsOfDirectory(const std::string& p, ListOptions o,
                                                    std::error_code& e) const override {
        return inner_->contentsOfDirectory(p, o, e);
    }
    std::optional<std::string> destinationOfSymbolicLink(const std::string& p, std::error_code& e) const override {
        return inner_->destinationOfSymbolicLink(p, e);
    }
    std::string resolvingSymlinks(const std::string& p) const override { return inner_->resolvingSymlinks(p); }
    std::optional<std::string> readFile(const std::string& p, std::size_t n, std::error_code& e) const override {
        return inner_->readFile(p, n, e);
    }
    bool writeFileAtomically(const std::string& p, std::string_view c, std::uint32_t m,
                             std::error_code& e) override {
        return inner_->writeFileAtomically(p, c, m, e);
    }
    bool appendToFile(const std::string& p, std::string_view c, std::uint32_t m, std::error_code& e) override {
        return inner_->appendToFile(p, c, m, e);
    }
    bool createDirectory(const std::string& p, std::uint32_t m, bool w, std::error_code& e) override {
        return inner_->createDirectory(p, m, w, e);
    }
    bool moveItem(const std::string& f, const std::string& t, std::error_code& e) override {
        return inner_->moveItem(f, t, e);
    }
    bool removeItem(const std::string& p, std::error_code& e) override { return inner_->removeItem(p, e); }
    bool setPermissions(const std::string& p, std::uint32_t m, std::error_code& e) override {
        return inner_->setPermissions(p, m, e);
    }
    bool isPackage(const std::string& p) const override { return inner_->isPackage(p); }

private:
    std::shared_ptr<FileSystem> inner_;
    mutable bool removed_ = false;
};

TEST_F(ItemMeasurerTest, FilesThatVanishDuringTheWalkYieldLessNeverACrash) {
    for (int i = 0; i < 6; ++i) home.writeFile("volatile/f" + std::to_string(i), 1500);
    VanishingFileSystem vanishing(fileSystem);
    const MeasuredMetrics metrics = ItemMeasurer::measureItem(vanishing, home.at("volatile"));
    const std::vector<fs::path> left{fs::directory_iterator(home.at("volatile")), fs::directory_iterator()};
    ASSERT_EQ(left.size(), 1u);
    EXPECT_EQ(metrics.fileCount, 1);
    EXPECT_EQ(metrics.logicalBytes, 1500);
    EXPECT_EQ(metrics.allocatedBytes, allocatedOf(left.front().string()));
}

TEST(ItemMeasurerKeepTest, KeepsWhatHasFilesOrBytes) {
    EXPECT_TRUE(ItemMeasurer::passesKeepTest({.fileCount = 1}));
    EXPECT_TRUE(ItemMeasurer::passesKeepTest({.logicalBytes = 1, .fileCount = 0}));
    EXPECT_FALSE(ItemMeasurer::passesKeepTest({.allocatedBytes = 4096, .logicalBytes = 0, .fileCount = 0}));
    EXPECT_FALSE(ItemMeasurer::passesKeepTest({}));
}

} // namespace
} // namespace unbulk
