// The JSON that leaves the program, as literal text: keys, their spelling,
// which optionals appear, raw values, and the one escaping rule (a "/" is
// written "\/"). Written by hand, not by the code under test, so that a
// renamed key cannot pass by reading itself back.

#include <gtest/gtest.h>

#include "Models/AppModel.hpp"
#include "Models/DiskCapacityBreakdown.hpp"
#include "Models/ScanItem.hpp"
#include "Models/SpaceNode.hpp"
#include "Models/StartupItem.hpp"
#include "Models/StorageAnomaly.hpp"
#include "Models/VitalsModel.hpp"
#include "Support/Json.hpp"

namespace unbulk {
namespace {

const Uuid one = *Uuid::parse("00000000-0000-0000-0000-000000000001");
// 60.5 s after 2001-01-01T00:00:00Z. No double here is whole, so that only
// keys, values and escapes are pinned, not how a whole double is spelled.
const Date minute = Date(std::chrono::milliseconds(978'307'260'500));
const FileURL file("/h/f");

TrashItemRecord record() {
    return TrashItemRecord{.id = one, .sourceURL = file, .sourcePath = "/h/f", .trashURL = FileURL("/t/f"),
                           .trashPath = "/t/f", .allocatedBytes = 1, .logicalBytes = 2, .fileCount = 3,
                           .status = TrashItemStatus::failed, .errorMessage = "e"};
}

TEST(RecordWireFormTest, EveryRecordWritesItsFieldNamesAndNothingElse) {
    const InstalledApp app{.id = one, .bundleIdentifier = "b", .bundleURL = FileURL("/A.app"), .displayName = "d",
                           .version = "v", .shortVersion = "s", .isSystemApp = true, .isRunning = true,
                           .bundleSizeBytes = 1, .logicalSizeBytes = 2, .architecture = "arm64",
                           .codeSignatureAuthority = "c", .iconURL = FileURL("/i"), .executablePath = "/e",
                           .teamIdentifier = "t", .isProtected = true, .protectionReason = "p", .bundleName = "n",
                           .appGroupIdentifiers = std::vector<std::string>{"g"}};
    const ResolvedDependency dependency{.id = one, .url = file, .path = "/h/f", .location = DependencyLocation::caches,
                                        .allocatedSizeBytes = 1, .logicalSizeBytes = 2, .fileCount = 3,
                                        .lastModifiedDate = minute, .isDirectory = true, .isSymlink = true};
    const AppFootprint footprint{.app = app, .dependencies = {dependency}, .totalAllocatedSizeBytes = 1,
                                 .totalLogicalSizeBytes = 2, .totalItemCount = 3,
                                 .itemCountByLocation = {{DependencyLocation::caches, 4}}, .canUninstall = false,
                                 .blockingReason = "r"};
    const AppLeftover leftover{.id = one, .candidateAppName = "c", .bundleIdentifier = "b", .url = file,
                               .path = "/h/f", .location = DependencyLocation::groupContainers,
                               .allocatedSizeBytes = 1, .logicalSizeBytes = 2, .lastModifiedDate = minute,
                               .confidence = 0.5, .orphanReason = "o", .suggestedRiskTier = RiskTier::keep};
    const UninstallSummary uninstall{.id = one, .appName = "a", .bundleIdentifier = "b", .bundleURL = FileURL("/A.app"),
                                     .deletedURLs = {file}, .unbulkedAllocatedBytes = 1, .unbulkedLogicalBytes = 2,
                                     .dryRun = true, .records = {record()}, .timestamp = minute};
    const TrashSummary trash{.operationId = one, .isDryRun = true, .totalItemsCount = 1, .failureCount = 1,
                             .records = {record()}, .startedAt = minute, .completedAt = minute, .durationSeconds = 0.5};
    const DiscoveredItem item{.id = one, .url = file, .path = "/h/f", .category = StorageCategory::dockerVM,
                              .riskTier = RiskTier::reviewRequired, .logicalSizeBytes = 1, .allocatedSizeBytes = 2,
                              .fileCount = 3, .lastAccessedDate = minute, .lastModifiedDate = minute,
                              .isOrphaned = true, .itemDescription = "i", .ruleId = "r"};
    SpaceNode leaf{.id = one, .url = file, .path = "/h/f", .name = "f", .allocatedSizeBytes = 1,
                   .logicalSizeBytes = 2, .itemCount = 1, .lastAccessedDate = minute, .lastModifiedDate = minute,
                   .fileCategory = FileCategory::diskImages};
    const SpaceNode tree{.id = one, .url = FileURL("/h"), .path = "/h", .name = "h", .isDirectory = true,
                         .itemCount = 1, .children = std::vector<SpaceNode>{leaf}};
    const StorageAnomaly anomaly{.id = one, .url = file, .path = "/h/f", .allocatedSizeBytes = 1,
                                 .logicalSizeBytes = 2, .fileCount = 3, .confidenceScore = 0.5,
                                 .hasCacheDirTag = true, .tagApplicationComment = "c", .matchedKeywords = {"tmp"},
                                 .anomalyDescription = "d"};
    const SystemVitals vitals{.timestamp = minute,
                              .cpu = {.totalUsagePercentage = 0.5, .userPercentage = 0.25, .systemPercentage = 0.25,
                                      .idlePercentage = 99.5, .coreCount = 2, .perCoreUsage = {0.5}},
                              .memory = {.pressureStatus = MemoryPressureStatus::warning, .usedPercentage = 0.5},
                              .disk = {.volumePath = "/", .volumeName = "v", .usedPercentage = 0.5},
                              .battery = BatteryMetrics{.percentage = 50.5, .timeRemainingMinutes = 5,
                                                        .healthPercentage = 90.5, .cycleCount = 7},
                              .thermalState = SystemThermalState::fair};
    const StartupItem startup{.id = one, .name = "n", .label = "l", .type = StartupType::systemLaunchDaemon,
                              .fileURL = FileURL("/L/l.plist"), .targetExecutablePath = "/bin/x",
                              .requiresAdministrator = true, .status = StartupStatus::orphan,
                              .impact = StartupImpact::high, .bundleIdentifier = "l"};

    const std::vector<std::pair<Json, std::string>> rows{
        {toJson(footprint),
         R"({"app":{"appGroupIdentifiers":["g"],"architecture":"arm64","bundleIdentifier":"b","bundleName":"n",)"
         R"("bundleSizeBytes":1,"bundleURL":"file:\/\/\/A.app","codeSignatureAuthority":"c","displayName":"d",)"
         R"("executablePath":"\/e","iconURL":"file:\/\/\/i","id":"00000000-0000-0000-0000-000000000001",)"
         R"("isProtected":true,"isRunning":true,"isSystemApp":true,"logicalSizeBytes":2,"protectionReason":"p",)"
         R"("shortVersion":"s","teamIdentifier":"t","version":"v"},"blockingReason":"r","canUninstall":false,)"
         R"("dependencies":[{"allocatedSizeBytes":1,"fileCount":3,"id":"00000000-0000-0000-0000-000000000001",)"
         R"("isDirectory":true,"isSymlink":true,"lastModifiedDate":60.5,"location":"CACHES","logicalSizeBytes":2,)"
         R"("path":"\/h\/f","url":"file:\/\/\/h\/f"}],"itemCountByLocation":["CACHES",4],)"
         R"("totalAllocatedSizeBytes":1,"totalItemCount":3,"totalLogicalSizeBytes":2})"},
        {toJson(leftover),
         R"({"allocatedSizeBytes":1,"bundleIdentifier":"b","candidateAppName":"c","confidence":0.5,)"
         R"("id":"00000000-0000-0000-0000-000000000001","lastModifiedDate":60.5,"location":"GROUP_CONTAINERS",)"
         R"("logicalSizeBytes":2,"orphanReason":"o","path":"\/h\/f","suggestedRiskTier":"KEEP",)"
         R"("url":"file:\/\/\/h\/f"})"},
        {toJson(uninstall),
         R"({"appName":"a","bundleIdentifier":"b","bundleURL":"file:\/\/\/A.app",)"
         R"("deletedURLs":["file:\/\/\/h\/f"],"dryRun":true,"id":"00000000-0000-0000-0000-000000000001",)"
         R"("records":[{"allocatedBytes":1,"errorMessage":"e","fileCount":3,)"
         R"("id":"00000000-0000-0000-0000-000000000001","logicalBytes":2,"sourcePath":"\/h\/f",)"
         R"("sourceURL":"file:\/\/\/h\/f","status":"FAILED","trashPath":"\/t\/f","trashURL":"file:\/\/\/t\/f"}],)"
         R"("timestamp":60.5,"unbulkedAllocatedBytes":1,"unbulkedLogicalBytes":2})"},
        {toJson(trash),
         R"({"completedAt":60.5,"durationSeconds":0.5,"failureCount":1,"isDryRun":true,"isPermanentPurge":false,)"
         R"("operationId":"00000000-0000-0000-0000-000000000001","records":[{"allocatedBytes":1,)"
         R"("errorMessage":"e","fileCount":3,"id":"00000000-0000-0000-0000-000000000001","logicalBytes":2,)"
         R"("sourcePath":"\/h\/f","sourceURL":"file:\/\/\/h\/f","status":"FAILED","trashPath":"\/t\/f",)"
         R"("trashURL":"file:\/\/\/t\/f"}],"startedAt":60.5,"successCount":0,"totalAllocatedBytesUnbulked":0,)"
         R"("totalItemsCount":1,"totalLogicalBytesUnbulked":0})"},
        {toJson(item),
         R"({"allocatedSizeBytes":2,"category":"DOCKER_VM","fileCount":3,)"
         R"("id":"00000000-0000-0000-0000-000000000001","isLocked":false,"isOrphaned":true,"itemDescription":"i",)"
         R"("lastAccessedDate":60.5,"lastModifiedDate":60.5,"logicalSizeBytes":1,"path":"\/h\/f",)"
         R"("requiresFullDiskAccess":false,"riskTier":"REVIEW_REQUIRED","ruleId":"r","url":"file:\/\/\/h\/f"})"},
        {toJson(tree),
         R"({"allocatedSizeBytes":0,"children":[{"allocatedSizeBytes":1,"fileCategory":"DISK_IMAGES",)"
         R"("id":"00000000-0000-0000-0000-000000000001","isDirectory":false,"itemCount":1,)"
         R"("lastAccessedDate":60.5,"lastModifiedDate":60.5,"logicalSizeBytes":2,"name":"f","path":"\/h\/f",)"
         R"("url":"file:\/\/\/h\/f"}],"id":"00000000-0000-0000-0000-000000000001","isDirectory":true,)"
         R"("itemCount":1,"logicalSizeBytes":0,"name":"h","path":"\/h","url":"file:\/\/\/h"})"},
        {toJson(anomaly),
         R"({"allocatedSizeBytes":1,"anomalyDescription":"d","confidenceScore":0.5,"fileCount":3,)"
         R"("hasCacheDirTag":true,"id":"00000000-0000-0000-0000-000000000001","logicalSizeBytes":2,)"
         R"("matchedKeywords":["tmp"],"path":"\/h\/f","suggestedCategory":"UNKNOWN_ANOMALY",)"
         R"("suggestedRiskTier":"REVIEW_REQUIRED","tagApplicationComment":"c","url":"file:\/\/\/h\/f"})"},
        {toJson(vitals, DateEncoding::iso8601),
         R"({"battery":{"cycleCount":7,"healthPercentage":90.5,"isACPowered":false,"isCharging":false,)"
         R"("percentage":50.5,"timeRemainingMinutes":5},"cpu":{"coreCount":2,"idlePercentage":99.5,)"
         R"("perCoreUsage":[0.5],"systemPercentage":0.25,"totalUsagePercentage":0.5,"userPercentage":0.25},)"
         R"("disk":{"availableBytes":0,"freeBytes":0,"purgeableBytes":0,"systemBytes":0,"totalBytes":0,)"
         R"("usedBytes":0,"usedPercentage":0.5,"volumeName":"v","volumePath":"\/"},"memory":{"appMemoryBytes":0,)"
         R"("compressedBytes":0,"freeBytes":0,"pressureStatus":"WARNING","totalBytes":0,"usedBytes":0,)"
         R"("usedPercentage":0.5,"wiredBytes":0},"thermalState":"FAIR","timestamp":"2001-01-01T00:01:00Z"})"},
        {toJson(startup),
         R"({"bundleIdentifier":"l","fileURL":"file:\/\/\/L\/l.plist",)"
         R"("id":"00000000-0000-0000-0000-000000000001","impact":"HIGH","isEnabled":true,"isRunning":false,)"
         R"("label":"l","name":"n","requiresAdministrator":true,"status":"ORPHAN",)"
         R"("targetExecutablePath":"\/bin\/x","type":"SYSTEM_LAUNCH_DAEMON"})"},
        {toJson(DiskCapacityBreakdown{1.5, 2.5, 3.5, 4.5, 5.5, 6.5, 7.5}),
         R"({"appsBytes":5.5,"freeBytes":2.5,"otherBytes":7.5,"sweepableBytes":6.5,"systemBytes":4.5,)"
         R"("totalBytes":1.5,"usedBytes":3.5})"},
    };
    for (const auto& [json, text] : rows) EXPECT_EQ(json::compact(json), text);
}

} // namespace
} // namespace unbulk
