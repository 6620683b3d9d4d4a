#include <array>
#include <cerrno>
#include <filesystem>
#include <iostream>
#include <map>

#include <gtest/gtest.h>

#include "Safety/AuditLogger.hpp"
#include "Safety/TrashPipeline.hpp"
#include "support/FaultyFileSystem.hpp"
#include "support/Files.hpp"
#include "support/TempHome.hpp"

namespace unbulk {
namespace {

namespace fs = std::filesystem;
using testing::FileSystemCall;

// The Trash, except that moving the chosen item fails with the chosen errno.
struct FaultyTrash final : Trash {
    FaultyTrash(std::string path, int error) : failing(std::move(path)), errnoValue(error) {}
    TrashMove trashItem(const std::string& item, const Identity& expected, const AnchorCheck& check) override {
        if (item != failing) return inner->trashItem(item, expected, check);
        return TrashMove{.error = {std::error_code(errnoValue, std::generic_category()), ""}};
    }
    std::shared_ptr<Trash> inner = makeDefaultTrash();
    std::string failing;
    int errnoValue;
};

// Every file below `root` (or root itself) with its contents.
std::map<std::string, std::string> contentsBelow(const std::string& root) {
    if (fs::is_regular_file(fs::symlink_status(root))) return {{"", testing::readAll(root)}};
    std::map<std::string, std::string> out;
    if (!fs::is_directory(fs::symlink_status(root))) return out;
    for (const auto& entry : fs::recursive_directory_iterator(root))
        if (entry.is_regular_file()) out[fs::relative(entry.path(), root).string()] = testing::readAll(entry.path().string());
    return out;
}

// Every removal road ends in the one pipeline: clean and clean_storage move
// to the Trash or purge through it, the uninstaller will too. So the matrix
// drives the pipeline with both kinds of removal, and fails each call of the
// file system (on the items, inside them, on the audit log) and the Trash's
// move with each errno that the disk can give. Whatever fails, nothing that
// was not asked for is touched, every asked-for item is where it was, in the
// Trash or (purging) gone, never lost or half-removed without a record
// saying so, and the audit entry names exactly what went.
TEST(RemovalFaultMatrixTest, NoFaultLosesOrMisplacesAnything) {
    const std::vector<int> errnos{EACCES, EPERM, ENOENT, EXDEV, ENOSPC, EIO, EMFILE};
    const std::vector<std::string> places{".cache/tool", ".cache/tool/sub/blob", ".cache/single.bin", ".unbulk"};
    using Inject = std::function<void(testing::TempHome&, testing::FaultyFileSystem&, std::shared_ptr<Trash>&)>;
    int cases = 0, failedItems = 0, partialItems = 0;

    // Runs one case; lastCounts says how often each file-system call was made.
    std::array<std::size_t, testing::fileSystemCallCount> lastCounts{};
    auto run = [&](bool purge, const Inject& inject, const std::string& label) {
        SCOPED_TRACE(label);
        ++cases;
        testing::TempHome home;
        const FileURL homeURL(home.path(), true);
        for (const auto& [file, data] : std::map<std::string, std::string>{
                 {"Documents/keep.txt", "precious"}, {".cache/other/keep.bin", "bystander"},
                 {".cache/tool/a.bin", std::string(5000, 'a')}, {".cache/tool/sub/blob", std::string(9000, 'b')},
                 {".cache/single.bin", "single"}})
            home.writeFile(file, data);
        const std::vector<std::string> items{home.at(".cache/tool"), home.at(".cache/single.bin")};
        const std::vector before{contentsBelow(items[0]), contentsBelow(items[1])};
        const auto bystanders = [&] {
            return std::pair(contentsBelow(home.at("Documents")), contentsBelow(home.at(".cache/other")));
        };
        const auto bystandersBefore = bystanders();

        auto faulty = std::make_shared<testing::FaultyFileSystem>();
        std::shared_ptr<Trash> trash = makeDefaultTrash();
        inject(home, *faulty, trash);
        const TrashPipeline pipeline(faulty, trash, std::make_shared<AuditLogger>(std::nullopt, homeURL, faulty),
                                     homeURL, systemClock());
        const std::vector<FileURL> urls{FileURL(items[0], true), FileURL(items[1])};
        const TrashSummary summary =
            purge ? pipeline.purgePermanently(urls, true, "cli") : pipeline.trash(urls, false, "cli");
        for (std::size_t call = 0; call < lastCounts.size(); ++call)
            lastCounts[call] = faulty->callCount(static_cast<FileSystemCall>(call));

        EXPECT_EQ(bystanders(), bystandersBefore);
        ASSERT_EQ(summary.records.size(), 2u);
        EXPECT_EQ(summary.successCount + summary.failureCount, 2);
        std::vector<std::string> went;
        for (std::size_t i = 0; i < items.size(); ++i) {
            const TrashItemRecord& record = summary.records[i];
            const auto now = contentsBelow(items[i]);
            if (record.status == TrashItemStatus::success) {
                went.push_back(items[i]);
                EXPECT_TRUE(now.empty()) << items[i] << " succeeded but is still there";
                if (purge) continue;
                ASSERT_TRUE(record.trashPath) << items[i];
                EXPECT_EQ(contentsBelow(*record.trashPath), before[i]) << "whole in the Trash";
                continue;
            }
            ASSERT_EQ(record.status, TrashItemStatus::failed);
            ++failedItems;
            ASSERT_TRUE(record.errorMessage);
            if (record.errorMessage->starts_with("Removed ")) { // a partial record
                EXPECT_TRUE(purge) << "only a purge may stop part way";
                ++partialItems;
                went.push_back(items[i]);
                for (const auto& [file, data] : now) EXPECT_EQ(before[i].at(file), data);
            } else {
                EXPECT_EQ(now, before[i])
                    << items[i] << " failed without a partial record but changed: " << *record.errorMessage;
            }
        }
        if (!fs::exists(home.at(".unbulk/audit.jsonl"))) return;
        std::vector<AuditLogEntry> entries;
        EXPECT_NO_THROW(entries = AuditLogger(std::nullopt, homeURL, makeDefaultFileSystem()).readEntries()) << "audit log unreadable";
        ASSERT_EQ(entries.size(), 1u);
        EXPECT_EQ(entries[0].paths, went);
        EXPECT_EQ(entries[0].itemsCount, summary.successCount);
    };

    // The calls each road makes, from a run without faults: failing a call
    // that is never made proves nothing.
    std::map<bool, std::vector<std::size_t>> callsMade;
    for (bool purge : {false, true}) {
        run(purge, [](auto&, auto&, auto&) {}, "without faults");
        for (std::size_t call = 0; call < lastCounts.size(); ++call)
            if (lastCounts[call] > 0) callsMade[purge].push_back(call);
    }

    for (bool purge : {false, true}) {
        for (int code : errnos) {
            for (std::size_t call : callsMade[purge]) {
                for (const auto& place : places) {
                    const auto inject = [&](testing::TempHome& home, testing::FaultyFileSystem& faulty, auto&) {
                        faulty.failBelow(static_cast<FileSystemCall>(call), home.at(place), code);
                    };
                    run(purge, inject,
                        std::string(purge ? "purge" : "trash") + " call " + std::to_string(call) + " errno " +
                            std::to_string(code) + " at " + place);
                }
            }
            if (purge) continue;
            const auto inject = [&](testing::TempHome& home, auto&, std::shared_ptr<Trash>& trash) {
                trash = std::make_shared<FaultyTrash>(home.at(".cache/tool"), code);
            };
            run(false, inject, "trash move errno " + std::to_string(code));
        }
    }
    std::cout << "removal fault matrix: " << cases << " cases, " << failedItems << " items refused, " << partialItems
              << " purges stopped part way\n";
    // The faults must bite: a matrix in which nothing fails proves nothing.
    EXPECT_GT(failedItems, cases / 6);
    EXPECT_GT(partialItems, 0);
}

} // namespace
} // namespace unbulk
