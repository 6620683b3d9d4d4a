#pragma once

#include <array>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

namespace unbulk {

// Ordered by declaration: safeToDelete < reviewRequired < keep, so the
// maximum of a set of tiers is the strictest.
enum class RiskTier { safeToDelete, reviewRequired, keep };

enum class CategoryGroup { developer, system, applications, files, startup, dynamic };

enum class StorageCategory {
    developerCache,
    aiModelWeights,
    dockerVM,
    xcodeArtifacts,
    strayDependencies,
    systemCaches,
    systemLogs,
    crashReports,
    mailDownloads,
    browserCaches,
    applicationBundles,
    leftovers,
    largeFiles,
    startupItems,
    dynamicRule,
    unknownAnomaly,
};

using CategorySet = std::set<StorageCategory>;

struct RiskTierInfo {
    RiskTier tier;
    std::string_view rawValue;
    std::string_view displayName;
    std::string_view symbolName;
    bool isSelectedByDefault;
    bool canBeCleaned;
};

inline constexpr std::array<RiskTierInfo, 3> riskTierTable{{
    {RiskTier::safeToDelete, "SAFE_TO_DELETE", "Safe to Clean", "checkmark.shield.fill", true, true},
    {RiskTier::reviewRequired, "REVIEW_REQUIRED", "Review Required", "exclamationmark.triangle.fill", false, true},
    {RiskTier::keep, "KEEP", "Protected (Keep)", "lock.shield.fill", false, false},
}};

struct CategoryGroupInfo {
    CategoryGroup group;
    std::string_view rawValue;
    std::string_view displayName;
};

inline constexpr std::array<CategoryGroupInfo, 6> categoryGroupTable{{
    {CategoryGroup::developer, "DEVELOPER", "Developer & AI"},
    {CategoryGroup::system, "SYSTEM", "System Junk"},
    {CategoryGroup::applications, "APPLICATIONS", "Applications & Leftovers"},
    {CategoryGroup::files, "FILES", "Large & Old Files"},
    {CategoryGroup::startup, "STARTUP", "Startup Items"},
    {CategoryGroup::dynamic, "DYNAMIC", "Adaptive Rules"},
}};

struct StorageCategoryInfo {
    StorageCategory category;
    std::string_view rawValue;
    std::string_view displayName;
    std::string_view iconName;
    CategoryGroup group;
    RiskTier defaultRiskTier;
};

// In declaration order, which is the order of allCases.
inline constexpr std::array<StorageCategoryInfo, 16> storageCategoryTable{{
    {StorageCategory::developerCache, "DEVELOPER_CACHE", "Developer Caches", "hammer.fill", CategoryGroup::developer,
     RiskTier::safeToDelete},
    {StorageCategory::aiModelWeights, "AI_MODEL_WEIGHTS", "AI Model Weights", "brain.head.profile",
     CategoryGroup::developer, RiskTier::reviewRequired},
    {StorageCategory::dockerVM, "DOCKER_VM", "Docker VM Disk Images", "shippingbox.fill", CategoryGroup::developer,
     RiskTier::reviewRequired},
    {StorageCategory::xcodeArtifacts, "XCODE_ARTIFACTS", "Xcode Build Artifacts",
     "chevron.left.forwardslash.chevron.right", CategoryGroup::developer, RiskTier::safeToDelete},
    {StorageCategory::strayDependencies, "STRAY_DEPENDENCIES", "Stray Project Dependencies", "shippingbox",
     CategoryGroup::developer, RiskTier::reviewRequired},
    {StorageCategory::systemCaches, "SYSTEM_CACHES", "User System Caches", "archivebox.fill", CategoryGroup::system,
     RiskTier::safeToDelete},
    {StorageCategory::systemLogs, "SYSTEM_LOGS", "User & System Logs", "doc.text.fill", CategoryGroup::system,
     RiskTier::safeToDelete},
    {StorageCategory::crashReports, "CRASH_REPORTS", "Crash & Diagnostic Reports", "exclamationmark.bubble.fill",
     CategoryGroup::system, RiskTier::safeToDelete},
    {StorageCategory::mailDownloads, "MAIL_DOWNLOADS", "Mail Attachment Downloads",
     "envelope.arrow.triangle.branch.fill", CategoryGroup::system, RiskTier::reviewRequired},
    {StorageCategory::browserCaches, "BROWSER_CACHES", "Web Browser Caches", "globe", CategoryGroup::system,
     RiskTier::safeToDelete},
    {StorageCategory::applicationBundles, "APPLICATION_BUNDLES", "Installed Applications", "app.badge.fill",
     CategoryGroup::applications, RiskTier::reviewRequired},
    {StorageCategory::leftovers, "LEFTOVERS", "Application Leftovers", "trash.fill", CategoryGroup::applications,
     RiskTier::safeToDelete},
    {StorageCategory::largeFiles, "LARGE_FILES", "Large & Old Files", "doc.text.magnifyingglass",
     CategoryGroup::files, RiskTier::reviewRequired},
    {StorageCategory::startupItems, "STARTUP_ITEMS", "Startup & Login Items", "gearshape.arrow.triangle.2.circlepath",
     CategoryGroup::startup, RiskTier::reviewRequired},
    {StorageCategory::dynamicRule, "DYNAMIC_RULE", "Dynamic Rule Matches", "wand.and.stars", CategoryGroup::dynamic,
     RiskTier::safeToDelete},
    {StorageCategory::unknownAnomaly, "UNKNOWN_ANOMALY", "Storage Anomalies", "rays", CategoryGroup::dynamic,
     RiskTier::reviewRequired},
}};

const RiskTierInfo& info(RiskTier tier);
const CategoryGroupInfo& info(CategoryGroup group);
const StorageCategoryInfo& info(StorageCategory category);

std::string_view rawValue(RiskTier tier);
std::string_view rawValue(CategoryGroup group);
std::string_view rawValue(StorageCategory category);
std::string_view displayName(RiskTier tier);
std::string_view displayName(CategoryGroup group);
std::string_view displayName(StorageCategory category);
RiskTier defaultRiskTier(StorageCategory category);

// Exact raw-value readings, like the raw-value initialisers.
std::optional<RiskTier> riskTierFromRawValue(std::string_view raw);
std::optional<CategoryGroup> categoryGroupFromRawValue(std::string_view raw);
std::optional<StorageCategory> storageCategoryFromRawValue(std::string_view raw);

// The lenient reading for agent input: the raw value as given, then upper-cased,
// then with underscores removed and case ignored ("dockerVM", "docker_vm").
std::optional<StorageCategory> parseStorageCategory(std::string_view text);

// All sixteen, in declaration order.
std::array<StorageCategory, 16> allStorageCategories();
CategorySet allStorageCategorySet();

void to_json(nlohmann::json& j, RiskTier tier);
void from_json(const nlohmann::json& j, RiskTier& tier);
void to_json(nlohmann::json& j, CategoryGroup group);
void from_json(const nlohmann::json& j, CategoryGroup& group);
void to_json(nlohmann::json& j, StorageCategory category);
void from_json(const nlohmann::json& j, StorageCategory& category);

} // namespace unbulk
