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

} // namespace
} // namespace unbulk
