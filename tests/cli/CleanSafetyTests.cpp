// unbulk clean against homes arranged the way an attacker, or an unusual
// setup, would arrange them. The program runs as a child in a temporary home.

#include <csignal>
#include <filesystem>
#include <set>
#include <string>

#include <gtest/gtest.h>
#include <unistd.h>

#include "Safety/AuditLogger.hpp"
#include "Support/Json.hpp"
#include "support/ProcessRunner.hpp"
#include "support/TempHome.hpp"

namespace {

namespace fs = std::filesystem;
using unbulk::Json;

// A home with `count` caches of 10 files each in ~/Library/Caches, each one
// item of SYSTEM_CACHES; answers their paths.
std::set<std::string> manyCaches(const unbulk::testing::TempHome& home, int count) {
    std::set<std::string> caches;
    for (int i = 0; i < count; ++i) {
        const std::string cache = home.makeDirectory("Library/Caches/app" + std::to_string(i));
        for (int f = 0; f < 10; ++f)
            home.writeFile(cache.substr(home.path().size() + 1) + "/f" + std::to_string(f), 100);
        caches.insert(cache);
    }
    return caches;
}

std::set<std::string> gone(const std::set<std::string>& paths) {
    std::set<std::string> out;
    for (const auto& path : paths)
        if (!fs::exists(fs::symlink_status(path))) out.insert(path);
    return out;
}

std::vector<std::string> journals(const unbulk::testing::TempHome& home) {
    std::vector<std::string> found;
    if (!fs::exists(home.at(".unbulk"))) return found;
    for (const auto& entry : fs::directory_iterator(home.at(".unbulk")))
        if (entry.path().filename().string().starts_with("audit.jsonl.journal-")) found.push_back(entry.path());
    return found;
}

std::vector<unbulk::AuditLogEntry> logged(const unbulk::testing::TempHome& home) {
    return unbulk::AuditLogger(std::nullopt, unbulk::FileURL(home.path(), true), unbulk::makeDefaultFileSystem()).readEntries();
}

const std::vector<std::string> purgeCaches{"clean", "--execute", "--permanent", "--yes", "--category", "SYSTEM_CACHES",
                                           "--json"};

TEST(CleanSafetyTest, ALinkedHomeStillProtectsDocumentsFromAPermanentPurge) {
    unbulk::testing::TempHome home;
    const std::string thesis = home.writeFile("Documents/thesis.txt", "years of work");
    home.makeSymlink("Library/Caches", "../Documents");
    const std::string linkedHome = home.root() + "/linked-home";
    ASSERT_EQ(::symlink(home.path().c_str(), linkedHome.c_str()), 0);

    unbulk::testing::ProcessOptions options;
    options.environment = {{"HOME", linkedHome}};
    const auto run = unbulk::testing::runProcess(
        UNBULK_BINARY, {"clean", "--permanent", "--execute", "--yes", "--category", "SYSTEM_CACHES", "--json"},
        options);
    ASSERT_EQ(run.exitStatus, 0) << run.standardError;
    EXPECT_TRUE(fs::exists(thesis)) << run.standardOutput;
    const Json summary = Json::parse(run.standardOutput);
    ASSERT_FALSE(summary["records"].empty()) << "the scan took the linked folder for a cache";
    for (const Json& record : summary["records"]) {
        EXPECT_EQ(record["status"], "FAILED");
        EXPECT_NE(record["errorMessage"].get<std::string>().find("protected user directory 'Documents'"),
                  std::string::npos)
            << record;
    }
}

// Ctrl-C, SIGTERM or SIGHUP in the middle of a purge: the item in hand is
// finished, the rest are left, the summary is printed, the entry names
// exactly what is gone, and the status is 128 + the signal.
TEST(CleanSafetyTest, ASignalStopsAfterTheCurrentItemAndWhatWentIsLogged) {
    for (int signal : {SIGINT, SIGTERM, SIGHUP}) {
        SCOPED_TRACE(signal);
        unbulk::testing::TempHome home;
        const std::set<std::string> caches = manyCaches(home, 200);
        unbulk::testing::ProcessOptions options;
        options.interruption = {signal, [&] { return gone(caches).size() >= 10; }};
        const auto run = unbulk::testing::runProcess(UNBULK_BINARY, purgeCaches, options);
        ASSERT_EQ(run.exitStatus, 128 + signal) << run.standardError;
        const std::set<std::string> removed = gone(caches);
        ASSERT_LT(removed.size(), caches.size()) << "the signal came after the end; nothing was tested";

        const Json summary = Json::parse(run.standardOutput);
        std::set<std::string> succeeded;
        for (const Json& record : summary["records"]) {
            const std::string status = record["status"];
            if (status == "SUCCESS") succeeded.insert(record["sourcePath"].get<std::string>());
            else EXPECT_EQ(status, "SKIPPED") << record;
        }
        EXPECT_EQ(succeeded, removed);
        const auto entries = logged(home);
        ASSERT_EQ(entries.size(), 1u);
        EXPECT_EQ(std::set<std::string>(entries[0].paths.begin(), entries[0].paths.end()), removed);
        EXPECT_EQ(entries[0].itemsCount, static_cast<std::int64_t>(removed.size()));
        EXPECT_TRUE(journals(home).empty());
    }
}

// kill -9 in the middle of a purge leaves the journal; the next clean, a dry
// run, first writes the entry the killed one never wrote, naming what is
// gone, then its own.
TEST(CleanSafetyTest, AKilledPurgeIsLoggedByTheNextClean) {
    unbulk::testing::TempHome home;
    const std::set<std::string> caches = manyCaches(home, 200);
    unbulk::testing::ProcessOptions options;
    options.interruption = {SIGKILL, [&] { return gone(caches).size() >= 10; }};
    const auto killed = unbulk::testing::runProcess(UNBULK_BINARY, purgeCaches, options);
    ASSERT_EQ(killed.signal, SIGKILL);
    const std::set<std::string> removed = gone(caches);
    ASSERT_LT(removed.size(), caches.size()) << "the kill came after the end; nothing was tested";
    EXPECT_TRUE(logged(home).empty());
    EXPECT_EQ(journals(home).size(), 1u);

    const auto next = unbulk::testing::runProcess(UNBULK_BINARY, {"clean", "--json"});
    ASSERT_EQ(next.exitStatus, 0) << next.standardError;
    const auto entries = logged(home);
    ASSERT_EQ(entries.size(), 2u);
    EXPECT_EQ(entries[0].operationType, unbulk::AuditOperationType::purge);
    EXPECT_EQ(entries[0].client, "cli");
    EXPECT_EQ(std::set<std::string>(entries[0].paths.begin(), entries[0].paths.end()), removed);
    EXPECT_EQ(entries[1].operationType, unbulk::AuditOperationType::dryRun);
    EXPECT_TRUE(journals(home).empty());
    EXPECT_TRUE(unbulk::AuditLogger(std::nullopt, unbulk::FileURL(home.path(), true), unbulk::makeDefaultFileSystem()).verifyIntegrity().isValid);
}

// A log that cannot be written fails nothing, but is told: one line on
// standard error, and the entry waits in the journal.
TEST(CleanSafetyTest, AnUnwritableLogIsToldOnStandardError) {
    unbulk::testing::TempHome home;
    const std::string cache = home.writeFile("Library/Caches/app/blob", 100);
    const std::string log = home.makeDirectory(".unbulk/audit.jsonl"); // a directory where the log should be
    const auto run = unbulk::testing::runProcess(UNBULK_BINARY, {"clean", "--execute", "--category", "SYSTEM_CACHES"});
    ASSERT_EQ(run.exitStatus, 0) << run.standardError;
    EXPECT_FALSE(fs::exists(cache));
    const std::string warning = "Warning: this operation was not recorded in " + log + ": ";
    EXPECT_TRUE(run.standardError.starts_with(warning)) << run.standardError;
    EXPECT_EQ(std::count(run.standardError.begin(), run.standardError.end(), '\n'), 1) << run.standardError;
    EXPECT_EQ(journals(home).size(), 1u);
}

} // namespace
