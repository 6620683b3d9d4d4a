#include "Safety/OperationJournal.hpp"

#include <filesystem>
#include <fstream>

#include <gtest/gtest.h>

#include "support/TempHome.hpp"

namespace unbulk {
namespace {

namespace fs = std::filesystem;

// A purge that died with one item done, one removed but not yet marked done,
// and one not yet touched; beside it the journal of an operation that is
// still running. The first becomes its entry, listing what is gone, once;
// the running one is left to its owner.
TEST(OperationJournalTest, AnUnfinishedJournalBecomesTheEntryOfWhatIsGone) {
    testing::TempHome home;
    const FileURL homeURL(home.path(), true);
    const auto fileSystem = makeDefaultFileSystem();
    AuditLogger logger(std::nullopt, homeURL, fileSystem);
    const std::string done = home.writeFile(".cache/done", 1), removed = home.writeFile(".cache/removed", 1);
    const std::string untouched = home.writeFile(".cache/untouched", 1);
    const std::string oddName = home.at(".cache/odd\xFF");
    std::ofstream(oddName) << "x";

    const Uuid id = Uuid::random();
    auto journal = OperationJournal::begin(*fileSystem, logger.logFileURL(), id, AuditOperationType::purge, "cli");
    ASSERT_TRUE(journal);
    journal->itemStarting(done, 10);
    fs::remove(done);
    journal->itemFinished(done, true, true, 10);
    for (const auto& [path, bytes] : {std::pair{removed, 20}, std::pair{oddName, 40}}) {
        journal->itemStarting(path, bytes);
        fs::remove(path);
    }
    journal->itemStarting(untouched, 30);
    journal.reset(); // the process died: its lock went with it
    const std::string journalPath = home.at(".unbulk/audit.jsonl.journal-" + id.string());
    std::ofstream(journalPath, std::ios::app) << R"({"done":"half a line)";

    const auto running =
        OperationJournal::begin(*fileSystem, logger.logFileURL(), Uuid::random(), AuditOperationType::trash, "mcp");
    ASSERT_TRUE(running);
    running->itemStarting(untouched, 30);

    EXPECT_TRUE(OperationJournal::recoverUnfinished(*fileSystem, logger, systemClock()).empty());
    EXPECT_TRUE(OperationJournal::recoverUnfinished(*fileSystem, logger, systemClock()).empty());
    const auto entries = logger.readEntries();
    ASSERT_EQ(entries.size(), 1u);
    EXPECT_EQ(entries[0].operationId, id.string());
    EXPECT_EQ(std::tie(entries[0].operationType, entries[0].itemsCount, entries[0].bytesUnbulked, entries[0].client),
              std::tuple(AuditOperationType::purge, 3, 70, "cli"));
    EXPECT_EQ(entries[0].paths, (std::vector<std::string>{done, removed, AuditLogger::recordedPath(oddName)}));
    EXPECT_FALSE(fs::exists(journalPath));
    EXPECT_TRUE(fs::exists(untouched));
    std::size_t left = 0;
    for (const auto& entry : fs::directory_iterator(home.at(".unbulk")))
        left += entry.path().filename().string().starts_with("audit.jsonl.journal-") ? 1 : 0;
    EXPECT_EQ(left, 1u) << "the running operation's journal is its own";
}

} // namespace
} // namespace unbulk
