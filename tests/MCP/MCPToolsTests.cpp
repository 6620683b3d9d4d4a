#include <filesystem>
#include <fstream>

#include <gtest/gtest.h>

#include "MCP/MCPTools.hpp"
#include "Support/Json.hpp"
#include "support/AppBundles.hpp"
#include "support/TempHome.hpp"

namespace unbulk {
namespace {

using testing::TempHome;

// Each tool as an agent calls it, in a temporary home (HOME and the Trash
// point into it while the fixture lives).
struct MCPToolsTest : ::testing::Test {
    MCPCallToolResult call(const std::string& name, const char* arguments = nullptr) {
        std::optional<JSONValue::Object> object;
        if (arguments != nullptr) object = *jsonValueFromJson(Json::parse(arguments)).objectValue();
        return MCPTools::execute(name, object);
    }
    Json document(const MCPCallToolResult& result) {
        EXPECT_FALSE(result.isError) << result.content.at(0).text;
        return Json::parse(result.content.at(0).text);
    }
    Json storedRules() {
        std::ifstream in(home.at(".unbulk/rules.json"));
        return Json::parse(in);
    }

    TempHome home;
};

TEST_F(MCPToolsTest, ListsItsToolsInOrderWithTheirSchemas) {
    std::vector<std::string> names;
    Json schemas = Json::object();
    for (const auto& tool : MCPTools::listTools()) {
        names.push_back(tool.name);
        schemas[tool.name] = toJson(tool.inputSchema);
    }
    EXPECT_EQ(names, (std::vector<std::string>{"scan_storage", "clean_storage", "inspect_directory", "list_apps",
                                               "uninstall_app", "get_system_vitals", "list_rules", "register_rule",
                                               "inspect_anomalies"}));
    EXPECT_EQ(schemas["uninstall_app"]["required"], Json::parse(R"(["bundle_id_or_name"])"));
    EXPECT_EQ(schemas["inspect_directory"]["required"], Json::parse(R"(["path"])"));
    EXPECT_EQ(schemas["inspect_directory"]["properties"]["depth"]["type"], "integer");
    EXPECT_EQ(schemas["list_rules"], Json::parse(R"({"type":"object","properties":{}})"));
    EXPECT_EQ(schemas["scan_storage"]["properties"]["categories"]["items"], Json::parse(R"({"type":"string"})"));
    EXPECT_EQ(schemas["register_rule"]["required"], Json::parse(R"(["id","name","pattern","category","risk_tier"])"));
    EXPECT_FALSE(schemas["clean_storage"].contains("required"));
}

TEST_F(MCPToolsTest, ScanStorageFiltersByCategoryAndSize) {
    home.writeFile(".npm/_cacache/content-v2/blob", 5000);
    const Json all = document(call("scan_storage"));
    EXPECT_EQ(all["scannedCategories"].size(), 16u);
    EXPECT_EQ(all["items"].size(), 1u);
    EXPECT_TRUE(all["startedAt"].is_string()); // ISO dates

    const Json developer = document(call("scan_storage", R"({"categories":["developerCache","nonsense",7]})"));
    EXPECT_EQ(developer["scannedCategories"], Json::parse(R"(["DEVELOPER_CACHE"])"));

    const Json large = document(call("scan_storage", R"({"min_size_mb":1})"));
    EXPECT_TRUE(large["items"].empty());
    EXPECT_EQ(large["summary"]["totalItems"], 0);
}

TEST_F(MCPToolsTest, CleanStorageWithoutTargetsTouchesNothing) {
    for (const char* arguments : {"{}", R"({"categories":["nonsense"]})", R"({"paths":[1,true]})"}) {
        const auto result = call("clean_storage", arguments);
        EXPECT_FALSE(result.isError);
        EXPECT_EQ(result.content.at(0).text, "No target paths or categories matched for cleanup.") << arguments;
    }
    EXPECT_FALSE(std::filesystem::exists(home.at(".unbulk/audit.jsonl")));
}

TEST_F(MCPToolsTest, CleanStorageIsADryRunUnlessToldOtherwise) {
    const std::string file = home.writeFile("junk/file.bin", "data");
    for (const std::string dryRun : {"", R"(,"dry_run":"false")"}) {
        const Json summary = document(call("clean_storage", (R"({"paths":[")" + file + "\"]" + dryRun + "}").c_str()));
        EXPECT_TRUE(summary["isDryRun"].get<bool>()) << dryRun;
        EXPECT_EQ(summary["records"][0]["status"], "SIMULATED");
    }
    EXPECT_TRUE(std::filesystem::exists(file));

    const Json trashed = document(call("clean_storage", (R"({"paths":[")" + file + R"("],"dry_run":false})").c_str()));
    EXPECT_EQ(trashed["records"][0]["status"], "SUCCESS");
    EXPECT_FALSE(std::filesystem::exists(file));
    EXPECT_TRUE(std::filesystem::exists(home.at(".local/share/Trash/files/file.bin")));
}

TEST_F(MCPToolsTest, CleanStoragePermanentAlonePurges) {
    const std::string file = home.writeFile("junk/file.bin", "data");
    const Json summary = document(call("clean_storage", (R"({"paths":[")" + file + R"("],"permanent":true})").c_str()));
    EXPECT_TRUE(summary["isPermanentPurge"].get<bool>());
    EXPECT_FALSE(summary["isDryRun"].get<bool>());
    EXPECT_FALSE(std::filesystem::exists(file));
}

TEST_F(MCPToolsTest, CleanStorageReportsTheSandboxRefusalAsAFailedRecord) {
    const auto result = call("clean_storage", R"({"paths":["/etc/hosts"],"dry_run":false})");
    const Json summary = document(result);
    ASSERT_EQ(summary["records"].size(), 1u);
    EXPECT_EQ(summary["records"][0]["status"], "FAILED");
    EXPECT_NE(summary["records"][0]["errorMessage"].get<std::string>().find("/etc"), std::string::npos);
    EXPECT_TRUE(std::filesystem::exists("/etc/hosts"));
}

TEST_F(MCPToolsTest, RegisterRuleStoresTheRuleWhichANewListDoesNotShow) {
    const auto result = call("register_rule", R"({"id":"custom_mlx","name":"MLX","pattern":"~/.cache/mlx/*",
        "category":"aiModelWeights","risk_tier":"safe_to_delete"})");
    EXPECT_FALSE(result.isError);
    EXPECT_EQ(result.content.at(0).text, "Successfully registered rule 'custom_mlx' matching pattern '~/.cache/mlx/*'");
    const Json stored = storedRules();
    ASSERT_EQ(stored["rules"].size(), 1u);
    const Json& rule = stored["rules"][0];
    EXPECT_EQ(rule["riskTier"], "SAFE_TO_DELETE");
    EXPECT_EQ(rule["category"], "AI_MODEL_WEIGHTS");
    EXPECT_EQ(rule["description"], "MLX");
    EXPECT_TRUE(rule["isRegenerable"].get<bool>());

    // Each call builds its own registry, which does not read rules.json.
    for (const auto& listed : document(call("list_rules")))
        EXPECT_NE(listed["id"], "custom_mlx");
}

TEST_F(MCPToolsTest, RegisterRuleNeedsItsArgumentsAndThePassOfTheSandbox) {
    const auto missing = call("register_rule", R"({"id":"x","name":"X","pattern":"~/x/*","category":"x"})");
    EXPECT_TRUE(missing.isError);
    EXPECT_EQ(missing.content.at(0).text, "Missing required arguments for register_rule");
    EXPECT_ANY_THROW(call("register_rule", R"({"id":"all","name":"All","pattern":"~/*","category":"x",
        "risk_tier":"KEEP"})"));
    EXPECT_FALSE(std::filesystem::exists(home.at(".unbulk/rules.json")));
}

TEST_F(MCPToolsTest, InspectDirectoryTruncatesItsDepthAndNeedsAPath) {
    home.writeFile("tree/a/b/file", "x");
    const Json node =
        document(call("inspect_directory", (R"({"path":")" + home.at("tree") + R"(","depth":1.9})").c_str()));
    ASSERT_EQ(node["children"].size(), 1u);
    EXPECT_FALSE(node["children"][0].contains("children")); // cut off at depth 1
    EXPECT_EQ(node["children"][0]["itemCount"], 1);
    const auto missing = call("inspect_directory", R"({"path":7})");
    EXPECT_TRUE(missing.isError);
    EXPECT_EQ(missing.content.at(0).text, "Missing required argument 'path'");
    EXPECT_ANY_THROW(call("inspect_directory", R"({"path":"/no/such/place"})"));
}

TEST_F(MCPToolsTest, UninstallAppFindsByNameWithoutCaseAndIsADryRunByDefault) {
    const std::string bundle =
        testing::makeBundle(home, "Applications/Docker.app", {{"CFBundleIdentifier", "com.docker.docker"}});
    const Json apps = document(call("list_apps", R"({"include_leftovers":false})"));
    EXPECT_EQ(apps["installedApps"][0]["displayName"], "Docker");
    EXPECT_TRUE(apps["leftovers"].empty());
    const Json summary = document(call("uninstall_app", R"({"bundle_id_or_name":"DOCKER"})"));
    EXPECT_TRUE(summary["dryRun"].get<bool>());
    EXPECT_TRUE(std::filesystem::exists(bundle));
    const auto missing = call("uninstall_app", R"({"bundle_id_or_name":"Nope"})");
    EXPECT_TRUE(missing.isError);
    EXPECT_EQ(missing.content.at(0).text, "Application not found matching 'Nope'");
    EXPECT_EQ(call("uninstall_app", "{}").content.at(0).text, "Missing required argument 'bundle_id_or_name'");
}

TEST_F(MCPToolsTest, SystemVitalsComeWithIsoDates) {
    const Json vitals = document(call("get_system_vitals", R"({"ignored":true})"));
    EXPECT_TRUE(vitals["timestamp"].is_string());
    EXPECT_GT(vitals["memory"]["totalBytes"].get<std::int64_t>(), 0);
}

TEST_F(MCPToolsTest, InspectAnomaliesUsesItsSizeThreshold) {
    home.writeFile(".cache/tmpstore/file", "x");
    EXPECT_TRUE(document(call("inspect_anomalies")).empty());
    const Json found = document(call("inspect_anomalies", R"({"min_size_mb":0})"));
    ASSERT_EQ(found.size(), 1u);
    EXPECT_EQ(found[0]["path"], home.at(".cache/tmpstore"));
    EXPECT_EQ(found[0]["proposedRule"]["id"], "dynamic.anomaly.tmpstore");
    EXPECT_TRUE(found[0]["proposedRule"]["createdAt"].is_number());
}

} // namespace
} // namespace unbulk
