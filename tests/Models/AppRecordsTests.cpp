#include <gtest/gtest.h>

#include "Models/AppModel.hpp"
#include "Support/Json.hpp"

namespace unbulk {
namespace {

InstalledApp app(bool protectedApp = false, bool running = false) {
    return InstalledApp::make({.bundleIdentifier = "com.acme.x", .bundleURL = FileURL("/Applications/X.app", true),
                               .displayName = "X", .isRunning = running, .bundleSizeBytes = 4096,
                               .protectionReason = protectedApp ? std::optional<std::string>("SIP") : std::nullopt},
                              protectedApp);
}

ResolvedDependency dependency(const std::string& path, DependencyLocation location, std::int64_t size) {
    return ResolvedDependency::make({.url = FileURL(path), .location = location, .allocatedSizeBytes = size});
}

TEST(AppRecordsTest, AFootprintCountsTheBundleOnceAndProtectionOutranksRunning) {
    const AppFootprint alone = AppFootprint::make(app(), {});
    EXPECT_EQ(std::tuple(alone.totalItemCount, alone.totalAllocatedSizeBytes, alone.totalLogicalSizeBytes),
              std::tuple(1L, 4096L, 4096L));
    EXPECT_EQ(alone.itemCountByLocation,
              (std::map<DependencyLocation, std::int64_t>{{DependencyLocation::applicationBundle, 1}}));

    const AppFootprint withBundle =
        AppFootprint::make(app(), {dependency("/Applications/X.app", DependencyLocation::applicationBundle, 4096),
                                   dependency("/h/Library/Caches/x", DependencyLocation::caches, 100)});
    EXPECT_EQ(std::pair(withBundle.totalItemCount, withBundle.totalAllocatedSizeBytes), std::pair(2L, 4196L));
    EXPECT_EQ(toJson(withBundle)["itemCountByLocation"], Json::parse(R"(["APPLICATION_BUNDLE", 1, "CACHES", 1])"));

    EXPECT_EQ(AppFootprint::make(app(true, true), {}).blockingReason, "SIP");
    EXPECT_EQ(AppFootprint::make(app(false, true), {}).blockingReason, "Application is currently running");
    EXPECT_TRUE(AppFootprint::make(app(), {}).canUninstall);
}

TEST(AppRecordsTest, EveryRecordReadsBackWhatItWroteInBothDateFormsAndNeedsItsRequiredKeys) {
    InstalledApp full = app();
    full.shortVersion = "1.2";
    full.architecture = "arm64";
    full.iconURL = FileURL("/Applications/X.app/Contents/Resources/X.icns");
    full.appGroupIdentifiers = std::vector<std::string>{"group.x"};
    ResolvedDependency logs = dependency("/h/Library/Logs/X", DependencyLocation::logs, 10);
    logs.lastModifiedDate = Date(std::chrono::seconds(1'700'000'000));
    const AppFootprint footprint = AppFootprint::make(full, {logs});
    const AppLeftover leftover = AppLeftover::make({.candidateAppName = "Gone", .bundleIdentifier = "com.gone",
                                                    .url = FileURL("/h/Library/Caches/com.gone"),
                                                    .location = DependencyLocation::caches, .allocatedSizeBytes = 7,
                                                    .lastModifiedDate = logs.lastModifiedDate, .confidence = 0.95,
                                                    .orphanReason = "r", .suggestedRiskTier = RiskTier::safeToDelete});
    const UninstallSummary summary{.appName = "X", .bundleIdentifier = "com.acme.x", .bundleURL = full.bundleURL,
                                   .deletedURLs = {full.bundleURL}, .unbulkedAllocatedBytes = 4096, .dryRun = true,
                                   .records = {TrashItemRecord{.sourceURL = full.bundleURL,
                                                               .sourcePath = full.bundleURL.path()}},
                                   .timestamp = Date(std::chrono::seconds(1'700'000'000))};
    for (const DateEncoding dates : {DateEncoding::iso8601, DateEncoding::secondsSinceReferenceDate}) {
        EXPECT_EQ(appFootprintFromJson(toJson(footprint, dates)), footprint);
        EXPECT_EQ(appLeftoverFromJson(toJson(leftover, dates)), leftover);
        EXPECT_EQ(uninstallSummaryFromJson(toJson(summary, dates)), summary);
    }
    EXPECT_EQ(toJson(logs)["location"], "CRASH_REPORTS"); // logs is the same place as crash reports

    Json missing = toJson(full);
    missing.erase("isProtected");
    EXPECT_ANY_THROW(installedAppFromJson(missing));
    Json odd = toJson(footprint);
    odd["itemCountByLocation"] = Json::parse(R"(["CACHES"])");
    EXPECT_ANY_THROW(appFootprintFromJson(odd));
}

} // namespace
} // namespace unbulk
