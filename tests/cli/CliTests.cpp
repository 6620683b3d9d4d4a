// Runs the built unbulk program as a child process inside a temporary home
// (which the child inherits through HOME and XDG_DATA_HOME) and checks what
// it writes on each stream and the status it exits with.

#include <algorithm>
#include <filesystem>
#include <regex>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Models/Categories.hpp"
#include "Safety/AuditLogger.hpp"
#include "Platform/ByteCountFormatter.hpp"
#include "Support/FileURL.hpp"
#include "Support/Json.hpp"
#include "Support/Text.hpp"
#include "support/ProcessRunner.hpp"
#include "support/TempHome.hpp"

namespace {

namespace fs = std::filesystem;
using unbulk::Json;
using unbulk::testing::ProcessResult;
using Strings = std::vector<std::string>;

const std::string kHelp =
    "Unbulk: High-performance, developer-aware macOS system cleaner\n\nUSAGE:\n"
    "  unbulk <command> [options]\n\nCOMMANDS:\n"
    "  scan          Scan disk for developer bloat, AI model weights, and system junk\n"
    "  clean         Clean discovered bloat or specified paths (Trash-first safety)\n"
    "  uninstaller   List installed apps, orphaned files, or uninstall an app\n"
    "  spacelens     Contoura: hierarchical directory storage analyzer (subcommand: spacelens)\n"
    "  maintenance   Execute system maintenance (flush DNS, APFS purgeable, Spotlight)\n"
    "  vitals        Show real-time Mach kernel CPU, RAM, disk, and battery vitals\n"
    "  rules         View and manage dynamic cleanup rules\n"
    "  fda           Check Full Disk Access permissions or open System Settings\n"
    "  mcp           Start Model Context Protocol (MCP) server over stdio\n\nGLOBAL FLAGS:\n"
    "  --json        Output machine-readable JSON on stdout\n"
    "  --dry-run     Simulate cleanup without touching files (default for clean)\n"
    "  -h, --help    Show help information\n";

std::string describe(const Strings& words) {
    std::string text = "unbulk";
    for (const auto& word : words) text += " '" + word + "'";
    return text;
}

class CliTest : public ::testing::Test {
protected:
    static ProcessResult run(const Strings& words) {
        ProcessResult result = unbulk::testing::runProcess(UNBULK_BINARY, words);
        EXPECT_FALSE(result.timedOut || result.signal != 0) << describe(words);
        return result;
    }

    // A successful run with --json: one pretty document with sorted keys and
    // nothing else on stdout, nothing on stderr.
    static Json jsonOf(const Strings& words) {
        const ProcessResult result = run(words);
        EXPECT_EQ(result.exitStatus, 0) << describe(words) << "\n" << result.standardError;
        EXPECT_EQ(result.standardError, "") << describe(words);
        const Json document = Json::parse(result.standardOutput, nullptr, false);
        EXPECT_EQ(result.standardOutput, unbulk::json::pretty(document) + "\n") << describe(words);
        return document.is_discarded() ? Json::object() : document;
    }

    unbulk::AuditLogger auditLogger() const {
        return unbulk::AuditLogger(std::nullopt, unbulk::FileURL(home.path(), true), unbulk::makeDefaultFileSystem());
    }

    unbulk::testing::TempHome home;
};

TEST_F(CliTest, FixedOutputsWithTheirStatus) {
    const std::string granted = "Full Disk Access (FDA) status: GRANTED (Full access)\n";
    // "--open" opens nothing on Linux (no handler knows the Mac's settings): the line is
    // printed all the same and the status stays 0.
    const std::string opening = "Opening macOS System Settings > Privacy & Security > Full Disk Access...\n";
    const std::vector<std::tuple<Strings, std::string, std::string, int>> cases{
        {{}, kHelp, "", 0},
        {{"--help"}, kHelp, "", 0},
        {{"-h"}, kHelp, "", 0},
        {{"-h", "scan"}, kHelp, "", 0},
        {{"SCAN"}, "", "Unknown command: 'SCAN'. Run 'unbulk --help' for usage.\n", 1},
        {{"fda", "status", "--OPEN"}, granted, "", 0},
        {{"fda", "x", "--open"}, opening, "", 0},
        // An empty home has nothing to clean, whatever the flags.
        {{"clean", "--json"}, "{\"status\":\"nothing_to_clean\"}\n", "", 0},
        {{"clean", "--permanent", "--execute", "-y"}, "No cleanable files found for the selected categories.\n", "", 0},
    };
    for (const auto& [words, out, err, status] : cases) {
        const ProcessResult result = run(words);
        EXPECT_EQ(result.standardOutput, out) << describe(words);
        EXPECT_EQ(result.standardError, err) << describe(words);
        EXPECT_EQ(result.exitStatus, status) << describe(words);
    }
    EXPECT_FALSE(fs::exists(home.at(".unbulk")));

    // A guarded folder that exists but is a file cannot be listed: not granted.
    home.writeFile("Library/Safari", "not a folder");
    EXPECT_EQ(run({"fda"}).standardOutput,
              "Full Disk Access (FDA) status: NOT GRANTED (Standard access)\n"
              "  Note: Unbulk cleans all developer bloat, package caches, DerivedData, and Docker VMs without FDA.\n"
              "  To grant access for protected Safari, Mail, and Time Machine paths, run:\n"
              "       unbulk fda --open\n");
}

TEST_F(CliTest, ScanJsonAndTextReportOfOneHome) {
    // Things the targets find, of distinct sizes so that the breakdown order
    // does not hang on ties.
    home.writeFile(".npm/_cacache/content-v2/sha512/ab/cdef", 1'500'000);
    home.writeFile("Library/Caches/com.example.editor/Cache.db", 300'000);
    home.writeFile("Library/Logs/example/example.log", 40'000);

    const Json document = jsonOf({"scan", "--json"});
    ASSERT_EQ(document["items"].size(), 3u) << document;
    Strings all;
    for (const auto& entry : unbulk::storageCategoryTable) all.emplace_back(entry.rawValue);
    std::sort(all.begin(), all.end());
    EXPECT_EQ(document["scannedCategories"], all);

    // "-h" behind the command word is an unknown word and ignored: a scan runs.
    const ProcessResult text = run({"scan", "-h"});
    EXPECT_TRUE(text.exitStatus == 0 && text.standardError.empty()) << text.standardError;
    const std::regex head("^Scanning storage for system junk, developer bloat, and AI models\\.\\.\\.\n"
                          "\nScan Completed in \\d+\\.\\d\\ds\n");
    std::smatch match;
    ASSERT_TRUE(std::regex_search(text.standardOutput, match, head)) << text.standardOutput;
    // Sizes as the file system allocated them, in the order of the JSON breakdown: largest first.
    const Json& summary = document["summary"];
    const auto size = [](const Json& sums) {
        return unbulk::formatByteCount(sums["totalAllocatedBytes"].get<std::int64_t>());
    };
    EXPECT_EQ(match.suffix().str(),
              "Found 3 items taking " + size(summary) + "\n\nCategory Breakdown:\n  \u2022 Developer Caches: " +
                  size(summary["categoryBreakdown"][0]) + " (1 items) [Safe to Clean]\n  \u2022 User System Caches: " +
                  size(summary["categoryBreakdown"][1]) + " (1 items) [Safe to Clean]\n  \u2022 User & System Logs: " +
                  size(summary["categoryBreakdown"][2]) + " (1 items) [Safe to Clean]\n");
}

TEST_F(CliTest, CategoryOptionTakesOnlyAnExactRawValueAsTheNextWord) {
    // The exact one alone is the end-to-end tests' business; anything else scans all sixteen.
    for (const Strings& words : std::vector<Strings>{{"scan", "--category", "docker_vm", "--json"},
                                                     {"scan", "--json", "--category"},
                                                     {"scan", "--category=DOCKER_VM", "--json"}}) {
        EXPECT_EQ(jsonOf(words)["scannedCategories"].size(), 16u) << describe(words);
    }
}

TEST_F(CliTest, RulesListsTheBuiltInsInIdOrder) {
    const ProcessResult result = run({"rules"});
    ASSERT_EQ(result.exitStatus, 0) << result.standardError;
    const Strings lines = unbulk::text::splitNonEmpty(result.standardOutput, '\n');
    ASSERT_EQ(lines.size(), 25u) << result.standardOutput;
    EXPECT_EQ(lines.front(), "Active cleanup rules (24):");
    EXPECT_EQ(lines[1], "  \u2022 [ai.huggingface.hub] HuggingFace Hub Models: ~/.cache/huggingface/hub/**, "
                        "~/.cache/huggingface/assets/** [Review Required]");
    EXPECT_EQ(lines.back(), "  \u2022 [sys.user.logs] User Application Logs: ~/Library/Logs/** [Safe to Clean]");
    // Each line starts with its id, and no id is a prefix of another.
    EXPECT_TRUE(std::is_sorted(lines.begin() + 1, lines.end()));
}

// One home with an npm cache (DEVELOPER_CACHE) and an application cache
// (SYSTEM_CACHES) of the safe default, and a model (AI_MODEL_WEIGHTS) that
// the default leaves alone, taken from refusal through a dry run to the Trash.
TEST_F(CliTest, CleanIsRefusedThenADryRunThenMovesToTheTrash) {
    home.writeFile(".npm/_cacache/content-v2/sha512/ab/cdef", 1'500'000);
    home.writeFile("Library/Caches/com.example.editor/Cache.db", 300'000);
    home.writeFile(".cache/huggingface/hub/models--org--m/blob", 2'000);
    const std::set<std::string> safe{home.at(".npm/_cacache"), home.at("Library/Caches/com.example.editor")};
    const std::string model = home.at(".cache/huggingface/hub/models--org--m");
    const auto allThere = [&] { return fs::exists(model) && fs::exists(*safe.begin()) && fs::exists(*safe.rbegin()); };

    // An unconfirmed purge: with --execute refused before any scan, without
    // it refused by the pipeline after one.
    const std::vector<std::pair<Strings, std::string>> refusals{
        {{"clean", "--permanent", "--execute"}, "Permanent purge requires explicit confirmation via '--yes'.\n"},
        {{"clean", "--permanent"}, "Error: Permanent purge was requested without explicit confirmation flag.\n"},
    };
    for (const auto& [words, error] : refusals) {
        const ProcessResult result = run(words);
        EXPECT_EQ(result.standardError, error) << describe(words);
        EXPECT_EQ(result.standardOutput, "") << describe(words);
        EXPECT_EQ(result.exitStatus, 1) << describe(words);
        EXPECT_FALSE(fs::exists(home.at(".unbulk"))) << describe(words);
    }
    EXPECT_TRUE(allThere());

    const ProcessResult dryRun = run({"clean"});
    ASSERT_EQ(dryRun.exitStatus, 0) << dryRun.standardError;
    const auto entries = auditLogger().readEntries();
    ASSERT_EQ(entries.size(), 1u);
    EXPECT_EQ(entries[0].operationType, unbulk::AuditOperationType::dryRun);
    EXPECT_EQ(std::set<std::string>(entries[0].paths.begin(), entries[0].paths.end()), safe);
    EXPECT_EQ(dryRun.standardOutput,
              "\n[DRY RUN] Cleanup Summary:\n  Items Processed: 2\n  Successful: 2\n  Space Unbulked: " +
                  unbulk::formatByteCount(entries[0].bytesUnbulked) +
                  "\n\nTo apply these deletions, run again with '--execute'. All items will be moved to macOS "
                  "Trash.\n");
    EXPECT_TRUE(allThere());

    const Json summary = jsonOf({"clean", "--execute", "--json"});
    std::set<std::string> sources;
    for (const auto& record : summary["records"]) sources.insert(record["sourcePath"].get<std::string>());
    EXPECT_EQ(sources, safe);
    EXPECT_TRUE(fs::exists(model)) << "not in the safe default";
    EXPECT_FALSE(fs::exists(*safe.begin()) || fs::exists(*safe.rbegin()));

    EXPECT_EQ(auditLogger().readEntries().at(1).operationId, summary["operationId"].get<std::string>());
    EXPECT_EQ(auditLogger().verifyIntegrity(), (unbulk::AuditVerificationResult{.isValid = true, .totalEntries = 2}));
}

// --permanent --yes purges with or without --execute; the report says what
// happened, never "[DRY RUN]" over a purge.
TEST_F(CliTest, APurgeWithoutExecuteIsReportedAsAPurge) {
    const std::string cache = home.writeFile("Library/Caches/com.example.editor/Cache.db", 300'000);
    const ProcessResult result = run({"clean", "--permanent", "--yes", "--category", "SYSTEM_CACHES"});
    ASSERT_EQ(result.exitStatus, 0) << result.standardError;
    EXPECT_FALSE(fs::exists(cache));
    const auto entries = auditLogger().readEntries();
    ASSERT_EQ(entries.size(), 1u);
    EXPECT_EQ(result.standardOutput, "\n[PERMANENT PURGE] Cleanup Summary:\n  Items Processed: 1\n  Successful: 1\n"
                                     "  Space Unbulked: " +
                                         unbulk::formatByteCount(entries[0].bytesUnbulked) + "\n");
}

} // namespace
