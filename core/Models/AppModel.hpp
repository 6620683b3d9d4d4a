#pragma once

#include <array>
#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Models/Categories.hpp"
#include "Models/SafetyModels.hpp"
#include "Support/Dates.hpp"
#include "Support/EnumTable.hpp"
#include "Support/FileURL.hpp"
#include "Support/JsonFwd.hpp"
#include "Support/Uuid.hpp"

// The records of the uninstaller: an installed application, what belongs
// to it, what an application that is gone left behind, and what an
// uninstallation did. Field names are wire names.
namespace unbulk {

// The raw values are not uniform on purpose: machine names for the single
// architectures, words for the other two.
enum class AppArchitecture { arm64, x86_64, universal, unknown };

struct AppArchitectureInfo {
    AppArchitecture value;
    std::string_view rawValue;
    std::string_view displayName;
};

inline constexpr std::array<AppArchitectureInfo, 4> appArchitectureTable{{
    {AppArchitecture::arm64, "arm64", "Apple Silicon"},
    {AppArchitecture::x86_64, "x86_64", "Intel 64-bit"},
    {AppArchitecture::universal, "Universal", "Universal"},
    {AppArchitecture::unknown, "Unknown", "Unknown"},
}};

template <> struct EnumTable<AppArchitecture> {
    static constexpr std::string_view name = "AppArchitecture";
    static constexpr const auto& rows = appArchitectureTable;
};

// The kind of place an application's data was found in.
enum class DependencyLocation {
    applicationBundle,
    applicationSupport,
    caches,
    preferences,
    savedApplicationState,
    webKit,
    httpStorages,
    containers,
    groupContainers,
    applicationScripts,
    launchAgents,
    crashReports,
    logs = crashReports, // a second name for the same place, not a case of its own
};

struct DependencyLocationInfo {
    DependencyLocation value;
    std::string_view rawValue;
    std::string_view displayName;
};

inline constexpr std::array<DependencyLocationInfo, 12> dependencyLocationTable{{
    {DependencyLocation::applicationBundle, "APPLICATION_BUNDLE", "Application Bundle (.app)"},
    {DependencyLocation::applicationSupport, "APPLICATION_SUPPORT", "Application Support"},
    {DependencyLocation::caches, "CACHES", "Caches"},
    {DependencyLocation::preferences, "PREFERENCES", "Preferences (.plist)"},
    {DependencyLocation::savedApplicationState, "SAVED_APPLICATION_STATE", "Saved Application State"},
    {DependencyLocation::webKit, "WEBKIT", "WebKit Storage"},
    {DependencyLocation::httpStorages, "HTTP_STORAGES", "HTTP Network Storages"},
    {DependencyLocation::containers, "CONTAINERS", "Sandbox Containers"},
    {DependencyLocation::groupContainers, "GROUP_CONTAINERS", "App Group Containers"},
    {DependencyLocation::applicationScripts, "APPLICATION_SCRIPTS", "Application Scripts"},
    {DependencyLocation::launchAgents, "LAUNCH_AGENTS", "Launch Agents"},
    {DependencyLocation::crashReports, "CRASH_REPORTS", "Crash Reports & Logs"},
}};

template <> struct EnumTable<DependencyLocation> {
    static constexpr std::string_view name = "DependencyLocation";
    static constexpr const auto& rows = dependencyLocationTable;
};

struct InstalledApp {
    Uuid id;
    std::string bundleIdentifier;
    FileURL bundleURL; // as found, links not resolved
    std::string displayName;
    std::string version = "Unknown";
    std::optional<std::string> shortVersion;
    bool isSystemApp = false;
    bool isRunning = false;
    std::int64_t bundleSizeBytes = 0;
    std::int64_t logicalSizeBytes = 0;
    std::optional<std::string> architecture; // an AppArchitecture raw value
    std::optional<std::string> codeSignatureAuthority;
    std::optional<FileURL> iconURL;
    std::optional<std::string> executablePath;
    std::optional<std::string> teamIdentifier;
    bool isProtected = false;
    std::optional<std::string> protectionReason;
    std::optional<std::string> bundleName;
    std::optional<std::vector<std::string>> appGroupIdentifiers;

    // The memberwise initialiser's rules: isProtected defaults to
    // isSystemApp, and a logical size below 1 becomes the bundle size.
    static InstalledApp make(InstalledApp fields, std::optional<bool> isProtected = std::nullopt);

    std::string formattedBundleSize() const;
    std::string formattedLogicalSize() const;
    std::int64_t totalSize() const { return bundleSizeBytes; }
    // unknown when architecture is absent or not one of the four raw values.
    AppArchitecture archType() const;

    friend bool operator==(const InstalledApp&, const InstalledApp&) = default;
};

struct ResolvedDependency {
    Uuid id;
    FileURL url;
    std::string path; // always url.path(); set by make()
    DependencyLocation location = DependencyLocation::applicationSupport;
    std::int64_t allocatedSizeBytes = 0;
    std::int64_t logicalSizeBytes = 0; // a value below 1 becomes allocatedSizeBytes
    std::int64_t fileCount = 0;
    std::optional<Date> lastModifiedDate;
    bool isDirectory = false;
    bool isSymlink = false;

    static ResolvedDependency make(ResolvedDependency fields);

    std::string formattedSize() const;
    std::string formattedAllocatedSize() const { return formattedSize(); }
    std::string formattedLogicalSize() const;

    friend bool operator==(const ResolvedDependency&, const ResolvedDependency&) = default;
};

// An application with everything that belongs to it; its id is the app's.
struct AppFootprint {
    InstalledApp app;
    std::vector<ResolvedDependency> dependencies;
    std::int64_t totalAllocatedSizeBytes = 0;
    std::int64_t totalLogicalSizeBytes = 0;
    std::int64_t totalItemCount = 0;
    std::map<DependencyLocation, std::int64_t> itemCountByLocation;
    bool canUninstall = true;
    std::optional<std::string> blockingReason;

    // Computes every other field: the bundle counts as one more item unless
    // a dependency is the bundle, and protection outranks running.
    static AppFootprint make(InstalledApp app, std::vector<ResolvedDependency> dependencies);

    const Uuid& id() const { return app.id; }
    std::string formattedTotalSize() const;
    std::string formattedTotalAllocatedSize() const { return formattedTotalSize(); }
    std::string formattedTotalLogicalSize() const;
    // The bundle, then each dependency that is not the bundle.
    std::vector<FileURL> allURLs() const;

    friend bool operator==(const AppFootprint&, const AppFootprint&) = default;
};

struct AppLeftover {
    Uuid id;
    std::string candidateAppName;
    std::optional<std::string> bundleIdentifier;
    FileURL url;
    std::string path; // always url.path(); set by make()
    DependencyLocation location = DependencyLocation::applicationSupport;
    std::int64_t allocatedSizeBytes = 0;
    std::int64_t logicalSizeBytes = 0; // a value below 1 becomes allocatedSizeBytes
    std::optional<Date> lastModifiedDate;
    double confidence = 0;
    std::string orphanReason;
    RiskTier suggestedRiskTier = RiskTier::reviewRequired;

    static AppLeftover make(AppLeftover fields);

    std::vector<FileURL> candidateURLs() const { return {url}; }
    const std::string& reason() const { return orphanReason; }
    std::string formattedSize() const;
    std::string formattedLogicalSize() const;

    friend bool operator==(const AppLeftover&, const AppLeftover&) = default;
};

struct UninstallSummary {
    Uuid id;
    std::string appName;
    std::string bundleIdentifier;
    FileURL bundleURL;
    std::vector<FileURL> deletedURLs;
    std::int64_t unbulkedAllocatedBytes = 0;
    std::int64_t unbulkedLogicalBytes = 0;
    bool dryRun = false;
    std::vector<TrashItemRecord> records;
    Date timestamp{};

    // The second vocabulary; never serialised.
    std::int64_t totalBytesUnbulked() const { return unbulkedAllocatedBytes; }
    std::int64_t logicalBytesUnbulked() const { return unbulkedLogicalBytes; }
    bool isDryRun() const { return dryRun; }
    Date completedAt() const { return timestamp; }
    std::string formattedBytesUnbulked() const;
    std::string formattedLogicalBytesUnbulked() const;

    friend bool operator==(const UninstallSummary&, const UninstallSummary&) = default;
};

// Field by field; absent optionals write no key. itemCountByLocation is one
// flat array alternating raw value and count (["CACHES", 3, ...]): that is
// the wire form an enumeration-keyed dictionary has always had.
Json toJson(const InstalledApp& app);
Json toJson(const ResolvedDependency& dependency, DateEncoding dates = DateEncoding::secondsSinceReferenceDate);
Json toJson(const AppFootprint& footprint, DateEncoding dates = DateEncoding::secondsSinceReferenceDate);
Json toJson(const AppLeftover& leftover, DateEncoding dates = DateEncoding::secondsSinceReferenceDate);
Json toJson(const UninstallSummary& summary, DateEncoding dates = DateEncoding::secondsSinceReferenceDate);

// Readers of the same forms, dates in either encoding. Every field that is
// not optional is required; a missing key or a value of the wrong type
// throws (nlohmann::json's exceptions, or std::invalid_argument for a bad
// URL, UUID or date). Values are taken as they stand: no initialiser rule
// runs again.
InstalledApp installedAppFromJson(const Json& json);
ResolvedDependency resolvedDependencyFromJson(const Json& json);
AppFootprint appFootprintFromJson(const Json& json);
AppLeftover appLeftoverFromJson(const Json& json);
UninstallSummary uninstallSummaryFromJson(const Json& json);

} // namespace unbulk
