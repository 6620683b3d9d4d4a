#include <array>
#include <filesystem>
#include <fstream>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "mcp/MCPTools.hpp"
#include "Safety/SandboxSecurityError.hpp"
#include "Support/Json.hpp"
#include "support/AppBundles.hpp"
#include "support/Files.hpp"
#include "support/TempHome.hpp"
#include "support/TestEnvironment.hpp"

namespace unbulk {
namespace {

using testing::TempHome;

// Each tool as an agent calls it, over an Environment in a temporary home
// (HOME and the Trash point into it while the fixture lives).
struct MCPToolsTest : ::testing::Test {
    MCPCallToolResult call(const std::string& name, const std::string& arguments = "") {
        std::optional<JSONValue::Object> object;
        if (!arguments.empty()) object = *jsonValueFromJson(Json::parse(arguments)).objectValue();
        return MCPTools::execute(environment, name, object);
    }
    Json document(const MCPCallToolResult& result) {
        EXPECT_FALSE(result.isError) << result.content.at(0).text;
        return Json::parse(result.content.at(0).wholeText());
    }
    // The text of a result that must be a failure.
    std::string failure(const MCPCallToolResult& result) {
        EXPECT_TRUE(result.isError);
        return result.content.at(0).text;
    }
    TempHome home;
    Environment environment = testing::testEnvironment(home);
};

// The table an agent reads, word for word; properties are name, type, description.
TEST(MCPToolTableTest, NamesDescriptionsSchemasAndRequiredListsStandAsPublished) {
    using Properties = std::vector<std::array<const char*, 3>>;
    const struct { const char* name; const char* description; Properties properties; std::vector<const char*> required; }
        rows[] = {
            {"scan_storage",
             "Scans disk storage across developer bloat, AI model caches, system junk, and orphaned VM disks. Strictly "
             "read-only.",
             {{"categories", "array",
               "Optional list of categories to scan: uvCache, npmBunCache, pipCondaCache, huggingFaceWhisperModels, "
               "orphanedDockerVM, xcodeDerivedData, xcodeSimulators, strayNodeModules, systemCaches, systemLogs, "
               "crashReports, mailDownloads"},
              {"min_size_mb", "number", "Minimum item size in megabytes to include in results (default: 0)"}},
             {}},
            {"clean_storage",
             "Safely cleans scanned storage items or specified paths using Trash-first safety and audit logging. In "
             "dry-run mode, computes unbulked bytes without touching files.",
             {{"categories", "array", "Categories to clean (e.g. uvCache, orphanedDockerVM)"},
              {"paths", "array", "Specific file or directory paths to clean"},
              {"dry_run", "boolean", "If true, simulates cleanup without modifying disk (default: true)"},
              {"permanent", "boolean", "If true and confirmed, purges permanently bypassing Trash (default: false)"}},
             {}},
            {"inspect_directory",
             "Performs high-speed hierarchical directory breakdown by physical and logical storage size.",
             {{"path", "string", "Absolute path of the directory to inspect"},
              {"depth", "integer", "Maximum search depth (default: 3)"}},
             {"path"}},
            {"list_apps",
             "Lists installed applications in /Applications and ~/Applications along with orphaned leftovers from "
             "previously deleted apps.",
             {{"include_leftovers", "boolean", "Include orphaned leftover files from deleted apps (default: true)"}},
             {}},
            {"uninstall_app",
             "Completely uninstalls an application by moving its bundle, preferences, Application Support, caches, "
             "and LaunchAgents to macOS Trash.",
             {{"bundle_id_or_name", "string",
               "Bundle identifier (e.g. com.docker.docker) or display name (e.g. Docker)"},
              {"dry_run", "boolean", "Simulate uninstallation without trashing files (default: true)"},
              {"force", "boolean", "Force uninstall even if application is running (default: false)"}},
             {"bundle_id_or_name"}},
            {"get_system_vitals",
             "Returns real-time Mach kernel CPU percentage, memory pressure status, free disk capacity, battery "
             "health, and thermal state.",
             {},
             {}},
            {"list_rules", "Returns all active built-in and dynamic cleanup rules from the rule registry.", {}, {}},
            {"register_rule",
             "Dynamically registers a newly synthesized cleanup rule after validating with SandboxValidator.",
             {{"id", "string", "Unique alphanumeric rule ID (e.g. custom_mlx_models)"},
              {"name", "string", "Human-readable rule name"},
              {"pattern", "string", "Path pattern relative to home (e.g. ~/.cache/mlx/*)"},
              {"category", "string", "Storage category: huggingFaceWhisperModels, developerArtifacts, etc."},
              {"risk_tier", "string", "Risk tier: SAFE_TO_DELETE, REVIEW_REQUIRED, KEEP"},
              {"description", "string", "Optional description"}},
             {"id", "name", "pattern", "category", "risk_tier"}},
            {"inspect_anomalies",
             "Detects uncataloged heavy directories in ~/.cache and ~/Library that don't match existing cleanup "
             "rules.",
             {{"min_size_mb", "number", "Minimum directory size in megabytes to trigger anomaly (default: 100)"}},
             {}},
        };
    const std::vector<MCPTool> tools = MCPTools::listTools();
    ASSERT_EQ(tools.size(), std::size(rows));
    for (std::size_t i = 0; i < tools.size(); ++i) {
        const auto& row = rows[i];
        Json properties = Json::object();
        for (const auto& [name, type, description] : row.properties) {
            properties[name] = {{"type", type}, {"description", description}};
            if (std::string_view(type) == "array") properties[name]["items"] = {{"type", "string"}};
        }
        Json schema{{"type", "object"}, {"properties", properties}};
        if (!row.required.empty()) schema["required"] = row.required;
        EXPECT_EQ(toJson(tools[i]), (Json{{"name", row.name}, {"description", row.description}, {"inputSchema", schema}}))
            << row.name;
    }
}

TEST_F(MCPToolsTest, ScanStorageFiltersByCategoryAndSize) {
    home.writeFile(".npm/_cacache/content-v2/blob", 5000);
    const Json all = document(call("scan_storage"));
    EXPECT_EQ(all["scannedCategories"].size(), 16u);
    EXPECT_EQ(all["items"].size(), 1u);

    EXPECT_EQ(document(call("scan_storage", R"({"categories":["developerCache","nonsense",7]})"))["scannedCategories"],
              Json::parse(R"(["DEVELOPER_CACHE"])"));
    const Json large = document(call("scan_storage", R"({"min_size_mb":1})"));
    EXPECT_TRUE(large["items"].empty());
    EXPECT_EQ(large["summary"]["totalItems"], 0);
}

TEST_F(MCPToolsTest, CleanStorageWithoutTargetsTouchesNothing) {
    for (const char* arguments : {R"({"categories":["nonsense"]})", R"({"paths":[1,true]})"}) {
        const auto result = call("clean_storage", arguments);
        EXPECT_FALSE(result.isError);
        EXPECT_EQ(result.content.at(0).text, "No target paths or categories matched for cleanup.") << arguments;
    }
    EXPECT_FALSE(std::filesystem::exists(home.at(".unbulk/audit.jsonl")));
}

TEST_F(MCPToolsTest, CleanStorageIsADryRunUnlessToldOtherwiseAndPermanentAlonePurges) {
    const std::string file = home.writeFile("junk/file.bin", "data"), paths = R"({"paths":[")" + file + "\"]";
    const Json simulated = document(call("clean_storage", paths + R"(,"dry_run":"false"})"));
    EXPECT_TRUE(simulated["isDryRun"].get<bool>()) << "only the boolean false runs for real";
    EXPECT_EQ(simulated["records"][0]["status"], "SIMULATED");
    EXPECT_TRUE(std::filesystem::exists(file));
    EXPECT_EQ(document(call("clean_storage", paths + R"(,"dry_run":false})"))["records"][0]["status"], "SUCCESS");
    EXPECT_FALSE(std::filesystem::exists(file));
    EXPECT_TRUE(std::filesystem::exists(home.at(".local/share/Trash/files/file.bin")));

    home.writeFile("junk/file.bin", "data");
    const Json purged = document(call("clean_storage", paths + R"(,"permanent":true})"));
    EXPECT_TRUE(purged["isPermanentPurge"].get<bool>());
    EXPECT_FALSE(purged["isDryRun"].get<bool>());
    EXPECT_FALSE(std::filesystem::exists(file));
}

// What the kernel would be given is what the sandbox judges: a NUL ends a
// path there. The audit log, the Trash and everything in them are no
// targets either: removing them would erase the history and make every
// earlier removal unrecoverable.
TEST_F(MCPToolsTest, CleanStorageRefusesNulPathsTheAuditFolderAndTheTrash) {
    const std::string keychain = home.writeFile("Library/Keychains/login.keychain-db", "secret");
    const std::string thesis = home.writeFile("Documents/thesis.txt", "years of work");
    const std::string junk = home.writeFile("junk/old.bin", "x");
    ASSERT_EQ(document(call("clean_storage", R"({"dry_run":false,"paths":[")" + junk + "\"]}"))["successCount"], 1);
    const std::string trash = home.at(".local/share/Trash"), log = home.at(".unbulk/audit.jsonl");
    const std::string nul = "Sandbox violation: Path contains a NUL character";
    const std::vector<std::pair<std::string, std::string>> attempts{
        {R"({"dry_run":false,"paths":[")" + home.at("Library/Keychains") + R"(\u0000"]})", nul},
        {R"({"permanent":true,"paths":[")" + home.path() + R"(\u0000"]})", nul},
        {R"({"permanent":true,"paths":[")" + home.path() + R"(/\u0000/x"]})", nul},
        {R"({"permanent":true,"paths":[")" + log + "\"]}", "protected user directory '.unbulk'"},
        {R"({"permanent":true,"paths":[")" + home.at(".unbulk") + "\"]}", "protected user directory '.unbulk'"},
        {R"({"dry_run":false,"paths":[")" + trash + "/files\"]}", "protected user directory '.local/share/Trash'"},
        {R"({"permanent":true,"paths":[")" + trash + "/info\"]}", "protected user directory '.local/share/Trash'"},
        {R"({"permanent":true,"paths":[")" + trash + "/files/old.bin\"]}",
         "protected user directory '.local/share/Trash'"},
    };
    for (const auto& [arguments, reason] : attempts) {
        const Json summary = document(call("clean_storage", arguments));
        ASSERT_EQ(summary["records"].size(), 1u) << arguments;
        EXPECT_EQ(summary["records"][0]["status"], "FAILED") << arguments;
        EXPECT_NE(summary["records"][0].value("errorMessage", "").find(reason), std::string::npos)
            << summary["records"][0] << " for " << arguments;
    }
    for (const std::string& kept : {keychain, thesis, log, trash + "/files/old.bin", trash + "/info/old.bin.trashinfo"})
        EXPECT_TRUE(std::filesystem::exists(kept)) << kept;
    EXPECT_EQ(testing::readAll(log).find(R"(\u0000)"), std::string::npos);
}

TEST_F(MCPToolsTest, RegisterRuleRefusesAPatternWithANul) {
    const std::string pattern = home.at("Library/Keychains") + R"(\u0000)";
    EXPECT_THAT([&] { call("register_rule", R"({"id":"k","name":"K","pattern":")" + pattern +
                                                 R"(","category":"x","risk_tier":"SAFE_TO_DELETE"})"); },
                ::testing::ThrowsMessage<SandboxSecurityError>("Path contains a NUL character"));
    EXPECT_FALSE(std::filesystem::exists(home.at(".unbulk/rules.json")));
}

TEST_F(MCPToolsTest, RegisterRuleStoresTheRuleWhichANewListDoesNotShow) {
    const auto result = call("register_rule", R"({"id":"custom_mlx","name":"MLX","pattern":"~/.cache/mlx/*",
        "category":"aiModelWeights","risk_tier":"\u017Fafe_to_delete"})"); // LONG S upper-cases to S
    EXPECT_FALSE(result.isError);
    EXPECT_EQ(result.content.at(0).text, "Successfully registered rule 'custom_mlx' matching pattern '~/.cache/mlx/*'");
    std::ifstream in(home.at(".unbulk/rules.json"));
    const Json stored = Json::parse(in);
    ASSERT_EQ(stored["rules"].size(), 1u);
    const Json& rule = stored["rules"][0];
    EXPECT_EQ(Json({rule["riskTier"], rule["category"], rule["description"], rule["isRegenerable"]}),
              Json({"SAFE_TO_DELETE", "AI_MODEL_WEIGHTS", "MLX", true}));

    // Each call builds its own registry, which does not read rules.json.
    for (const auto& listed : document(call("list_rules")))
        EXPECT_NE(listed["id"], "custom_mlx");
}

TEST_F(MCPToolsTest, RegisterRuleNeedsAllItsArguments) {
    EXPECT_EQ(failure(call("register_rule", R"({"id":"x","name":"X","pattern":"~/x/*","category":"x"})")),
              "Missing required arguments for register_rule");
}

TEST_F(MCPToolsTest, InspectDirectoryTruncatesItsDepthAndNeedsAPath) {
    home.writeFile("tree/a/b/file", "x");
    const Json node = document(call("inspect_directory", R"({"path":")" + home.at("tree") + R"(","depth":1.9})"));
    ASSERT_EQ(node["children"].size(), 1u);
    EXPECT_FALSE(node["children"][0].contains("children")); // cut off at depth 1
    EXPECT_EQ(node["children"][0]["itemCount"], 1);
    EXPECT_EQ(failure(call("inspect_directory", R"({"path":7})")), "Missing required argument 'path'");
    EXPECT_ANY_THROW(call("inspect_directory", R"({"path":"/no/such/place"})"));
}

TEST_F(MCPToolsTest, UninstallAppFindsByNameWithoutCaseAndIsADryRunByDefault) {
    const std::string bundle =
        testing::makeBundle(home, "Applications/Docker.app", {{"CFBundleIdentifier", "com.docker.docker"}});
    const Json summary = document(call("uninstall_app", R"({"bundle_id_or_name":"DOCKER"})"));
    EXPECT_TRUE(summary["dryRun"].get<bool>());
    EXPECT_TRUE(std::filesystem::exists(bundle));
    EXPECT_EQ(failure(call("uninstall_app", R"({"bundle_id_or_name":"Nope"})")),
              "Application not found matching 'Nope'");
    EXPECT_EQ(failure(call("uninstall_app", "{}")), "Missing required argument 'bundle_id_or_name'");
}

TEST_F(MCPToolsTest, InspectAnomaliesUsesItsSizeThreshold) {
    home.writeFile(".cache/tmpstore/file", "x");
    EXPECT_TRUE(document(call("inspect_anomalies")).empty());
    const Json found = document(call("inspect_anomalies", R"({"min_size_mb":0})"));
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ(found[0]["path"], home.at(".cache/tmpstore"));
}

} // namespace
} // namespace unbulk
