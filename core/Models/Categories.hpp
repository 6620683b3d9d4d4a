#pragma once

#include <array>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include "Support/EnumTable.hpp"

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
    RiskTier value;
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
    CategoryGroup value;
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
    StorageCategory value;
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

template <>
struct EnumTable<RiskTier> {
    static constexpr std::string_view name = "RiskTier";
    static constexpr const auto& rows = riskTierTable;
};

template <>
struct EnumTable<CategoryGroup> {
    static constexpr std::string_view name = "CategoryGroup";
    static constexpr const auto& rows = categoryGroupTable;
};

template <>
struct EnumTable<StorageCategory> {
    static constexpr std::string_view name = "StorageCategory";
    static constexpr const auto& rows = storageCategoryTable;
};

inline RiskTier defaultRiskTier(StorageCategory category) { return info(category).defaultRiskTier; }

// The lenient reading for agent input: the raw value as given, then upper-cased,
// then with underscores removed and case ignored ("dockerVM", "docker_vm").
std::optional<StorageCategory> parseStorageCategory(std::string_view text);

// All sixteen.
CategorySet allStorageCategorySet();

} // namespace unbulk
