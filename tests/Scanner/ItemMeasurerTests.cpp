#include <cerrno>
#include <tuple>

#include <fcntl.h>
#include <sys/stat.h>

#include <gtest/gtest.h>

#include "Scanner/ItemMeasurer.hpp"
#include "support/FaultyFileSystem.hpp"
#include "support/Files.hpp"
#include "support/TempHome.hpp"

namespace unbulk {
namespace {

using testing::FileSystemCall;
constexpr auto ignoring = UnreadableDirectories::ignore;
constexpr auto flagging = UnreadableDirectories::flagPermissionErrors;

using testing::diskUsage;

// File count, logical bytes, allocated bytes, requiresFullDiskAccess.
using Sizes = std::tuple<std::int64_t, std::int64_t, std::int64_t, bool>;
Sizes sizesOf(const MeasuredMetrics& m) {
    return {m.fileCount, m.logicalBytes, m.allocatedBytes, m.requiresFullDiskAccess};
}

// Every measurement goes through a FaultyFileSystem, which forwards to the
// real one until a test tells it to fail something.
class ItemMeasurerTest : public ::testing::Test {
protected:
    MeasuredMetrics measure(std::string_view relative, UnreadableDirectories unreadable = ignoring) const {
        return ItemMeasurer::measureItem(*faulty, home.at(relative), unreadable);
    }
    testing::TempHome home;
    std::shared_ptr<testing::FaultyFileSystem> faulty = std::make_shared<testing::FaultyFileSystem>();
};

// How hard links and symbolic links count is checked end to end, on the
// pnpm layout of ScanEndToEndTests.
TEST_F(ItemMeasurerTest, EmptyDirectoryIsOneFileOfNoBytesAndAMissingPathIsZeros) {
    home.makeDirectory("empty/inner");
    EXPECT_EQ(measure("empty"), (MeasuredMetrics{.fileCount = 1}));
    EXPECT_EQ(measure("nowhere"), MeasuredMetrics{});
}

TEST_F(ItemMeasurerTest, KeepsTheNewestDatesOfFilesOnly) {
    auto setTimes = [](const std::string& path, time_t accessed, time_t modified) {
        const struct timespec times[2] = {{accessed, 0}, {modified, 0}};
        ASSERT_EQ(::utimensat(AT_FDCWD, path.c_str(), times, AT_SYMLINK_NOFOLLOW), 0);
    };
    // The newest access and the newest change lie on different files; directories add no dates.
    setTimes(home.writeFile("dated/a", 1), 1'600'000'900, 1'600'000'100);
    setTimes(home.writeFile("dated/sub/b", 1), 1'600'000'200, 1'600'000'800);
    setTimes(home.at("dated/sub"), 1'900'000'000, 1'900'000'000);
    EXPECT_EQ(measure("dated").lastAccessedDate, Date{std::chrono::seconds{1'600'000'900}});
    EXPECT_EQ(measure("dated").lastModifiedDate, Date{std::chrono::seconds{1'600'000'800}});
}

// What cannot be read is left out. An entry that cannot be examined, refused
// or gone between the listing and its lstat (as the walk reports a file that
// vanished), flags the item. A directory that cannot be opened flags it only
// for the system variant, and only when the refusal is a permission one.
TEST_F(ItemMeasurerTest, WhatCannotBeReadIsLeftOutAndFlaggedAsTheVariantSays) {
    const std::string top = home.writeFile("item/top", 300);
    const std::string inside = home.writeFile("item/locked/inside", 9000);
    const std::string lost = home.writeFile("item/lost", 9000);
    for (auto [failing, errorNumber, unreadable, flagged] :
         {std::tuple{lost, EACCES, ignoring, true}, {lost, ENOENT, ignoring, true},
          {home.at("item/locked"), EACCES, ignoring, false}, {home.at("item/locked"), EACCES, flagging, true},
          {home.at("item/locked"), EPERM, flagging, true}, {home.at("item/locked"), ENOENT, flagging, false},
          {home.at("item/locked"), EIO, flagging, false}}) {
        SCOPED_TRACE(::testing::Message() << failing << " errno " << errorNumber << " flagged " << flagged);
        faulty->clearFailures();
        faulty->failOn(FileSystemCall::walk, failing, errorNumber);
        const std::int64_t allocated = diskUsage(top).allocated + diskUsage(failing == lost ? inside : lost).allocated;
        EXPECT_EQ(sizesOf(measure("item", unreadable)), Sizes(2, 9300, allocated, flagged));
    }
}


TEST_F(ItemMeasurerTest, FileWhoseStatusFailsIsOneFlaggedFileOfNoBytes) {
    const std::string file = home.writeFile("file.bin", 4096);
    faulty->failOn(FileSystemCall::linkStatus, file, EACCES);
    for (const MeasuredMetrics& metrics : {ItemMeasurer::measureSingleFile(*faulty, file), measure("file.bin")}) {
        EXPECT_EQ(metrics, (MeasuredMetrics{.fileCount = 1, .requiresFullDiskAccess = true}));
    }
}

} // namespace
} // namespace unbulk
