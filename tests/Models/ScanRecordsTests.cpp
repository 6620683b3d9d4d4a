#include <algorithm>
#include <chrono>
#include <cstdint>
#include <limits>
#include <set>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Models/Categories.hpp"
#include "Models/ScanItem.hpp"

namespace unbulk {
namespace {

using namespace std::chrono;

constexpr const char* sampleUuid = "e621e1f8-c36c-495a-93fc-0c247a3e6e5f";

Date at(sys_days day, seconds time, milliseconds extra = milliseconds{0}) {
    return Date{duration_cast<Date::duration>(day.time_since_epoch() + time + extra)};
}

DiscoveredItem makeItem(std::string path, StorageCategory category, RiskTier tier, std::int64_t allocated,
                        std::int64_t logical = 0, bool fullDiskAccess = false) {
    DiscoveredItem::Fields f;
    f.url = FileURL(std::move(path));
    f.category = category;
    f.riskTier = tier;
    f.logicalSizeBytes = logical;
    f.allocatedSizeBytes = allocated;
    f.fileCount = 1;
    f.requiresFullDiskAccess = fullDiskAccess;
    f.itemDescription = "item";
    return DiscoveredItem::make(std::move(f));
}

// Every optional present, a directory URL that needs percent-encoding.
DiscoveredItem fullItem() {
    DiscoveredItem::Fields f;
    f.id = *Uuid::parse(sampleUuid);
    f.url = FileURL("/Users/me/My Caches/caf\xC3\xA9", true);
    f.category = StorageCategory::dockerVM;
    f.riskTier = RiskTier::keep;
    f.logicalSizeBytes = 2048;
    f.allocatedSizeBytes = 4096;
    f.fileCount = 3;
    f.lastAccessedDate = at(sys_days{2026y / March / 1}, 10h + 15min + 30s, 789ms);
    f.lastModifiedDate = at(sys_days{2001y / January / 1}, 10s);
    f.isOrphaned = true;
    f.requiresFullDiskAccess = true;
    f.itemDescription = "Docker VM disk image";
    f.ruleId = "dev.docker.vm";
    return DiscoveredItem::make(std::move(f));
}

ScanProgress progressAt(StorageCategory category, std::string path, std::optional<double> fraction = {}) {
    ScanProgress p;
    p.currentCategory = category;
    p.currentPath = std::move(path);
    p.itemsFound = 1;
    p.fractionCompleted = fraction;
    return p;
}

std::set<std::string> keysOf(const Json& object) {
    std::set<std::string> keys;
    for (const auto& [key, value] : object.items()) keys.insert(key);
    return keys;
}

bool hasNull(const Json& value) {
    if (value.is_null()) return true;
    if (value.is_structured()) {
        for (const auto& child : value) {
            if (hasNull(child)) return true;
        }
    }
    return false;
}

// ---- tables -----------------------------------------------------------------

TEST(CategoriesTest, AllStorageCategoriesAreInDeclaredOrder) {
    const std::vector<StorageCategory> expected{
        StorageCategory::developerCache, StorageCategory::aiModelWeights,     StorageCategory::dockerVM,
        StorageCategory::xcodeArtifacts, StorageCategory::strayDependencies,  StorageCategory::systemCaches,
        StorageCategory::systemLogs,     StorageCategory::crashReports,       StorageCategory::mailDownloads,
        StorageCategory::browserCaches,  StorageCategory::applicationBundles, StorageCategory::leftovers,
        StorageCategory::largeFiles,     StorageCategory::startupItems,       StorageCategory::dynamicRule,
        StorageCategory::unknownAnomaly};
    auto all = allStorageCategories();
    EXPECT_EQ(std::vector<StorageCategory>(all.begin(), all.end()), expected);
    EXPECT_EQ(allStorageCategorySet().size(), 16u);
}

TEST(CategoriesTest, TiersOrderFromSafeToKeepSoTheMaximumIsStrictest) {
    EXPECT_LT(RiskTier::safeToDelete, RiskTier::reviewRequired);
    EXPECT_LT(RiskTier::reviewRequired, RiskTier::keep);
    const std::vector<RiskTier> tiers{RiskTier::reviewRequired, RiskTier::keep, RiskTier::safeToDelete};
    EXPECT_EQ(*std::max_element(tiers.begin(), tiers.end()), RiskTier::keep);
    // The order is the ordinal, not the raw string ("KEEP" < "SAFE_TO_DELETE").
    EXPECT_LT(rawValue(RiskTier::keep), rawValue(RiskTier::safeToDelete));
}

TEST(CategoriesTest, SpotChecksOfTheTables) {
    EXPECT_EQ(rawValue(StorageCategory::dockerVM), "DOCKER_VM");
    EXPECT_EQ(displayName(StorageCategory::mailDownloads), "Mail Attachment Downloads");
    EXPECT_EQ(info(StorageCategory::xcodeArtifacts).iconName, "chevron.left.forwardslash.chevron.right");
    EXPECT_EQ(info(StorageCategory::unknownAnomaly).group, CategoryGroup::dynamic);
    EXPECT_EQ(displayName(RiskTier::keep), "Protected (Keep)");
    EXPECT_EQ(rawValue(RiskTier::reviewRequired), "REVIEW_REQUIRED");
    EXPECT_FALSE(info(RiskTier::keep).canBeCleaned);
    EXPECT_TRUE(info(RiskTier::safeToDelete).isSelectedByDefault);
    EXPECT_FALSE(info(RiskTier::reviewRequired).isSelectedByDefault);
    EXPECT_EQ(displayName(CategoryGroup::developer), "Developer & AI");
    EXPECT_EQ(rawValue(CategoryGroup::applications), "APPLICATIONS");
    // The defaults that read against intuition.
    EXPECT_EQ(defaultRiskTier(StorageCategory::leftovers), RiskTier::safeToDelete);
    EXPECT_EQ(defaultRiskTier(StorageCategory::dynamicRule), RiskTier::safeToDelete);
    EXPECT_EQ(defaultRiskTier(StorageCategory::mailDownloads), RiskTier::reviewRequired);
}

TEST(CategoriesTest, EveryRawValueReadsBackExactly) {
    for (auto category : allStorageCategories()) {
        EXPECT_EQ(storageCategoryFromRawValue(rawValue(category)), category) << rawValue(category);
        EXPECT_EQ(Json(category).get<StorageCategory>(), category);
    }
    for (const auto& row : riskTierTable) EXPECT_EQ(riskTierFromRawValue(row.rawValue), row.tier);
    for (const auto& row : categoryGroupTable) EXPECT_EQ(categoryGroupFromRawValue(row.rawValue), row.group);
    // The raw-value readers are exact; only parse is lenient.
    EXPECT_EQ(storageCategoryFromRawValue("docker_vm"), std::nullopt);
    EXPECT_EQ(riskTierFromRawValue("keep"), std::nullopt);
    EXPECT_THROW(Json("keep").get<RiskTier>(), Json::exception);
    EXPECT_THROW(Json("DOCKERVM").get<StorageCategory>(), Json::exception);
}

struct ParseCase {
    const char* text;
    std::optional<StorageCategory> expected;
};

TEST(CategoriesTest, ParseIsLenientAboutCaseAndUnderscoresOnly) {
    const std::vector<ParseCase> cases{
        {"DOCKER_VM", StorageCategory::dockerVM},
        {"docker_vm", StorageCategory::dockerVM},
        {"dockerVM", StorageCategory::dockerVM},
        {"DOCKERVM", StorageCategory::dockerVM},
        {"Docker_V_M", StorageCategory::dockerVM},
        {"developerCache", StorageCategory::developerCache},
        {"ai_model_weights", StorageCategory::aiModelWeights},
        {"UnknownAnomaly", StorageCategory::unknownAnomaly},
        {"developer cache", std::nullopt},
        {"docker-vm", std::nullopt},
        {" DOCKER_VM", std::nullopt},
        {"", std::nullopt},
        {"_", std::nullopt},
        {"docker", std::nullopt},
    };
    for (const auto& c : cases) EXPECT_EQ(parseStorageCategory(c.text), c.expected) << '"' << c.text << '"';
}

// ---- ScanSummary::from --------------------------------------------------------

TEST(ScanSummaryTest, EmptyListGivesZerosAndNoBreakdown) {
    const ScanSummary summary = ScanSummary::from({});
    EXPECT_EQ(summary, ScanSummary{}); // all zeros, false, no breakdown
    EXPECT_EQ(summary.formattedAllocatedBytes(), "Zero KB");
}

TEST(ScanSummaryTest, TotalsTiersAndBreakdownOrder) {
    const std::vector<DiscoveredItem> items{
        makeItem("/h/npm", StorageCategory::developerCache, RiskTier::safeToDelete, 100, 150),
        makeItem("/h/pip", StorageCategory::developerCache, RiskTier::keep, 50, 70),
        makeItem("/h/docker", StorageCategory::dockerVM, RiskTier::reviewRequired, 1'500'000, 1'000, true),
        makeItem("/h/logs", StorageCategory::systemLogs, RiskTier::keep, 10, 5),
        makeItem("/h/mail", StorageCategory::mailDownloads, RiskTier::safeToDelete, 400, 400),
    };
    const ScanSummary summary = ScanSummary::from(items);

    EXPECT_EQ(summary.totalItems, 5);
    EXPECT_EQ(summary.totalAllocatedBytes, 1'500'560);
    EXPECT_EQ(summary.totalLogicalBytes, 1'625);
    // keep items count in the totals but in neither of the two cleanable sums.
    EXPECT_EQ(summary.safeUnbulkableBytes, 500);
    EXPECT_EQ(summary.reviewUnbulkableBytes, 1'500'000);
    EXPECT_TRUE(summary.requiresFullDiskAccess);
    EXPECT_EQ(summary.formattedAllocatedBytes(), "1.5 MB");

    // Larger allocated totals first, whatever the declaration order.
    ASSERT_EQ(summary.categoryBreakdown.size(), 4u);
    const auto& docker = summary.categoryBreakdown[0];
    const auto& mail = summary.categoryBreakdown[1];
    const auto& developer = summary.categoryBreakdown[2];
    const auto& logs = summary.categoryBreakdown[3];
    EXPECT_EQ(docker.category, StorageCategory::dockerVM);
    EXPECT_EQ(mail.category, StorageCategory::mailDownloads);
    EXPECT_EQ(developer.category, StorageCategory::developerCache);
    EXPECT_EQ(logs.category, StorageCategory::systemLogs);

    EXPECT_EQ(developer, (CategorySummary{.category = StorageCategory::developerCache,
                                          .riskTier = RiskTier::keep,
                                          .itemCount = 2,
                                          .totalLogicalBytes = 220,
                                          .totalAllocatedBytes = 150,
                                          .safeToDeleteBytes = 100,
                                          .reviewRequiredBytes = 0,
                                          .requiresFullDiskAccess = false}));
    EXPECT_EQ(developer.id(), "DEVELOPER_CACHE");
    EXPECT_TRUE(docker.requiresFullDiskAccess);
    EXPECT_EQ(docker.reviewRequiredBytes, 1'500'000);
    // The tier is the items' maximum, not the category's default.
    EXPECT_EQ(mail.riskTier, RiskTier::safeToDelete);
    EXPECT_EQ(logs.riskTier, RiskTier::keep);
    EXPECT_EQ(logs.safeToDeleteBytes + logs.reviewRequiredBytes, 0);
}

TEST(ScanSummaryTest, FullDiskAccessIsFalseWhenNoItemNeedsIt) {
    const ScanSummary summary =
        ScanSummary::from({makeItem("/h/a", StorageCategory::systemCaches, RiskTier::safeToDelete, 1),
                           makeItem("/h/b", StorageCategory::crashReports, RiskTier::safeToDelete, 2)});
    EXPECT_FALSE(summary.requiresFullDiskAccess);
    for (const auto& category : summary.categoryBreakdown) EXPECT_FALSE(category.requiresFullDiskAccess);
}

TEST(ScanSummaryDeathTest, OverflowingSumAborts) {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const std::int64_t max = std::numeric_limits<std::int64_t>::max();
    const std::vector<DiscoveredItem> allocated{
        makeItem("/h/a", StorageCategory::largeFiles, RiskTier::keep, max),
        makeItem("/h/b", StorageCategory::largeFiles, RiskTier::keep, 1)};
    EXPECT_DEATH(ScanSummary::from(allocated), "");
    const std::vector<DiscoveredItem> logical{
        makeItem("/h/a", StorageCategory::largeFiles, RiskTier::keep, 0, max),
        makeItem("/h/b", StorageCategory::leftovers, RiskTier::keep, 0, 1)};
    EXPECT_DEATH(ScanSummary::from(logical), "");
    // Right at the limit is still a number.
    EXPECT_EQ(ScanSummary::from({makeItem("/h/a", StorageCategory::largeFiles, RiskTier::keep, max)})
                  .totalAllocatedBytes,
              max);
}

// ---- JSON -----------------------------------------------------------------------

TEST(ScanRecordsJsonTest, DiscoveredItemWritesItsFieldNamesAndRawValues) {
    const Json j = toJson(fullItem());
    EXPECT_EQ(keysOf(j), (std::set<std::string>{"id", "url", "path", "category", "riskTier", "logicalSizeBytes",
                                                "allocatedSizeBytes", "fileCount", "lastAccessedDate",
                                                "lastModifiedDate", "isOrphaned", "isLocked",
                                                "requiresFullDiskAccess", "itemDescription", "ruleId"}));
    EXPECT_EQ(j["id"], "E621E1F8-C36C-495A-93FC-0C247A3E6E5F"); // read in lower case, written in upper
    EXPECT_EQ(j["url"], "file:///Users/me/My%20Caches/caf%C3%A9/");
    EXPECT_EQ(j["path"], "/Users/me/My Caches/caf\xC3\xA9");
    EXPECT_EQ(j["category"], "DOCKER_VM");
    EXPECT_EQ(j["riskTier"], "KEEP");
    EXPECT_EQ(j["allocatedSizeBytes"], 4096);
    EXPECT_EQ(j["isOrphaned"], true);
    EXPECT_EQ(j["ruleId"], "dev.docker.vm");
    // The default date form: seconds since 2001-01-01T00:00:00Z.
    EXPECT_EQ(j["lastModifiedDate"], 10.0);
}

TEST(ScanRecordsJsonTest, FileURLHasNoTrailingSlash) {
    DiscoveredItem item = makeItem("/tmp/a#b?c%d", StorageCategory::largeFiles, RiskTier::keep, 1);
    EXPECT_EQ(toJson(item)["url"], "file:///tmp/a%23b%3Fc%25d");
}

TEST(ScanRecordsJsonTest, AbsentOptionalsWriteNoKey) {
    const Json item = toJson(makeItem("/h/a", StorageCategory::systemLogs, RiskTier::safeToDelete, 1));
    EXPECT_FALSE(item.contains("lastAccessedDate"));
    EXPECT_FALSE(item.contains("lastModifiedDate"));
    EXPECT_FALSE(item.contains("ruleId"));
    EXPECT_EQ(item.size(), 12u);
    EXPECT_FALSE(hasNull(item));

    const Json progress = toJson(progressAt(StorageCategory::systemCaches, "/h/Library/Caches"));
    EXPECT_EQ(keysOf(progress), (std::set<std::string>{"currentCategory", "currentPath", "itemsFound",
                                                       "totalAllocatedBytesScanned", "totalLogicalBytesScanned"}));
    EXPECT_EQ(progress["currentCategory"], "SYSTEM_CACHES");
    EXPECT_EQ(toJson(progressAt(StorageCategory::systemCaches, "/h", 0.5))["fractionCompleted"], 0.5);
}

TEST(ScanRecordsJsonTest, DatesInBothEncodings) {
    const DiscoveredItem item = fullItem();
    const Json iso = toJson(item, DateEncoding::iso8601);
    EXPECT_EQ(iso["lastAccessedDate"], "2026-03-01T10:15:30Z"); // fraction dropped
    EXPECT_EQ(iso["lastModifiedDate"], "2001-01-01T00:00:10Z");

    const Json seconds = toJson(item);
    ASSERT_TRUE(seconds["lastAccessedDate"].is_number());
    EXPECT_DOUBLE_EQ(seconds["lastAccessedDate"].get<double>(),
                     dates::secondsSinceReferenceDate(*item.lastAccessedDate));
    EXPECT_NEAR(seconds["lastAccessedDate"].get<double>(), 794'052'930.789, 1e-3);

    ScanResult result;
    result.startedAt = at(sys_days{2000y / December / 31}, 23h + 59min + 59s);
    result.completedAt = at(sys_days{2001y / January / 1}, 1min);
    EXPECT_EQ(toJson(result)["startedAt"], -1.0);
    EXPECT_EQ(toJson(result)["completedAt"], 60.0);
    EXPECT_EQ(toJson(result, DateEncoding::iso8601)["completedAt"], "2001-01-01T00:01:00Z");
    // The dates of the items follow the result's encoding.
    result.items.push_back(item);
    EXPECT_EQ(toJson(result, DateEncoding::iso8601)["items"][0]["lastModifiedDate"], "2001-01-01T00:00:10Z");
}

TEST(ScanRecordsJsonTest, SummaryAndResultKeys) {
    const ScanSummary summary =
        ScanSummary::from({makeItem("/h/a", StorageCategory::browserCaches, RiskTier::reviewRequired, 7)});
    const Json s = toJson(summary);
    EXPECT_EQ(keysOf(s), (std::set<std::string>{"totalItems", "totalLogicalBytes", "totalAllocatedBytes",
                                                "safeUnbulkableBytes", "reviewUnbulkableBytes",
                                                "requiresFullDiskAccess", "categoryBreakdown"}));
    ASSERT_EQ(s["categoryBreakdown"].size(), 1u);
    EXPECT_EQ(keysOf(s["categoryBreakdown"][0]),
              (std::set<std::string>{"category", "riskTier", "itemCount", "totalLogicalBytes", "totalAllocatedBytes",
                                     "safeToDeleteBytes", "reviewRequiredBytes", "requiresFullDiskAccess"}));
    EXPECT_EQ(s["categoryBreakdown"][0]["riskTier"], "REVIEW_REQUIRED");

    ScanResult result;
    result.scanId = *Uuid::parse(sampleUuid);
    result.summary = summary;
    result.warnings = {"w"};
    result.scannedCategories = {StorageCategory::aiModelWeights, StorageCategory::xcodeArtifacts};
    const Json r = toJson(result);
    EXPECT_EQ(keysOf(r), (std::set<std::string>{"scanId", "startedAt", "completedAt", "durationSeconds", "items",
                                                "summary", "warnings", "scannedCategories"}));
    EXPECT_EQ(r["scanId"], "E621E1F8-C36C-495A-93FC-0C247A3E6E5F");
    EXPECT_EQ(r["scannedCategories"], Json::parse(R"(["AI_MODEL_WEIGHTS", "XCODE_ARTIFACTS"])"));
}

TEST(ScanRecordsJsonTest, PathIsReadFromTheDataNotRecomputed) {
    Json j = toJson(fullItem());
    j["path"] = "/somewhere/else";
    const DiscoveredItem read = discoveredItemFromJson(j);
    EXPECT_EQ(read.path, "/somewhere/else");
    EXPECT_EQ(read.url.path(), "/Users/me/My Caches/caf\xC3\xA9");
    EXPECT_TRUE(read.url.isDirectory());
}

TEST(ScanRecordsJsonTest, ResultRoundTripsThroughTextInBothDateEncodings) {
    DiscoveredItem bare = makeItem("/h/Library/Logs/app.log", StorageCategory::systemLogs, RiskTier::safeToDelete,
                                   8192, 5000);
    ScanResult result;
    result.scanId = Uuid::random();
    result.startedAt = at(sys_days{2026y / March / 1}, 10h);
    result.completedAt = at(sys_days{2026y / March / 1}, 10h + 2s);
    result.durationSeconds = 2.125;
    result.items = {fullItem(), bare};
    result.warnings = {"System targets scan error: boom", "second"};
    result.scannedCategories = {StorageCategory::dockerVM, StorageCategory::systemLogs};
    // Whole seconds, so that the ISO form loses nothing.
    result.items[0].lastAccessedDate = at(sys_days{2026y / March / 1}, 10h + 15min + 30s);
    result.summary = ScanSummary::from(result.items);

    for (auto encoding : {DateEncoding::secondsSinceReferenceDate, DateEncoding::iso8601}) {
        const Json parsed = Json::parse(json::pretty(toJson(result, encoding)));
        EXPECT_EQ(scanResultFromJson(parsed), result);
    }

    ScanProgress progress = progressAt(StorageCategory::aiModelWeights, "/h/.cache/huggingface", 0.25);
    progress.totalAllocatedBytesScanned = 1 << 20;
    progress.totalLogicalBytesScanned = 1000;
    EXPECT_EQ(scanProgressFromJson(Json::parse(json::compact(toJson(progress)))), progress);
    EXPECT_EQ(scanProgressFromJson(toJson(ScanProgress{})), ScanProgress{});
}

TEST(ScanRecordsJsonTest, ReadersRejectBadInput) {
    const Json good = toJson(fullItem());
    auto without = [&](const char* key) {
        Json j = good;
        j.erase(key);
        return j;
    };
    EXPECT_THROW(discoveredItemFromJson(without("path")), std::exception);
    EXPECT_THROW(discoveredItemFromJson(without("allocatedSizeBytes")), std::exception);
    // Optional keys may be missing.
    EXPECT_FALSE(discoveredItemFromJson(without("ruleId")).ruleId.has_value());

    Json badCategory = good;
    badCategory["category"] = "docker_vm";
    EXPECT_THROW(discoveredItemFromJson(badCategory), std::exception);
    Json badUrl = good;
    badUrl["url"] = "https://example.com/a";
    EXPECT_THROW(discoveredItemFromJson(badUrl), std::exception);
    Json badId = good;
    badId["id"] = "not-a-uuid";
    EXPECT_THROW(discoveredItemFromJson(badId), std::exception);
    Json badDate = good;
    badDate["lastModifiedDate"] = "yesterday";
    EXPECT_THROW(discoveredItemFromJson(badDate), std::exception);
}

} // namespace
} // namespace unbulk
