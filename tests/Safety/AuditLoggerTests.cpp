#include "Safety/AuditLogger.hpp"

#include <cerrno>
#include <filesystem>
#include <functional>
#include <sstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include "support/FaultyFileSystem.hpp"
#include "support/ForwardingFileSystem.hpp"
#include "support/Files.hpp"
#include "support/TempHome.hpp"

namespace unbulk {
namespace {

using testing::FileSystemCall;
using ::testing::MatchesRegex;
using ::testing::StrEq;
using ::testing::ThrowsMessage;

const std::string zeros(64, '0');
const char* const firstId = "E621E1F8-C36C-495A-93FC-0C247A3E6E5F";
const char* const secondId = "0A1B2C3D-4E5F-4A6B-8C7D-9E0F1A2B3C4D";
const char* const timestamp = "2026-03-01T10:15:30.123Z";

// Two chained entries whose hashes were computed outside the project, with
// coreutils, from the text shown:
// clang-format off
//
//   Z=$(printf '0%.0s' $(seq 64))
//   printf '%s' "$Z|2026-03-01T10:15:30.123Z|E621E1F8-C36C-495A-93FC-0C247A3E6E5F|trash|2|4096|cli|1234.5|/Users/me/A,/Users/me/B" | sha256sum
//   printf '%s' "<first hash>|2026-03-01T10:15:30.123Z|0A1B2C3D-4E5F-4A6B-8C7D-9E0F1A2B3C4D|dry_run|0|0|mcp|0.0|" | sha256sum
// clang-format on
const char* const firstHash = "4827a2ac7af842ff2db4c794aea93f9b60047475a2fba6789bf0959f9bd88dbd";
const char* const secondHash = "2c1646c189b34d63edfca69b989f7a0de4de3965e682282aa1be5fc6749210b2";

using testing::readAll;

Date now() { return std::chrono::system_clock::now(); }

struct Fixture {
    testing::TempHome home;
    std::shared_ptr<testing::FaultyFileSystem> fileSystem = std::make_shared<testing::FaultyFileSystem>();
    AuditLogger logger{std::nullopt, FileURL(home.path(), true), fileSystem};
    std::string logPath = home.at(".unbulk/audit.jsonl");

    AuditLogEntry recordOne(std::int64_t bytes = 1, AuditLogger* into = nullptr) {
        return (into ? *into : logger)
            .record(Uuid::random(), AuditOperationType::trash, 1, bytes, {"/h/a"}, "cli", 5.0, now());
    }
    std::vector<std::string> lines() const {
        std::vector<std::string> result;
        std::istringstream in(readAll(logPath));
        for (std::string line; std::getline(in, line);) result.push_back(line);
        return result;
    }
};

TEST(AuditLoggerTest, RecordsWriteTheIndependentVectorsInAPrivateFileAndDirectory) {
    Fixture f;
    const auto first = f.logger.record(*Uuid::parse(firstId), AuditOperationType::trash, 2, 4096,
                                       {"/Users/me/B", "/Users/me/A"}, "cli", 1234.5, *dates::parseISO8601(timestamp));
    // Sorted keys, "/" escaped, paths in the given order (hashed as A,B), the
    // first previousHash all zeros, one line feed.
    EXPECT_EQ(readAll(f.logPath),
              std::string(R"({"bytesUnbulked":4096,"client":"cli","durationMs":1234.5,"itemsCount":2,)") +
                  R"("operationId":"E621E1F8-C36C-495A-93FC-0C247A3E6E5F","operationType":"trash",)" +
                  R"("paths":["\/Users\/me\/B","\/Users\/me\/A"],"previousHash":")" + zeros +
                  R"(","rollingHash":")" + firstHash + R"(","timestamp":"2026-03-01T10:15:30.123Z"})" + "\n");
    EXPECT_EQ(std::filesystem::status(f.logPath).permissions(), std::filesystem::perms(0600));
    EXPECT_EQ(std::filesystem::status(f.home.at(".unbulk")).permissions(), std::filesystem::perms(0700));

    // An absent duration is left out of the line and hashes as "0.0".
    const auto second = f.logger.record(*Uuid::parse(secondId), AuditOperationType::dryRun, 0, 0, {}, "mcp",
                                        std::nullopt, *dates::parseISO8601(timestamp));
    EXPECT_EQ(second.rollingHash, secondHash);
    EXPECT_EQ(f.lines().at(1).find("durationMs"), std::string::npos);
    EXPECT_EQ(f.logger.readEntries(), (std::vector<AuditLogEntry>{first, second}));
}

TEST(AuditLoggerTest, TamperingIsFoundAtItsLineAndOnlyALostLastLineGoesUnnoticed) {
    Fixture f;
    AuditLogger other(FileURL(f.logPath), FileURL(f.home.path(), true), f.fileSystem);
    const auto a = f.recordOne(10);
    const auto b = f.recordOne(4096, &other);
    EXPECT_EQ(f.recordOne(30).previousHash, b.rollingHash) << "chained on the entry another logger wrote";

    const auto lines = f.lines();
    std::string edited = lines[1];
    edited.replace(edited.find("\"bytesUnbulked\":4096"), 20, "\"bytesUnbulked\":9999");
    const std::string rolling =
        "Rolling hash mismatch at line 2. Content was modified. Computed " +
        AuditLogger::computeHash(b.previousHash, b.timestamp, b.operationId, "trash", 1, 9999, b.paths, "cli", 5.0) +
        ", stored " + b.rollingHash;
    const std::string previous =
        "Previous hash mismatch at line 2. Expected " + a.rollingHash + ", got " + b.rollingHash;
    const std::vector<std::pair<std::string, AuditVerificationResult>> cases{
        // An edited line, among blank and white-space lines that are skipped
        // without counting: the edit is still at line 2.
        {"\n  \t\n" + lines[0] + "\r\n\n \n" + edited + "\n\n" + lines[2] + "\n", {false, 3, 1, rolling}},
        {lines[0] + "\n" + lines[2] + "\n", {false, 2, 1, previous}},
        // The last line is gone, and the line feed of the one before with it (a crash).
        {lines[0] + "\n" + lines[1], {true, 2, std::nullopt, std::nullopt}},
    };
    for (const auto& [text, expected] : cases) {
        f.home.writeFile(".unbulk/audit.jsonl", text);
        EXPECT_EQ(f.logger.verifyIntegrity(), expected) << text;
    }
    // The next record chains on the new last line, from the file, and starts a line of its own.
    EXPECT_EQ(f.recordOne().previousHash, b.rollingHash);
    EXPECT_EQ(f.lines().size(), 3u);
    EXPECT_EQ(f.logger.verifyIntegrity(), (AuditVerificationResult{.isValid = true, .totalEntries = 3}));
}

TEST(AuditLoggerTest, AGarbageLineFailsReadRecordAndVerifyWithItsLine) {
    Fixture f;
    f.recordOne();
    const std::string good = f.lines()[0];
    // Not JSON, JSON that is not an entry, and an entry with bytes behind a
    // NUL (which must not end the line early); blank lines do not count.
    for (const std::string& garbage : {std::string("garbage"), std::string(R"({"not": "an entry"})"),
                                      good + std::string(1, '\0') + "junk"}) {
        const std::string before = "\n" + good + "\n\n" + garbage + "\n" + good + "\n";
        f.home.writeFile(".unbulk/audit.jsonl", before);
        // The parser's own reason follows the line number.
        for (const auto& call : std::vector<std::function<void()>>{
                 [&] { f.logger.readEntries(); }, [&] { f.recordOne(); }, [&] { f.logger.verifyIntegrity(); }}) {
            EXPECT_THAT(call, ThrowsMessage<AuditLoggerError>(MatchesRegex("Failed to parse audit log at line 2: .+")));
        }
        EXPECT_EQ(readAll(f.logPath), before) << "the failed record added nothing";
    }
}

TEST(AuditLoggerTest, FailedWritesRaiseTheirKindAndLeaveTheFileAsItWas) {
    Fixture f;
    const auto fails = [&](FileSystemCall call, const std::string& path, int code, const std::string& text) {
        f.fileSystem->clearFailures();
        f.fileSystem->failOn(call, path, code);
        EXPECT_THAT([&] { f.recordOne(); }, ThrowsMessage<AuditLoggerError>(StrEq(text)));
    };
    const std::string noSpace =
        "Failed to write audit log entry: Failed to append data to log file: No space left on device";
    fails(FileSystemCall::createDirectory, f.home.at(".unbulk"), EACCES,
          "Failed to create ~/.unbulk directory: Permission denied");
    fails(FileSystemCall::appendUnderLock, f.logPath, ENOSPC, noSpace);
    EXPECT_FALSE(f.fileSystem->fileExists(f.logPath));
    f.fileSystem->clearFailures();
    f.recordOne();
    const std::string before = readAll(f.logPath);
    fails(FileSystemCall::appendUnderLock, f.logPath, ENOSPC, noSpace);
    EXPECT_EQ(readAll(f.logPath), before);
}

// A failure of the system's own names the call and the log: here a folder
// stands where the log should be, which stops root too.
TEST(AuditLoggerTest, AFailedAppendNamesTheCallAndTheLog) {
    Fixture f;
    std::filesystem::create_directories(f.logPath);
    EXPECT_THAT([&] { f.recordOne(); },
                ThrowsMessage<AuditLoggerError>(StrEq(
                    "Failed to write audit log entry: Failed to append data to log file: open('" + f.logPath +
                    "'): " + std::error_code(EISDIR, std::generic_category()).message())));
}

TEST(AuditLoggerTest, TenProcessesAppendingAtOnceLoseNothingAndKeepOneChain) {
    testing::TempHome home;
    const FileURL homeURL(home.path(), true);
    constexpr int processes = 10, entriesEach = 20;
    std::vector<pid_t> children;
    for (int p = 0; p < processes; ++p) {
        const pid_t child = ::fork();
        ASSERT_GE(child, 0);
        if (child == 0) { // each child has its own logger, as separate runs of unbulk do
            int failures = 0;
            AuditLogger logger(std::nullopt, homeURL, makeDefaultFileSystem());
            for (int i = 0; i < entriesEach; ++i) {
                try {
                    logger.record(Uuid::random(), AuditOperationType::trash, 1, i, {"/h/" + std::to_string(p)}, "cli",
                                  1.0, now());
                } catch (...) {
                    ++failures;
                }
            }
            ::_exit(failures);
        }
        children.push_back(child);
    }
    for (pid_t child : children) {
        int status = 0;
        ASSERT_EQ(::waitpid(child, &status, 0), child);
        EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0) << "a child failed to record";
    }
    const AuditVerificationResult verified = AuditLogger(std::nullopt, homeURL, makeDefaultFileSystem()).verifyIntegrity();
    EXPECT_TRUE(verified.isValid) << verified.failureReason.value_or("");
    EXPECT_EQ(verified.totalEntries, processes * entriesEach);
}

TEST(AuditLoggerTest, LineBreakingCharactersAreEscapedAndForeignBytesKeptLosslessly) {
    Fixture f;
    const std::string separators = "/h/a\xE2\x80\xA8" "b\xE2\x80\xA9" "c\xC2\x85" "d\x7F";
    const std::string foreign = "/h/caf\xE9 100%"; // Latin-1, as a Linux name may be
    f.logger.record(Uuid::random(), AuditOperationType::purge, 2, 10, {separators, foreign}, "cli", 1.0, now());
    f.recordOne();
    ASSERT_EQ(f.lines().size(), 2u);
    EXPECT_THAT(f.lines()[0], ::testing::HasSubstr(R"(\u2028b\u2029c\u0085d\u007f)"));
    const auto entries = f.logger.readEntries();
    ASSERT_EQ(entries.size(), 2u);
    EXPECT_EQ(entries[0].paths, (std::vector<std::string>{separators, "bytes:/h/caf%E9 100%25"}));
    EXPECT_TRUE(f.logger.verifyIntegrity().isValid);
    EXPECT_EQ(AuditLogger::recordedPath("bytes:/x"), "bytes:bytes:/x") << "the marker itself is escaped";
}

// Counts the bytes that an append reads of the file it holds.
class CountingReads final : public testing::ForwardingFileSystem {
public:
    std::uint64_t bytesRead = 0;

    bool appendUnderLock(const std::string& path, std::uint32_t permissions, std::chrono::milliseconds lockTimeout,
                         const AppendComposer& compose, PlatformError& error) override {
        return ForwardingFileSystem::appendUnderLock(
            path, permissions, lockTimeout,
            [&](const LockedContents& contents) {
                struct Counted final : LockedContents {
                    const LockedContents& inner;
                    std::uint64_t& count;
                    Counted(const LockedContents& in, std::uint64_t& total) : inner(in), count(total) {}
                    std::uint64_t size() const override { return inner.size(); }
                    std::optional<std::string> read(std::uint64_t offset, std::size_t length) const override {
                        auto bytes = inner.read(offset, length);
                        if (bytes) count += bytes->size();
                        return bytes;
                    }
                } counted(contents, bytesRead);
                return compose(counted);
            },
            error);
    }
};

// A long log: many copies of one entry, so that its end is far from its start.
struct LongLog {
    Fixture f;
    std::string first, last, body, lastHash;

    LongLog() {
        f.recordOne(1);
        lastHash = f.recordOne(2).rollingHash;
        first = f.lines()[0];
        last = f.lines()[1];
        for (int i = 0; i < 2000; ++i) body += first + "\n";
    }
    // What chaining on the whole log gives: the hash, or the error's text.
    std::string wholeLogAnswer() {
        try {
            const auto entries = f.logger.readEntries();
            return entries.empty() ? zeros : entries.back().rollingHash;
        } catch (const AuditLoggerError& error) {
            return error.what();
        }
    }
    std::string recordAnswer() {
        try {
            return f.recordOne().previousHash;
        } catch (const AuditLoggerError& error) {
            return error.what();
        }
    }
};

// Reading only the end of a long log, an append chains on the entry, or
// fails with the error, that decoding the whole log gives, whatever state
// the end of the log is in.
TEST(AuditLoggerTest, TheEndOfALongLogGivesWhatTheWholeLogGives) {
    LongLog log;
    std::string manyPaths = log.last;
    const std::string longPath = "\"" + std::string(300, 'p') + "\",";
    std::string paths;
    for (int i = 0; i < 1000; ++i) paths += longPath;
    manyPaths.insert(manyPaths.find("\"paths\":[") + 9, paths); // a last line far longer than what is read first
    const std::vector<std::pair<std::string, std::string>> ends{
        {"as written", log.last + "\n"},
        {"no final line feed", log.last},
        {"a torn last line", log.last.substr(0, 40)},
        {"blank and white lines after it", log.last + "\n \t\n\r\n\n"},
        {"far more blank lines than are read first", log.last + std::string(300'000, '\n')},
        {"a garbage last line", log.last + "\ngarbage\n"},
        {"bytes behind a NUL", log.last + std::string(1, '\0') + "junk\n"},
        {"not UTF-8", log.last + "\n\xFF\n"},
        {"entries parted by LINE SEPARATOR", log.first + "\xE2\x80\xA8" + log.last + "\n"},
        {"a CR ending", log.last + "\r"},
        {"a last line longer than what is read first", manyPaths + "\n"},
        {"nothing but blank lines", ""},
    };
    for (const auto& [name, end] : ends) {
        const std::string text = (name == "nothing but blank lines" ? std::string(200'000, '\n') : log.body) + end;
        log.f.home.writeFile(".unbulk/audit.jsonl", text);
        const std::string expected = log.wholeLogAnswer();
        EXPECT_EQ(log.recordAnswer(), expected) << name;
        if (expected.size() != 64) {
            EXPECT_TRUE(readAll(log.f.logPath) == text) << name << ": the failed record added nothing";
        }
    }
}

TEST(AuditLoggerTest, AnAppendReadsOnlyTheEndOfALongLog) {
    LongLog log;
    auto counting = std::make_shared<CountingReads>();
    AuditLogger logger(std::nullopt, FileURL(log.f.home.path(), true), counting);
    log.f.home.writeFile(".unbulk/audit.jsonl", log.body + log.body + log.last + "\n");
    ASSERT_GT(log.body.size(), 500'000u);
    const auto entry = logger.record(Uuid::random(), AuditOperationType::trash, 1, 1, {"/h/a"}, "cli", 5.0, now());
    EXPECT_EQ(entry.previousHash, log.f.logger.readEntries().at(4000).rollingHash);
    EXPECT_LE(counting->bytesRead, 64u * 1024 + 1);
}

// What lies further back than the end that is read no longer stops a
// record: a line of garbage in the middle of a long log is the integrity
// check's to find, as any other tampering. (A short log is read whole: see
// AGarbageLineFailsReadRecordAndVerifyWithItsLine.)
TEST(AuditLoggerTest, GarbageFarFromTheEndIsLeftToTheIntegrityCheck) {
    LongLog log;
    log.f.home.writeFile(".unbulk/audit.jsonl", log.first + "\ngarbage\n" + log.body + log.last + "\n");
    EXPECT_EQ(log.recordAnswer(), log.lastHash);
    EXPECT_THAT([&] { log.f.logger.verifyIntegrity(); },
                ThrowsMessage<AuditLoggerError>(MatchesRegex("Failed to parse audit log at line 2: .+")));
}

} // namespace
} // namespace unbulk
