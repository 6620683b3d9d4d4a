#include "Safety/AuditLogger.hpp"

#include <cerrno>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <iterator>
#include <limits>
#include <optional>
#include <ostream>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include <gtest/gtest.h>
#include <sys/stat.h>

#include "Support/Sha256.hpp"
#include "support/FaultyFileSystem.hpp"
#include "support/TempHome.hpp"

namespace unbulk {
void PrintTo(const AuditLoggerError& error, std::ostream* out) { *out << error.what(); }
} // namespace unbulk

namespace unbulk {
namespace {

using Kind = AuditLoggerError::Kind;
using Strings = std::vector<std::string>;
using testing::FaultyFileSystem;
using testing::FileSystemCall;
using testing::TempHome;

const std::string zeros(64, '0');
const char* const firstId = "E621E1F8-C36C-495A-93FC-0C247A3E6E5F";
const char* const secondId = "0A1B2C3D-4E5F-4A6B-8C7D-9E0F1A2B3C4D";

// Two chained entries whose hashes were computed outside the project, with
// coreutils, from the text shown:
//
//   Z=$(printf '0%.0s' $(seq 64))
//   printf '%s' "$Z|2026-03-01T10:15:30.123Z|E621E1F8-C36C-495A-93FC-0C247A3E6E5F|trash|2|4096|cli|1234.5|/Users/me/A,/Users/me/B" | sha256sum
//   printf '%s' "<first hash>|2026-03-01T10:15:30.123Z|0A1B2C3D-4E5F-4A6B-8C7D-9E0F1A2B3C4D|dry_run|0|0|mcp|0.0|" | sha256sum
const char* const firstHash = "4827a2ac7af842ff2db4c794aea93f9b60047475a2fba6789bf0959f9bd88dbd";
const char* const secondHash = "2c1646c189b34d63edfca69b989f7a0de4de3965e682282aa1be5fc6749210b2";

Date at(const char* iso) { return *dates::parseISO8601(iso); }

std::string readText(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return std::string(std::istreambuf_iterator<char>(in), {});
}

void writeText(const std::string& path, const std::string& text) {
    std::ofstream(path, std::ios::binary | std::ios::trunc) << text;
}

Strings linesOf(const std::string& text) {
    Strings lines;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) lines.push_back(line);
    return lines;
}

std::string joinLines(const Strings& lines) {
    std::string text;
    for (const auto& line : lines) text += line + "\n";
    return text;
}

unsigned modeOf(const std::string& path) {
    struct stat info {};
    if (::stat(path.c_str(), &info) != 0) return 0;
    return info.st_mode & 07777;
}

std::optional<AuditLoggerError> errorOf(const std::function<void()>& call) {
    try {
        call();
    } catch (const AuditLoggerError& error) {
        return error;
    }
    return std::nullopt;
}

struct Fixture {
    TempHome home;
    std::shared_ptr<FaultyFileSystem> fileSystem = std::make_shared<FaultyFileSystem>();
    AuditLogger logger{std::nullopt, FileURL(home.path(), true), fileSystem};
    std::string logPath = home.at(".unbulk/audit.jsonl");

    AuditLogEntry recordOne(AuditLogger& into, std::int64_t bytes = 1,
                            Date date = at("2026-03-01T10:15:30.123Z")) {
        return into.record(Uuid::random(), AuditOperationType::trash, 1, bytes, {home.at("a")}, "cli", 5.0, date);
    }
    AuditLogEntry recordOne(std::int64_t bytes = 1) { return recordOne(logger, bytes); }
    Strings lines() const { return linesOf(readText(logPath)); }
};

// ---- the hash ------------------------------------------------------------------

TEST(AuditLoggerTest, Sha256MatchesThePublishedVectors) {
    EXPECT_EQ(sha256Hex(""), "e3b0c44298fc1c149afbf4c8996fb92427ae41e4649b934ca495991b7852b855");
    EXPECT_EQ(sha256Hex("abc"), "ba7816bf8f01cfea414140de5dae2223b00361a396177a9cb410ff61f20015ad");
}

TEST(AuditLoggerTest, ComputeHashMatchesTheIndependentVectors) {
    EXPECT_EQ(AuditLogger::computeHash(zeros, "2026-03-01T10:15:30.123Z", firstId, "trash", 2, 4096,
                                       {"/Users/me/B", "/Users/me/A"}, "cli", 1234.5),
              firstHash);
    EXPECT_EQ(AuditLogger::computeHash(firstHash, "2026-03-01T10:15:30.123Z", secondId, "dry_run", 0, 0, {}, "mcp",
                                       std::nullopt),
              secondHash);
    // An absent duration hashes as the duration 0.
    EXPECT_EQ(AuditLogger::computeHash(firstHash, "2026-03-01T10:15:30.123Z", secondId, "dry_run", 0, 0, {}, "mcp",
                                       0.0),
              secondHash);
}

TEST(AuditLoggerTest, DurationTextIsTheShortestPlainDecimalWithAPoint) {
    const std::vector<std::pair<std::optional<double>, const char*>> cases{
        {1234.5, "1234.5"},   {100.0, "100.0"},      {std::nullopt, "0.0"}, {0.0, "0.0"},
        {0.1, "0.1"},         {1e-7, "0.0000001"},   {2.0 / 3.0, "0.6666666666666666"},
        {1e16, "10000000000000000.0"},               {-3.0, "-3.0"},
    };
    for (const auto& [value, text] : cases) {
        EXPECT_EQ(AuditLogger::durationText(value), text);
        if (value) {
            EXPECT_EQ(std::strtod(text, nullptr), *value) << text; // reads back as the same double
        }
    }
}

// ---- writing ---------------------------------------------------------------------

TEST(AuditLoggerTest, FirstRecordWritesTheExactLineInAPrivateFileAndDirectory) {
    Fixture f;
    auto entry = f.logger.record(*Uuid::parse(firstId), AuditOperationType::trash, 2, 4096,
                                 {"/Users/me/B", "/Users/me/A"}, "cli", 1234.5, at("2026-03-01T10:15:30.123Z"));
    EXPECT_EQ(entry.previousHash, zeros);
    EXPECT_EQ(entry.rollingHash, firstHash);
    EXPECT_EQ(entry.paths, (Strings{"/Users/me/B", "/Users/me/A"})); // the given order
    EXPECT_EQ(f.logger.lastHash(), firstHash);

    // Sorted keys, "/" escaped, paths in the given order, one line feed.
    EXPECT_EQ(readText(f.logPath),
              std::string(R"({"bytesUnbulked":4096,"client":"cli","durationMs":1234.5,"itemsCount":2,)") +
                  R"("operationId":"E621E1F8-C36C-495A-93FC-0C247A3E6E5F","operationType":"trash",)" +
                  R"("paths":["\/Users\/me\/B","\/Users\/me\/A"],"previousHash":")" + zeros +
                  R"(","rollingHash":")" + firstHash + R"(","timestamp":"2026-03-01T10:15:30.123Z"})" + "\n");
    EXPECT_EQ(modeOf(f.logPath), 0600u);
    EXPECT_EQ(modeOf(f.home.at(".unbulk")), 0700u);

    auto second = f.logger.record(*Uuid::parse(secondId), AuditOperationType::dryRun, 0, 0, {}, "mcp",
                                  std::nullopt, at("2026-03-01T10:15:30.123Z"));
    EXPECT_EQ(second.previousHash, firstHash);
    EXPECT_EQ(second.rollingHash, secondHash);
    auto lines = f.lines();
    ASSERT_EQ(lines.size(), 2u);
    EXPECT_EQ(lines[1].find("durationMs"), std::string::npos);
    EXPECT_EQ(modeOf(f.logPath), 0600u); // appending keeps the mode

    EXPECT_EQ(f.logger.readEntries(), (std::vector<AuditLogEntry>{entry, second}));
    EXPECT_EQ(f.logger.verifyIntegrity(), (AuditVerificationResult{.isValid = true, .totalEntries = 2}));
}

TEST(AuditLoggerTest, MissingLogReadsEmptyAndVerifiesWithoutCreatingAnything) {
    Fixture f;
    EXPECT_TRUE(f.logger.readEntries().empty());
    EXPECT_EQ(f.logger.verifyIntegrity(), (AuditVerificationResult{.isValid = true, .totalEntries = 0}));
    EXPECT_FALSE(f.fileSystem->fileExists(f.home.at(".unbulk")));
    EXPECT_EQ(f.logger.lastHash(), std::nullopt);
}

TEST(AuditLoggerTest, EntriesInTheSameMillisecondStayDistinctThroughIdAndChain) {
    Fixture f;
    auto a = f.recordOne();
    auto b = f.recordOne();
    EXPECT_EQ(a.timestamp, b.timestamp);
    EXPECT_NE(a.operationId, b.operationId);
    EXPECT_NE(a.rollingHash, b.rollingHash);
    EXPECT_TRUE(f.logger.verifyIntegrity().isValid);
}

TEST(AuditLoggerTest, TheFileIsTheAuthorityAcrossLoggersAndThreads) {
    Fixture f;
    AuditLogger other(FileURL(f.logPath), FileURL(f.home.path(), true), f.fileSystem);
    auto a = f.recordOne(f.logger);
    auto b = f.recordOne(other);
    auto c = f.recordOne(f.logger); // chains on b, which this logger never wrote
    EXPECT_EQ(b.previousHash, a.rollingHash);
    EXPECT_EQ(c.previousHash, b.rollingHash);

    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t) {
        threads.emplace_back([&] {
            for (int i = 0; i < 5; ++i) f.recordOne(f.logger);
        });
    }
    for (auto& thread : threads) thread.join();
    EXPECT_EQ(f.logger.verifyIntegrity(), (AuditVerificationResult{.isValid = true, .totalEntries = 23}));
}

// ---- tampering -------------------------------------------------------------------

TEST(AuditLoggerTest, EditedBytesGiveARollingHashMismatchAtThatLine) {
    Fixture f;
    f.recordOne(10);
    auto edited = f.recordOne(4096);
    f.recordOne(30);
    auto lines = f.lines();
    const auto pos = lines[1].find("\"bytesUnbulked\":4096");
    ASSERT_NE(pos, std::string::npos);
    lines[1].replace(pos, 20, "\"bytesUnbulked\":9999");
    writeText(f.logPath, joinLines(lines));

    const std::string computed =
        AuditLogger::computeHash(edited.previousHash, edited.timestamp, edited.operationId, "trash", 1, 9999,
                                 edited.paths, "cli", 5.0);
    EXPECT_EQ(f.logger.verifyIntegrity(),
              (AuditVerificationResult{.isValid = false,
                                       .totalEntries = 3,
                                       .tamperedLineIndex = 1,
                                       .failureReason = "Rolling hash mismatch at line 2. Content was modified. "
                                                        "Computed " + computed + ", stored " + edited.rollingHash}));
}

TEST(AuditLoggerTest, DeletingAMiddleLineBreaksTheChainAtTheLineAfterIt) {
    Fixture f;
    auto first = f.recordOne();
    auto middle = f.recordOne();
    f.recordOne();
    auto lines = f.lines();
    lines.erase(lines.begin() + 1);
    writeText(f.logPath, joinLines(lines));
    EXPECT_EQ(f.logger.verifyIntegrity(),
              (AuditVerificationResult{.isValid = false,
                                       .totalEntries = 2,
                                       .tamperedLineIndex = 1,
                                       .failureReason = "Previous hash mismatch at line 2. Expected " +
                                                        first.rollingHash + ", got " + middle.rollingHash}));
}

TEST(AuditLoggerTest, DeletingTheLastLineGoesUnnoticedAndTheNextRecordChainsOnTheNewLast) {
    Fixture f;
    f.recordOne();
    auto kept = f.recordOne();
    auto dropped = f.recordOne();
    EXPECT_EQ(f.logger.lastHash(), dropped.rollingHash);
    auto lines = f.lines();
    lines.pop_back();
    writeText(f.logPath, joinLines(lines));
    EXPECT_EQ(f.logger.verifyIntegrity(), (AuditVerificationResult{.isValid = true, .totalEntries = 2}));

    auto next = f.recordOne();
    EXPECT_EQ(next.previousHash, kept.rollingHash); // the file, not the remembered hash
    EXPECT_TRUE(f.logger.verifyIntegrity().isValid);
}

TEST(AuditLoggerTest, BlankLinesAreSkippedWithoutShiftingTheLineNumber) {
    Fixture f;
    f.recordOne(1);
    f.recordOne(2);
    auto lines = f.lines();
    // Blank and white-space lines, a CRLF ending and a Unicode line separator.
    writeText(f.logPath, "\n  \t\n" + lines[0] + "\r\n\n\u2028 \n" + lines[1] + "\n\n");
    EXPECT_EQ(f.logger.readEntries().size(), 2u);
    EXPECT_EQ(f.logger.verifyIntegrity(), (AuditVerificationResult{.isValid = true, .totalEntries = 2}));

    const auto pos = lines[1].find("\"bytesUnbulked\":2");
    lines[1].replace(pos, 17, "\"bytesUnbulked\":3");
    writeText(f.logPath, "\n\n" + lines[0] + "\n \n\n" + lines[1] + "\n");
    auto result = f.logger.verifyIntegrity();
    EXPECT_EQ(result.tamperedLineIndex, 1);
    EXPECT_EQ(result.failureReason.value_or("").rfind("Rolling hash mismatch at line 2.", 0), 0u);
}

TEST(AuditLoggerTest, AGarbageLineFailsReadRecordAndVerifyWithItsLine) {
    Fixture f;
    f.recordOne();
    const std::string good = f.lines()[0];

    auto check = [&](std::int64_t line, const std::function<void()>& call) {
        auto error = errorOf(call);
        ASSERT_TRUE(error.has_value());
        EXPECT_EQ(error->kind, Kind::decodingFailed);
        EXPECT_EQ(error->line, line);
        const std::string prefix = "Failed to parse audit log at line " + std::to_string(line) + ": ";
        EXPECT_EQ(std::string(error->what()).rfind(prefix, 0), 0u) << error->what();
        EXPECT_GT(std::string(error->what()).size(), prefix.size()); // the parser's reason follows
    };
    // Not JSON, then JSON that is not an entry; blank lines do not count.
    for (const std::string& garbage : {std::string("garbage"), std::string(R"({"not": "an entry"})")}) {
        const std::string before = "\n" + good + "\n\n" + garbage + "\n" + good + "\n";
        writeText(f.logPath, before);
        check(2, [&] { f.logger.readEntries(); });
        check(2, [&] { f.recordOne(); });
        check(2, [&] { f.logger.verifyIntegrity(); });
        EXPECT_EQ(readText(f.logPath), before); // the failed record added nothing
    }
    writeText(f.logPath, "{\"bytesUnbulked\":\n");
    check(1, [&] { f.logger.readEntries(); });
}

// ---- failures ---------------------------------------------------------------------

TEST(AuditLoggerTest, WriteFailuresRaiseWriteFailedAndLeaveTheFileAsItWas) {
    Fixture f;
    f.fileSystem->failOn(FileSystemCall::writeFileAtomically, f.logPath, ENOSPC);
    EXPECT_EQ(errorOf([&] { f.recordOne(); }),
              AuditLoggerError(Kind::writeFailed, "Unable to create log file: No space left on device"));
    EXPECT_EQ(std::string(errorOf([&] { f.recordOne(); })->what()),
              "Failed to write audit log entry: Unable to create log file: No space left on device");
    EXPECT_FALSE(f.fileSystem->fileExists(f.logPath));
    EXPECT_EQ(f.logger.lastHash(), zeros); // kept from the chain step

    f.fileSystem->clearFailures();
    auto first = f.recordOne();
    const std::string before = readText(f.logPath);
    f.fileSystem->failOn(FileSystemCall::appendToFile, f.logPath, ENOSPC);
    EXPECT_EQ(errorOf([&] { f.recordOne(); }),
              AuditLoggerError(Kind::writeFailed, "Failed to append data to log file: No space left on device"));
    EXPECT_EQ(readText(f.logPath), before);
    EXPECT_EQ(f.logger.lastHash(), first.rollingHash);
}

TEST(AuditLoggerTest, DirectoryAndReadFailuresHaveTheirOwnKinds) {
    Fixture f;
    f.fileSystem->failOn(FileSystemCall::createDirectory, f.home.at(".unbulk"), EACCES);
    auto error = errorOf([&] { f.recordOne(); });
    EXPECT_EQ(error, AuditLoggerError(Kind::directoryCreationFailed, "Permission denied"));
    EXPECT_STREQ(error->what(), "Failed to create ~/.unbulk directory: Permission denied");
    EXPECT_FALSE(f.fileSystem->fileExists(f.logPath));

    f.fileSystem->clearFailures();
    f.recordOne();
    f.fileSystem->failOn(FileSystemCall::readFile, f.logPath, EACCES);
    EXPECT_STREQ(errorOf([&] { f.logger.readEntries(); })->what(),
                 "Failed to read audit log file: Could not read audit log: Permission denied");
    EXPECT_EQ(errorOf([&] { f.recordOne(); })->kind, Kind::readFailed);
}

TEST(AuditLoggerTest, TextThatCannotBeEncodedIsRefusedBeforeWriting) {
    Fixture f;
    f.recordOne();
    const std::string before = readText(f.logPath);
    const auto encodeFailure = AuditLoggerError(Kind::writeFailed, "Failed to encode audit entry to JSON.");
    EXPECT_EQ(errorOf([&] {
                  f.logger.record(Uuid::random(), AuditOperationType::purge, 1, 1, {"/h/bad\xFF"}, "cli",
                                  std::nullopt);
              }),
              encodeFailure);
    EXPECT_EQ(errorOf([&] {
                  f.logger.record(Uuid::random(), AuditOperationType::purge, 1, 1, {"/h/a"}, "cli",
                                  std::numeric_limits<double>::infinity());
              }),
              encodeFailure);
    EXPECT_EQ(readText(f.logPath), before);
}

} // namespace
} // namespace unbulk
