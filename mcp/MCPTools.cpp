#include "mcp/MCPTools.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <functional>
#include <limits>
#include <memory>

#include "Models/Categories.hpp"
#include "Models/ScanItem.hpp"
#include "Operations/Engines.hpp"
#include "Platform/CurrentDirectory.hpp"
#include "Platform/FileHandle.hpp"
#include "SpaceLens/SpaceTree.hpp"
#include "Support/Json.hpp"
#include "Support/Paths.hpp"
#include "Support/Unicode.hpp"

namespace unbulk::MCPTools {
namespace {

using Arguments = std::optional<JSONValue::Object>;

// ---- Arguments: a value of the wrong type counts as a missing one. ----

const JSONValue* argument(const Arguments& arguments, const char* key) {
    if (!arguments) return nullptr;
    auto it = arguments->find(key);
    return it == arguments->end() ? nullptr : &it->second;
}

std::optional<std::string> stringArgument(const Arguments& arguments, const char* key) {
    const JSONValue* value = argument(arguments, key);
    if (value == nullptr || value->stringValue() == nullptr) return std::nullopt;
    return *value->stringValue();
}

bool boolArgument(const Arguments& arguments, const char* key, bool fallback) {
    const JSONValue* value = argument(arguments, key);
    return value != nullptr && value->boolValue() != nullptr ? *value->boolValue() : fallback;
}

std::optional<double> numberArgument(const Arguments& arguments, const char* key) {
    const JSONValue* value = argument(arguments, key);
    if (value == nullptr || value->numberValue() == nullptr) return std::nullopt;
    return *value->numberValue();
}

// The string elements of an array argument; other elements are ignored.
std::vector<std::string> stringElements(const Arguments& arguments, const char* key) {
    std::vector<std::string> out;
    const JSONValue* value = argument(arguments, key);
    if (value == nullptr || value->arrayValue() == nullptr) return out;
    for (const auto& element : *value->arrayValue()) {
        if (const std::string* text = element.stringValue()) out.push_back(*text);
    }
    return out;
}

// Megabytes of 1024 * 1024 bytes, truncated; out-of-range values saturate.
std::int64_t megabytesToBytes(double megabytes) {
    const double bytes = std::trunc(megabytes * 1024.0 * 1024.0);
    if (std::isnan(bytes)) return 0;
    if (bytes >= 9223372036854775807.0) return std::numeric_limits<std::int64_t>::max();
    if (bytes <= -9223372036854775808.0) return std::numeric_limits<std::int64_t>::min();
    return static_cast<std::int64_t>(bytes);
}

// Category names as an agent writes them; those that do not parse are
// dropped, and an empty set means no filter.
CategorySet parsedCategories(const Arguments& arguments) {
    CategorySet set;
    for (const auto& text : stringElements(arguments, "categories")) {
        if (auto category = parseStorageCategory(text)) set.insert(*category);
    }
    return set;
}

MCPCallToolResult jsonResult(const Json& document) { return MCPCallToolResult::text(json::pretty(document)); }

// ---- What each handler builds. ----

// Standard output carries protocol lines only, so an operation that could
// not be recorded in the log is told on the server's standard error, where
// its host shows it.
void writeNotice(std::string_view line) { makeStandardError()->write(line); }

// A path as a file URL: a relative one is read against the working directory.
FileURL fileURLWithPath(const std::string& path, const FileSystem& fileSystem) {
    return fileSystem.fileURL(paths::isAbsolute(path) ? path : paths::appending(currentDirectory(), path));
}

// ---- The handlers. ----

MCPCallToolResult scanStorage(const Environment& environment, const Arguments& arguments) {
    const CategorySet categories = parsedCategories(arguments);
    ScanResult result =
        Engines::scanEngine(environment).scan(categories.empty() ? std::nullopt : std::optional(categories));
    const std::int64_t minimum = megabytesToBytes(numberArgument(arguments, "min_size_mb").value_or(0));
    std::erase_if(result.items, [&](const DiscoveredItem& item) { return item.allocatedSizeBytes < minimum; });
    result.scanId = Uuid::random();
    result.summary = ScanSummary::from(result.items);
    return jsonResult(toJson(result, DateEncoding::iso8601));
}

MCPCallToolResult cleanStorage(const Environment& environment, const Arguments& arguments) {
    const bool dryRun = boolArgument(arguments, "dry_run", true);
    const bool permanent = boolArgument(arguments, "permanent", false);
    const auto pipeline = Engines::trashPipeline(environment, writeNotice);

    std::vector<FileURL> targets;
    for (const auto& path : stringElements(arguments, "paths")) {
        targets.push_back(fileURLWithPath(path, *environment.fileSystem));
    }
    // Every item of the asked categories, whatever its tier: the sandbox is
    // the only gate.
    if (const CategorySet categories = parsedCategories(arguments); !categories.empty()) {
        for (const auto& item : Engines::scanEngine(environment).scan(categories).items)
            targets.push_back(item.url);
    }
    if (targets.empty()) return MCPCallToolResult::text("No target paths or categories matched for cleanup.");

    // `permanent` alone purges, whatever dry_run says: the handler confirms
    // on the agent's behalf, and dry_run's default guards only the Trash road.
    const TrashSummary summary =
        permanent ? pipeline->purgePermanently(targets, true, "mcp") : pipeline->trash(targets, dryRun, "mcp");
    return jsonResult(toJson(summary, DateEncoding::iso8601));
}

MCPCallToolResult inspectDirectory(const Environment& environment, const Arguments& arguments) {
    const auto path = stringArgument(arguments, "path");
    if (!path) return MCPCallToolResult::text("Missing required argument 'path'", true);
    // A number, truncated: 1.9 searches one level.
    const double depth = numberArgument(arguments, "depth").value_or(3);
    const int maxDepth = std::isfinite(depth) ? static_cast<int>(std::clamp(std::trunc(depth), -1e9, 1e9)) : 3;
    // The tree is measured now, so that a missing path fails the call; its
    // JSON is written into the response as it is sent, never held whole.
    auto tree = std::make_shared<const SpaceTree>(Engines::spaceLensEngine(environment)
                                                      .scanTree(fileURLWithPath(*path, *environment.fileSystem), maxDepth));
    return MCPCallToolResult::streamedText(
        [tree](const TextSink& write) { writeJson(*tree, DateEncoding::secondsSinceReferenceDate, write); });
}

MCPCallToolResult listApps(const Environment& environment, const Arguments& arguments) {
    const auto apps = Engines::appScanner(environment).scanInstalledApps(false);
    std::vector<AppLeftover> leftovers;
    if (boolArgument(arguments, "include_leftovers", true)) {
        leftovers = Engines::leftoversHunter(environment).scanForLeftovers(apps);
    }
    Json installed = Json::array(), orphans = Json::array();
    for (const auto& app : apps)
        installed.push_back(toJson(app));
    for (const auto& leftover : leftovers)
        orphans.push_back(toJson(leftover));
    return jsonResult(Json{{"installedApps", installed}, {"leftovers", orphans}});
}

MCPCallToolResult uninstallApp(const Environment& environment, const Arguments& arguments) {
    const auto target = stringArgument(arguments, "bundle_id_or_name");
    if (!target) return MCPCallToolResult::text("Missing required argument 'bundle_id_or_name'", true);
    const bool dryRun = boolArgument(arguments, "dry_run", true);
    const bool force = boolArgument(arguments, "force", false);
    const auto apps = Engines::appScanner(environment).scanInstalledApps(false);
    const InstalledApp* app = Engines::findInstalledApp(apps, *target);
    if (app == nullptr) return MCPCallToolResult::text("Application not found matching '" + *target + "'", true);
    const AppUninstaller uninstaller =
        Engines::appUninstaller(environment, Engines::trashPipeline(environment, writeNotice));
    return jsonResult(
        toJson(uninstaller.uninstall(*app, dryRun, {.force = force, .includeBundle = true, .includeDependencies = true})));
}

MCPCallToolResult getSystemVitals(const Environment& environment, const Arguments&) {
    return jsonResult(toJson(Engines::systemVitals(environment), DateEncoding::iso8601));
}

MCPCallToolResult listRules(const Environment& environment, const Arguments&) {
    Json rules = Json::array();
    for (const auto& rule : Engines::ruleRegistry(environment)->allRules()) {
        rules.push_back(toJson(rule, DateEncoding::secondsSinceReferenceDate));
    }
    return jsonResult(rules);
}

MCPCallToolResult registerRule(const Environment& environment, const Arguments& arguments) {
    const auto id = stringArgument(arguments, "id");
    const auto name = stringArgument(arguments, "name");
    const auto pattern = stringArgument(arguments, "pattern");
    const auto category = stringArgument(arguments, "category");
    const auto riskTier = stringArgument(arguments, "risk_tier");
    if (!id || !name || !pattern || !category || !riskTier) {
        return MCPCallToolResult::text("Missing required arguments for register_rule", true);
    }
    // Upper case by Unicode's mapping, not ASCII's: LONG S is an S here.
    const std::string tier = unicode::uppercased(*riskTier);
    RuleDefinition rule;
    rule.id = *id;
    rule.name = *name;
    rule.description = stringArgument(arguments, "description").value_or(*name);
    rule.category = parseStorageCategory(*category).value_or(StorageCategory::developerCache);
    rule.riskTier = tier == "SAFE_TO_DELETE" || tier == "SAFETODELETE" ? RiskTier::safeToDelete
                    : tier == "KEEP"                                   ? RiskTier::keep
                                                                       : RiskTier::reviewRequired;
    rule.patterns = {*pattern};
    rule.isRegenerable = rule.riskTier == RiskTier::safeToDelete;
    rule.isBuiltIn = false;
    rule.enabled = true;
    const Date now = environment.clock();
    rule.createdAt = now;
    rule.updatedAt = now;

    Engines::ruleRegistry(environment)->registerRule(rule);
    return MCPCallToolResult::text("Successfully registered rule '" + *id + "' matching pattern '" + *pattern + "'");
}

MCPCallToolResult inspectAnomalies(const Environment& environment, const Arguments& arguments) {
    const std::int64_t minimum = megabytesToBytes(numberArgument(arguments, "min_size_mb").value_or(100));
    Json anomalies = Json::array();
    for (const auto& anomaly : Engines::anomalyDetector(environment, minimum).detectAnomalies())
        anomalies.push_back(toJson(anomaly));
    return jsonResult(anomalies);
}

// ---- The table: what is offered, in order, and who answers. ----

struct Property {
    const char* name;
    const char* type; // "array" means an array of strings
    const char* description;
};

struct ToolRow {
    const char* name;
    const char* description;
    std::vector<Property> properties;
    std::vector<const char*> required;
    MCPCallToolResult (*handler)(const Environment&, const Arguments&);
};

const std::vector<ToolRow>& toolTable() {
    static const std::vector<ToolRow> rows{
        {"scan_storage",
         "Scans disk storage across developer bloat, AI model caches, system junk, and orphaned VM disks. Strictly "
         "read-only.",
         {{"categories", "array",
           "Optional list of categories to scan: uvCache, npmBunCache, pipCondaCache, huggingFaceWhisperModels, "
           "orphanedDockerVM, xcodeDerivedData, xcodeSimulators, strayNodeModules, systemCaches, systemLogs, "
           "crashReports, mailDownloads"},
          {"min_size_mb", "number", "Minimum item size in megabytes to include in results (default: 0)"}},
         {},
         &scanStorage},
        {"clean_storage",
         "Safely cleans scanned storage items or specified paths using Trash-first safety and audit logging. In "
         "dry-run mode, computes unbulked bytes without touching files.",
         {{"categories", "array", "Categories to clean (e.g. uvCache, orphanedDockerVM)"},
          {"paths", "array", "Specific file or directory paths to clean"},
          {"dry_run", "boolean", "If true, simulates cleanup without modifying disk (default: true)"},
          {"permanent", "boolean", "If true and confirmed, purges permanently bypassing Trash (default: false)"}},
         {},
         &cleanStorage},
        {"inspect_directory",
         "Performs high-speed hierarchical directory breakdown by physical and logical storage size.",
         {{"path", "string", "Absolute path of the directory to inspect"},
          {"depth", "integer", "Maximum search depth (default: 3)"}},
         {"path"},
         &inspectDirectory},
        {"list_apps",
         "Lists installed applications in /Applications and ~/Applications along with orphaned leftovers from "
         "previously deleted apps.",
         {{"include_leftovers", "boolean", "Include orphaned leftover files from deleted apps (default: true)"}},
         {},
         &listApps},
        {"uninstall_app",
         "Completely uninstalls an application by moving its bundle, preferences, Application Support, caches, and "
         "LaunchAgents to macOS Trash.",
         {{"bundle_id_or_name", "string", "Bundle identifier (e.g. com.docker.docker) or display name (e.g. Docker)"},
          {"dry_run", "boolean", "Simulate uninstallation without trashing files (default: true)"},
          {"force", "boolean", "Force uninstall even if application is running (default: false)"}},
         {"bundle_id_or_name"},
         &uninstallApp},
        {"get_system_vitals",
         "Returns real-time Mach kernel CPU percentage, memory pressure status, free disk capacity, battery health, "
         "and thermal state.",
         {},
         {},
         &getSystemVitals},
        {"list_rules",
         "Returns all active built-in and dynamic cleanup rules from the rule registry.",
         {},
         {},
         &listRules},
        {"register_rule",
         "Dynamically registers a newly synthesized cleanup rule after validating with SandboxValidator.",
         {{"id", "string", "Unique alphanumeric rule ID (e.g. custom_mlx_models)"},
          {"name", "string", "Human-readable rule name"},
          {"pattern", "string", "Path pattern relative to home (e.g. ~/.cache/mlx/*)"},
          {"category", "string", "Storage category: huggingFaceWhisperModels, developerArtifacts, etc."},
          {"risk_tier", "string", "Risk tier: SAFE_TO_DELETE, REVIEW_REQUIRED, KEEP"},
          {"description", "string", "Optional description"}},
         {"id", "name", "pattern", "category", "risk_tier"},
         &registerRule},
        {"inspect_anomalies",
         "Detects uncataloged heavy directories in ~/.cache and ~/Library that don't match existing cleanup rules.",
         {{"min_size_mb", "number", "Minimum directory size in megabytes to trigger anomaly (default: 100)"}},
         {},
         &inspectAnomalies},
    };
    return rows;
}

JSONValue inputSchema(const ToolRow& row) {
    JSONValue::Object properties;
    for (const auto& property : row.properties) {
        JSONValue::Object schema{{"description", JSONValue(property.description)}};
        if (std::string_view(property.type) == "array") {
            schema["type"] = JSONValue("array");
            schema["items"] = JSONValue(JSONValue::Object{{"type", JSONValue("string")}});
        } else {
            schema["type"] = JSONValue(property.type);
        }
        properties.emplace(property.name, JSONValue(std::move(schema)));
    }
    JSONValue::Object schema{{"type", JSONValue("object")}, {"properties", JSONValue(std::move(properties))}};
    if (!row.required.empty()) {
        JSONValue::Array required;
        for (const char* name : row.required)
            required.emplace_back(name);
        schema["required"] = JSONValue(std::move(required));
    }
    return JSONValue(std::move(schema));
}

} // namespace

std::vector<MCPTool> listTools() {
    std::vector<MCPTool> tools;
    for (const auto& row : toolTable())
        tools.push_back({row.name, row.description, inputSchema(row)});
    return tools;
}

MCPCallToolResult execute(const Environment& environment, const std::string& name, const Arguments& arguments) {
    for (const auto& row : toolTable()) {
        if (name == row.name) return row.handler(environment, arguments);
    }
    return MCPCallToolResult::text("Unknown tool: " + name, true);
}

MCPServer::Tools serverTools(const Environment& environment) {
    return {&listTools, [&environment](const std::string& name, const Arguments& arguments) {
                return execute(environment, name, arguments);
            }};
}

} // namespace unbulk::MCPTools
