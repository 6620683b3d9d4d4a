// Runs the built unbulk program as a child process inside a temporary home
// and checks what it writes on each stream and the status it exits with.

#include <algorithm>
#include <filesystem>
#include <regex>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Models/Categories.hpp"
#include "Safety/AuditLogger.hpp"
#include "Support/ByteCount.hpp"
#include "Support/FileURL.hpp"
#include "Support/Json.hpp"
#include "support/ProcessRunner.hpp"
#include "support/TempHome.hpp"

namespace {

using unbulk::Json;
using unbulk::testing::ProcessOptions;
using unbulk::testing::ProcessResult;
using unbulk::testing::TempHome;
using Words = std::vector<std::string>;

const std::string kHelp =
    "Unbulk: High-performance, developer-aware macOS system cleaner\n"
    "\n"
    "USAGE:\n"
    "  unbulk <command> [options]\n"
    "\n"
    "COMMANDS:\n"
    "  scan          Scan disk for developer bloat, AI model weights, and system junk\n"
    "  clean         Clean discovered bloat or specified paths (Trash-first safety)\n"
    "  uninstaller   List installed apps, orphaned files, or uninstall an app\n"
    "  spacelens     Contoura: hierarchical directory storage analyzer (subcommand: spacelens)\n"
    "  maintenance   Execute system maintenance (flush DNS, APFS purgeable, Spotlight)\n"
    "  vitals        Show real-time Mach kernel CPU, RAM, disk, and battery vitals\n"
    "  rules         View and manage dynamic cleanup rules\n"
    "  fda           Check Full Disk Access permissions or open System Settings\n"
    "  mcp           Start Model Context Protocol (MCP) server over stdio\n"
    "\n"
    "GLOBAL FLAGS:\n"
    "  --json        Output machine-readable JSON on stdout\n"
    "  --dry-run     Simulate cleanup without touching files (default for clean)\n"
    "  -h, --help    Show help information\n";

const std::string kScanningLine = "Scanning storage for system junk, developer bloat, and AI models...\n";

std::string describe(const Words& words) {
    std::string text = "unbulk";
    for (const auto& word : words) text += " '" + word + "'";
    return text;
}

std::vector<std::string> allRawValuesSorted() {
    std::vector<std::string> raw;
    for (const auto& entry : unbulk::storageCategoryTable) raw.emplace_back(entry.rawValue);
    std::sort(raw.begin(), raw.end());
    return raw;
}

class CliTest : public ::testing::Test {
protected:
    ProcessResult run(const Words& words) const {
        ProcessOptions options;
        options.environment = {{"HOME", home_.path()}, {"XDG_DATA_HOME", home_.at(".local/share")}};
        ProcessResult result = unbulk::testing::runProcess(UNBULK_BINARY, words, options);
        EXPECT_FALSE(result.timedOut) << describe(words);
        EXPECT_EQ(result.signal, 0) << describe(words);
        return result;
    }

    // A successful `scan --json`: one pretty document with sorted keys and
    // nothing else on stdout, nothing on stderr.
    Json scanJson(const Words& words) const {
        ProcessResult result = run(words);
        EXPECT_EQ(result.exitStatus, 0) << describe(words) << "\n" << result.standardError;
        EXPECT_EQ(result.standardError, "") << describe(words);
        Json document = Json::parse(result.standardOutput, nullptr, false);
        EXPECT_FALSE(document.is_discarded()) << describe(words) << "\n" << result.standardOutput;
        if (document.is_discarded()) return Json::object();
        EXPECT_EQ(result.standardOutput, unbulk::json::pretty(document) + "\n") << describe(words);
        return document;
    }

    static std::vector<std::string> scannedCategories(const Json& document) {
        std::vector<std::string> raw;
        for (const auto& value : document.value("scannedCategories", Json::array())) raw.push_back(value.get<std::string>());
        return raw;
    }

    TempHome home_;
};

TEST_F(CliTest, HelpIsPrintedWithoutArgumentsOrWithAHelpFlagFirst) {
    const std::vector<Words> cases{
        {}, {"--help"}, {"-h"}, {"-h", "scan"}, {"--help", "scan", "--json"}, {"-h", "NOT_A_COMMAND"},
    };
    for (const auto& words : cases) {
        ProcessResult result = run(words);
        EXPECT_EQ(result.standardOutput, kHelp) << describe(words);
        EXPECT_EQ(result.standardError, "") << describe(words);
        EXPECT_EQ(result.exitStatus, 0) << describe(words);
    }
}

TEST_F(CliTest, UnknownCommandsAreNamedOnStandardErrorWithStatusOne) {
    const std::vector<Words> cases{
        {"SCAN"}, {"Scan", "--json"}, {""}, {"scan "}, {"--json"}, {"--HELP"}, {"help"}, {"s\u00e7an"}, {"--help=1"},
    };
    for (const auto& words : cases) {
        ProcessResult result = run(words);
        EXPECT_EQ(result.standardError, "Unknown command: '" + words.front() + "'. Run 'unbulk --help' for usage.\n")
            << describe(words);
        EXPECT_EQ(result.standardOutput, "") << describe(words);
        EXPECT_EQ(result.exitStatus, 1) << describe(words);
    }
}

TEST_F(CliTest, HelpFlagsBehindTheCommandWordAreIgnored) {
    for (const Words& words : std::vector<Words>{{"scan", "-h"}, {"scan", "--help"}, {"scan", "unknown", "words"}}) {
        ProcessResult result = run(words);
        EXPECT_EQ(result.exitStatus, 0) << describe(words) << "\n" << result.standardError;
        EXPECT_EQ(result.standardError, "") << describe(words);
        EXPECT_TRUE(result.standardOutput.starts_with(kScanningLine + "\nScan Completed in ")) << result.standardOutput;
        EXPECT_EQ(result.standardOutput.find("USAGE:"), std::string::npos) << describe(words);
    }
}

TEST_F(CliTest, ScanJsonIsOneScanResultWithIsoDates) {
    Json document = scanJson({"scan", "--json"});
    ASSERT_TRUE(document.is_object());

    std::set<std::string> keys;
    for (const auto& [key, value] : document.items()) keys.insert(key);
    EXPECT_EQ(keys, (std::set<std::string>{"completedAt", "durationSeconds", "items", "scanId", "scannedCategories",
                                           "startedAt", "summary", "warnings"}));

    const std::regex isoDate(R"(^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ$)");
    for (const char* key : {"startedAt", "completedAt"}) {
        ASSERT_TRUE(document[key].is_string()) << key;
        EXPECT_TRUE(std::regex_match(document[key].get<std::string>(), isoDate)) << document[key];
    }
    EXPECT_LE(document["startedAt"].get<std::string>(), document["completedAt"].get<std::string>());
    EXPECT_TRUE(std::regex_match(document["scanId"].get<std::string>(),
                                 std::regex("^[0-9A-F]{8}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{4}-[0-9A-F]{12}$")))
        << document["scanId"];
    ASSERT_TRUE(document["durationSeconds"].is_number());
    EXPECT_GE(document["durationSeconds"].get<double>(), 0.0);
    EXPECT_TRUE(document["items"].is_array());
    EXPECT_TRUE(document["warnings"].is_array());
    for (const char* key : {"totalItems", "totalLogicalBytes", "totalAllocatedBytes", "safeUnbulkableBytes",
                            "reviewUnbulkableBytes", "requiresFullDiskAccess", "categoryBreakdown"}) {
        EXPECT_TRUE(document["summary"].contains(key)) << key;
    }
    for (const auto& item : document["items"]) {
        for (const char* key : {"lastAccessedDate", "lastModifiedDate"}) {
            if (item.contains(key)) {
                EXPECT_TRUE(std::regex_match(item[key].get<std::string>(), isoDate)) << item[key];
            }
        }
    }
    EXPECT_EQ(scannedCategories(document), allRawValuesSorted());
}

TEST_F(CliTest, CategoryOptionTakesOnlyAnExactRawValueAsTheNextWord) {
    const std::vector<std::string> all = allRawValuesSorted();
    struct Case {
        Words words;
        std::vector<std::string> expected;
    };
    const std::vector<Case> cases{
        {{"scan", "--category", "DOCKER_VM", "--json"}, {"DOCKER_VM"}},
        {{"scan", "--json", "--category", "LEFTOVERS"}, {"LEFTOVERS"}},
        {{"scan", "--category", "DOCKER_VM", "--category", "LEFTOVERS", "--json"}, {"DOCKER_VM"}},
        {{"scan", "--category", "docker_vm", "--json"}, all},
        {{"scan", "--category", "dockerVM", "--json"}, all},
        {{"scan", "--json", "--category"}, all},
        {{"scan", "--category=DOCKER_VM", "--json"}, all},
        // The word after "--category" is its value even when it is a flag;
        // "--json" still counts as present.
        {{"scan", "--category", "--json"}, all},
    };
    for (const auto& c : cases) {
        Json document = scanJson(c.words);
        EXPECT_EQ(scannedCategories(document), c.expected) << describe(c.words);
    }
}

TEST_F(CliTest, ScanTextReportAgreesWithTheJsonOfTheSameHome) {
    // Things the targets may find, of distinct sizes so that the breakdown
    // order does not hang on ties.
    home_.writeFile(".npm/_cacache/content-v2/sha512/ab/cdef", 1'500'000);
    home_.writeFile("Library/Caches/com.example.editor/Cache.db", 300'000);
    home_.writeFile("Library/Logs/example/example.log", 40'000);
    home_.writeFile("Library/Logs/DiagnosticReports/example.crash", 7'000);

    ProcessResult text = run({"scan"});
    ASSERT_EQ(text.exitStatus, 0) << text.standardError;
    EXPECT_EQ(text.standardError, "");
    const std::regex head("^Scanning storage for system junk, developer bloat, and AI models\\.\\.\\.\n"
                          "\nScan Completed in \\d+\\.\\d\\ds\n");
    std::smatch match;
    ASSERT_TRUE(std::regex_search(text.standardOutput, match, head)) << text.standardOutput;
    const std::string rest = match.suffix();

    Json document = scanJson({"scan", "--json"});
    const Json& summary = document["summary"];
    std::string expected = "Found " + std::to_string(document["items"].size()) + " items taking " +
                           unbulk::formatByteCount(summary["totalAllocatedBytes"].get<std::int64_t>()) +
                           "\n\nCategory Breakdown:\n";
    std::int64_t previous = INT64_MAX;
    for (const auto& entry : summary["categoryBreakdown"]) {
        const auto bytes = entry["totalAllocatedBytes"].get<std::int64_t>();
        EXPECT_LE(bytes, previous) << "breakdown is not largest first";
        previous = bytes;
        const auto category = unbulk::storageCategoryFromRawValue(entry["category"].get<std::string>());
        const auto tier = unbulk::riskTierFromRawValue(entry["riskTier"].get<std::string>());
        ASSERT_TRUE(category && tier) << entry;
        expected += "  \u2022 " + std::string(unbulk::displayName(*category)) + ": " + unbulk::formatByteCount(bytes) +
                    " (" + std::to_string(entry["itemCount"].get<std::int64_t>()) + " items) [" +
                    std::string(unbulk::displayName(*tier)) + "]\n";
    }
    EXPECT_EQ(rest, expected);
}

} // namespace

namespace {

TEST_F(CliTest, RulesListsTheBuiltInsInIdOrderAndIgnoresItsWords) {
    for (const Words& words : std::vector<Words>{{"rules"}, {"rules", "--json"}, {"rules", "list", "x"}}) {
        ProcessResult result = run(words);
        ASSERT_EQ(result.exitStatus, 0) << describe(words) << "\n" << result.standardError;
        EXPECT_EQ(result.standardError, "") << describe(words);

        std::vector<std::string> lines;
        std::string::size_type start = 0;
        for (auto end = result.standardOutput.find('\n'); end != std::string::npos;
             start = end + 1, end = result.standardOutput.find('\n', start)) {
            lines.push_back(result.standardOutput.substr(start, end - start));
        }
        ASSERT_EQ(lines.size(), 25u) << result.standardOutput;
        EXPECT_EQ(lines.front(), "Active cleanup rules (24):");
        EXPECT_EQ(lines[1], "  \u2022 [ai.huggingface.hub] HuggingFace Hub Models: ~/.cache/huggingface/hub/**, "
                            "~/.cache/huggingface/assets/** [Review Required]");
        EXPECT_EQ(lines.back(), "  \u2022 [sys.user.logs] User Application Logs: ~/Library/Logs/** [Safe to Clean]");

        std::vector<std::string> ids;
        for (std::size_t i = 1; i < lines.size(); ++i) {
            auto open = lines[i].find('[');
            ids.push_back(lines[i].substr(open + 1, lines[i].find(']') - open - 1));
        }
        EXPECT_TRUE(std::is_sorted(ids.begin(), ids.end()));
        EXPECT_EQ(std::set<std::string>(ids.begin(), ids.end()).size(), 24u);
    }
    // Listing never writes the rules file.
    EXPECT_FALSE(std::filesystem::exists(home_.at(".unbulk/rules.json")));
}

} // namespace

namespace {

TEST_F(CliTest, FdaReportsTheGrantAndIgnoresEveryWordButOpen) {
    const std::string granted = "Full Disk Access (FDA) status: GRANTED (Full access)\n";
    const std::string notGranted = "Full Disk Access (FDA) status: NOT GRANTED (Standard access)\n"
                                   "  Note: Unbulk cleans all developer bloat, package caches, DerivedData, and Docker "
                                   "VMs without FDA.\n"
                                   "  To grant access for protected Safari, Mail, and Time Machine paths, run:\n"
                                   "       unbulk fda --open\n";
    // "--open" launches /usr/bin/open, which this machine lacks: the line is
    // printed all the same and the status stays 0.
    const std::string opening = "Opening macOS System Settings > Privacy & Security > Full Disk Access...\n";
    struct Case {
        Words words;
        std::string output;
    };
    const std::vector<Case> cases{
        {{"fda"}, granted},
        {{"fda", "--json"}, granted},
        {{"fda", "status", "--OPEN", "--open=1"}, granted},
        {{"fda", "--open"}, opening},
        {{"fda", "--open", "--json"}, opening},
        {{"fda", "x", "--open"}, opening},
    };
    for (const auto& c : cases) {
        ProcessResult result = run(c.words);
        EXPECT_EQ(result.standardOutput, c.output) << describe(c.words);
        EXPECT_EQ(result.standardError, "") << describe(c.words);
        EXPECT_EQ(result.exitStatus, 0) << describe(c.words);
    }

    // A guarded folder that exists but is a file cannot be listed: not granted.
    home_.writeFile("Library/Safari", "not a folder");
    ProcessResult refused = run({"fda"});
    EXPECT_EQ(refused.standardOutput, notGranted);
    EXPECT_EQ(refused.exitStatus, 0);
    EXPECT_EQ(run({"fda", "--open"}).standardOutput, opening);
}

} // namespace

namespace {

const std::string kDryRunHint =
    "\nTo apply these deletions, run again with '--execute'. All items will be moved to macOS Trash.\n";
const std::string kNothingToClean = "No cleanable files found for the selected categories.\n";
const std::string kNothingToCleanJson = "{\"status\":\"nothing_to_clean\"}\n";

// A home with something in each of three categories: an npm cache
// (DEVELOPER_CACHE) and an application cache (SYSTEM_CACHES) of the safe
// default, and a model (AI_MODEL_WEIGHTS), which only an explicit or unknown
// category takes.
class CleanTest : public CliTest {
protected:
    void fillHome() const {
        home_.writeFile(".npm/_cacache/content-v2/sha512/ab/cdef", 1'500'000);
        home_.writeFile(".npm/_cacache/index-v5/00/11", 300);
        home_.writeFile("Library/Caches/com.example.editor/Cache.db", 300'000);
        home_.writeFile(".cache/huggingface/hub/models--org--m/blob", 2'000);
    }
    std::string npmCache() const { return home_.at(".npm/_cacache"); }
    std::string editorCache() const { return home_.at("Library/Caches/com.example.editor"); }
    std::string model() const { return home_.at(".cache/huggingface/hub/models--org--m"); }
    std::string auditPath() const { return home_.at(".unbulk/audit.jsonl"); }

    std::vector<unbulk::AuditLogEntry> auditEntries() const {
        return unbulk::AuditLogger(std::nullopt, unbulk::FileURL(home_.path(), true)).readEntries();
    }

    static std::vector<std::string> sourcePaths(const Json& summary) {
        std::vector<std::string> paths;
        for (const auto& record : summary.value("records", Json::array())) paths.push_back(record["sourcePath"]);
        return paths;
    }

    // The original paths that trash-cli finds in the home's Trash.
    std::set<std::string> trashListed() const {
        ProcessOptions options;
        options.environment = {{"HOME", home_.path()}, {"XDG_DATA_HOME", home_.at(".local/share")}};
        ProcessResult listed = unbulk::testing::runProcess("/usr/bin/trash-list", {}, options);
        EXPECT_EQ(listed.exitStatus, 0) << listed.standardError;
        std::set<std::string> paths;
        const std::regex line(R"(^\d{4}-\d\d-\d\d \d\d:\d\d:\d\d (.+)$)");
        std::istringstream in(listed.standardOutput);
        for (std::string text; std::getline(in, text);) {
            std::smatch match;
            if (std::regex_match(text, match, line)) paths.insert(match[1]);
            else ADD_FAILURE() << "unexpected trash-list line: " << text;
        }
        return paths;
    }
};

TEST_F(CleanTest, CleanAloneIsADryRunOverTheSafeDefaultCategories) {
    fillHome();
    ProcessResult result = run({"clean"});
    ASSERT_EQ(result.exitStatus, 0) << result.standardError;
    EXPECT_EQ(result.standardError, "");

    const auto entries = auditEntries();
    ASSERT_EQ(entries.size(), 1u);
    const auto& entry = entries[0];
    EXPECT_EQ(entry.operationType, unbulk::AuditOperationType::dryRun);
    EXPECT_EQ(entry.client, "cli");
    EXPECT_EQ(std::set<std::string>(entry.paths.begin(), entry.paths.end()),
              (std::set<std::string>{npmCache(), editorCache()}));

    EXPECT_EQ(result.standardOutput, "\n[DRY RUN] Cleanup Summary:\n"
                                     "  Items Processed: 2\n"
                                     "  Successful: 2\n"
                                     "  Space Unbulked: " +
                                         unbulk::formatByteCount(entry.bytesUnbulked) + "\n" + kDryRunHint);
    EXPECT_GT(entry.bytesUnbulked, 1'800'000);
    for (const auto& path : {npmCache(), editorCache(), model()}) EXPECT_TRUE(std::filesystem::exists(path)) << path;
    EXPECT_TRUE(trashListed().empty());
}

TEST_F(CleanTest, CategoryOptionPicksOneAllOrTheSafeDefault) {
    fillHome();
    std::vector<std::string> safe{editorCache(), npmCache()};
    std::vector<std::string> all{editorCache(), npmCache(), model()};
    std::sort(safe.begin(), safe.end());
    std::sort(all.begin(), all.end());
    struct Case {
        Words words;
        std::vector<std::string> expected; // sorted
    };
    const std::vector<Case> cases{
        {{"clean", "--json"}, safe},
        {{"clean", "--json", "--category"}, safe},
        {{"clean", "--json", "--category", "AI_MODEL_WEIGHTS"}, {model()}},
        {{"clean", "--json", "--category", "ai_model_weights"}, all},
        {{"clean", "--json", "--category", "NO_SUCH"}, all},
        {{"clean", "--category", "--json"}, all},
        {{"clean", "--json", "--dry-run", "--category=AI_MODEL_WEIGHTS"}, safe},
    };
    for (const auto& c : cases) {
        Json summary = scanJson(c.words);
        EXPECT_EQ(summary["isDryRun"], true) << describe(c.words);
        std::vector<std::string> paths = sourcePaths(summary);
        std::sort(paths.begin(), paths.end());
        EXPECT_EQ(paths, c.expected) << describe(c.words);
    }
    for (const auto& path : all) EXPECT_TRUE(std::filesystem::exists(path)) << path;
}

TEST_F(CleanTest, PermanentExecuteWithoutConfirmationIsRefusedBeforeAnyScan) {
    fillHome();
    for (const Words& words : std::vector<Words>{{"clean", "--permanent", "--execute"},
                                                 {"clean", "--json", "--no-dry-run", "--permanent"},
                                                 {"clean", "--permanent", "--execute", "--YES", "--yes=1"}}) {
        ProcessResult result = run(words);
        EXPECT_EQ(result.exitStatus, 1) << describe(words);
        EXPECT_EQ(result.standardError, "Permanent purge requires explicit confirmation via '--yes'.\n");
        EXPECT_EQ(result.standardOutput, "") << describe(words);
    }
    EXPECT_FALSE(std::filesystem::exists(home_.at(".unbulk"))) << "no operation may have run";
    for (const auto& path : {npmCache(), editorCache(), model()}) EXPECT_TRUE(std::filesystem::exists(path)) << path;
}

TEST_F(CleanTest, NothingFoundIsOneLineAndStatusZeroWhateverTheFlags) {
    struct Case {
        Words words;
        std::string output;
    };
    const std::vector<Case> cases{
        {{"clean", "--json"}, kNothingToCleanJson},
        {{"clean", "--execute", "--json"}, kNothingToCleanJson},
        {{"clean"}, kNothingToClean},
        // An unconfirmed purge without --execute is only refused by the
        // pipeline, and with nothing found the pipeline is never reached.
        {{"clean", "--permanent"}, kNothingToClean},
        {{"clean", "--permanent", "--json"}, kNothingToCleanJson},
        {{"clean", "--permanent", "--execute", "-y"}, kNothingToClean},
    };
    for (const auto& c : cases) {
        ProcessResult result = run(c.words);
        EXPECT_EQ(result.standardOutput, c.output) << describe(c.words);
        EXPECT_EQ(result.standardError, "") << describe(c.words);
        EXPECT_EQ(result.exitStatus, 0) << describe(c.words);
    }
    EXPECT_FALSE(std::filesystem::exists(auditPath()));
}

TEST_F(CleanTest, ExecuteMovesItemsToATrashThatTrashCliReads) {
    fillHome();
    Json summary = scanJson({"clean", "--execute", "--json"});
    EXPECT_EQ(summary["isDryRun"], false);
    EXPECT_EQ(summary["isPermanentPurge"], false);
    EXPECT_EQ(summary["successCount"], 2);
    EXPECT_EQ(summary["failureCount"], 0);
    const std::regex isoDate(R"(^\d{4}-\d\d-\d\dT\d\d:\d\d:\d\dZ$)");
    for (const char* key : {"startedAt", "completedAt"}) {
        EXPECT_TRUE(std::regex_match(summary[key].get<std::string>(), isoDate)) << summary[key];
    }

    const std::vector<std::string> sources = sourcePaths(summary);
    EXPECT_EQ(std::set<std::string>(sources.begin(), sources.end()),
              (std::set<std::string>{npmCache(), editorCache()}));
    for (const auto& record : summary["records"]) {
        EXPECT_EQ(record["status"], "SUCCESS") << record;
        ASSERT_TRUE(record.contains("trashPath")) << record;
        EXPECT_EQ(record["trashURL"], unbulk::FileURL(record["trashPath"], true).absoluteString());
        EXPECT_TRUE(std::filesystem::exists(record["trashPath"].get<std::string>())) << record;
        EXPECT_FALSE(std::filesystem::exists(record["sourcePath"].get<std::string>())) << record;
    }
    EXPECT_TRUE(std::filesystem::exists(model())) << "not in the safe default";

    EXPECT_EQ(trashListed(), std::set<std::string>(sources.begin(), sources.end()));

    const auto entries = auditEntries();
    ASSERT_EQ(entries.size(), 1u);
    EXPECT_EQ(entries[0].operationType, unbulk::AuditOperationType::trash);
    EXPECT_EQ(entries[0].paths, sources);
    EXPECT_EQ(entries[0].operationId, summary["operationId"]);
    EXPECT_EQ(entries[0].bytesUnbulked, summary["totalAllocatedBytesUnbulked"]);
    const auto verification =
        unbulk::AuditLogger(std::nullopt, unbulk::FileURL(home_.path(), true)).verifyIntegrity();
    EXPECT_TRUE(verification.isValid) << verification.failureReason.value_or("");
    EXPECT_EQ(verification.totalEntries, 1);
}

TEST_F(CleanTest, ReportLabelFollowsTheFlags) {
    struct Case {
        Words words;
        std::string label;
        bool hint;
        unbulk::AuditOperationType logged;
        bool inTrash;
    };
    using Type = unbulk::AuditOperationType;
    const std::vector<Case> cases{
        // --dry-run is read by nobody: this is a real run.
        {{"clean", "--execute", "--dry-run"}, "[TRASHED]", false, Type::trash, true},
        {{"clean", "--no-dry-run"}, "[TRASHED]", false, Type::trash, true},
        {{"clean", "--permanent", "-y", "--execute"}, "[PERMANENT PURGE]", false, Type::purge, false},
        // A confirmed purge needs no --execute, and still reads as a dry run.
        {{"clean", "--permanent", "--yes"}, "[DRY RUN]", true, Type::purge, false},
    };
    for (const auto& c : cases) {
        std::filesystem::remove_all(home_.at(".local/share/Trash"));
        fillHome();
        ProcessResult result = run(c.words);
        ASSERT_EQ(result.exitStatus, 0) << describe(c.words) << "\n" << result.standardError;
        EXPECT_EQ(result.standardError, "");

        const auto entries = auditEntries();
        ASSERT_FALSE(entries.empty());
        const auto& entry = entries.back();
        EXPECT_EQ(entry.operationType, c.logged) << describe(c.words);
        EXPECT_EQ(result.standardOutput, "\n" + c.label + " Cleanup Summary:\n  Items Processed: 2\n  Successful: 2\n" +
                                             "  Space Unbulked: " + unbulk::formatByteCount(entry.bytesUnbulked) +
                                             "\n" + (c.hint ? kDryRunHint : ""))
            << describe(c.words);
        EXPECT_FALSE(std::filesystem::exists(npmCache())) << describe(c.words);
        EXPECT_FALSE(std::filesystem::exists(editorCache())) << describe(c.words);
        EXPECT_EQ(trashListed().size(), c.inTrash ? 2u : 0u) << describe(c.words);
    }
}

TEST_F(CleanTest, UnconfirmedPurgeWithoutExecuteScansThenFails) {
    fillHome();
    for (const Words& words : std::vector<Words>{{"clean", "--permanent"}, {"clean", "--permanent", "--json"}}) {
        ProcessResult result = run(words);
        EXPECT_EQ(result.exitStatus, 1) << describe(words);
        EXPECT_EQ(result.standardError, "Error: Permanent purge was requested without explicit confirmation flag.\n");
        EXPECT_EQ(result.standardOutput, "") << describe(words);
    }
    EXPECT_FALSE(std::filesystem::exists(auditPath()));
    for (const auto& path : {npmCache(), editorCache(), model()}) EXPECT_TRUE(std::filesystem::exists(path)) << path;
}

} // namespace
