#include "Scanner/SystemTargets.hpp"

#include <algorithm>
#include <array>
#include <initializer_list>
#include <iterator>

#include "Safety/TCCIsolationHelper.hpp"
#include "Scanner/ScanParts.hpp"
#include "Support/Cancellation.hpp"
#include "Support/Paths.hpp"
#include "Support/Unicode.hpp"

namespace unbulk {
namespace {

// Parts of a cache folder's name that mark a browser's own folder. The browser
// section measures those places itself, so the caches section passes them over.
constexpr std::array<std::string_view, 9> browserNameMarks{
    "google",           "chrome",        "firefox",
    "microsoft edge",   "company.thebrowser.browser",
    "com.apple.safari", "bravesoftware", "com.operasoftware.opera",
    "vivaldi",
};

// Whole names of the cache folders that belong to developer tools; the
// developer targets look after them.
constexpr std::array<std::string_view, 8> developerCacheNames{
    "uv", "pip", "pnpm", "yarn", "go-build", "cargo", "homebrew", "gradle",
};

constexpr std::string_view requiresAccess = " (Requires Full Disk Access)";

// Folding ASCII letters is all the comparisons below need: every text they
// look for is ASCII, and the only non-ASCII capital that folds to an ASCII
// letter (KELVIN SIGN to "k") has no "k" to match in those texts.
bool isBrowserFolderName(std::string_view name) {
    const std::string lower = unicode::lowercased(name);
    return std::any_of(browserNameMarks.begin(), browserNameMarks.end(),
                       [&](std::string_view mark) { return lower.find(mark) != std::string::npos; });
}

// The system keep test: the developer targets' test, and also a place that
// could not be read in full, so that its flag reaches the user.
bool passesSystemKeepTest(const MeasuredMetrics& metrics) {
    return metrics.fileCount > 0 || metrics.logicalBytes > 0 || metrics.requiresFullDiskAccess;
}

void append(SystemScanOutput& into, SystemScanOutput more) {
    into.items.insert(into.items.end(), std::make_move_iterator(more.items.begin()),
                      std::make_move_iterator(more.items.end()));
    into.warnings.insert(into.warnings.end(), std::make_move_iterator(more.warnings.begin()),
                         std::make_move_iterator(more.warnings.end()));
}

} // namespace

SystemTargets::SystemTargets(FileURL homeURL, std::string systemRoot, std::shared_ptr<FileSystem> fileSystem,
                             std::shared_ptr<const RuleRegistry> ruleRegistry)
    : homeURL_(std::move(homeURL)), systemRoot_(std::move(systemRoot)), fileSystem_(std::move(fileSystem)),
      ruleRegistry_(std::move(ruleRegistry)),
      riskClassifier_(homeURL_, ruleRegistry_, fileSystem_) {}

SystemScanOutput SystemTargets::scan(const CategorySet& categories, const ScanProgressHandler& progress,
                                     StopToken stop) const {
    // The sections share nothing, so they run at once; items, warnings,
    // reports and a stop or failure come out as in their fixed order.
    ScanParts<SystemScanOutput> parts;
    auto add = [&](StorageCategory category, ScanParts<SystemScanOutput>::Part section) {
        if (categories.contains(category)) parts.add(std::move(section));
    };
    add(StorageCategory::systemCaches,
        [this](const ScanProgressHandler& reports, StopToken at) { return scanUserCaches(reports, at); });
    add(StorageCategory::systemLogs,
        [this](const ScanProgressHandler& reports, StopToken at) { return scanUserLogs(reports, at); });
    add(StorageCategory::crashReports,
        [this](const ScanProgressHandler& reports, StopToken at) { return scanCrashReports(reports, at); });
    add(StorageCategory::mailDownloads,
        [this](const ScanProgressHandler& reports, StopToken) { return scanMailDownloads(reports); });
    add(StorageCategory::browserCaches,
        [this](const ScanProgressHandler& reports, StopToken) { return scanBrowserCaches(reports); });
    SystemScanOutput output;
    for (auto& section : parts.run(progress, stop))
        append(output, std::move(section));
    return output;
}

MeasuredMetrics SystemTargets::measureItem(const FileURL& url) const {
    return ItemMeasurer::measureItem(*fileSystem_, url.path(), UnreadableDirectories::flagPermissionErrors);
}

// ---- sections

SystemScanOutput SystemTargets::scanUserCaches(const ScanProgressHandler& progress, StopToken stop) const {
    Section section{ItemCollector(riskClassifier_, progress), {}};
    const auto base = fileSystem_->existingURL(homeChild("Library/Caches").path());
    if (!base) return {};

    const auto entries = listBase({.url = *base,
                                   .label = "User Caches",
                                   .category = StorageCategory::systemCaches,
                                   .description = "User Caches",
                                   .ruleId = "sys.user.caches"},
                                  section);
    if (!entries) return section.finish();

    for (const DirectoryEntry& entry : *entries) {
        throwIfCancelled(stop);
        if (isBrowserFolderName(entry.name) || isDeveloperCacheName(entry.name)) continue;
        // A plain file here is measured as well: its probe fails, but not for
        // permission.
        scanGuardedPlace(
            {
                .url = base->appending(entry.name, entry.kind == FileKind::directory),
                .label = entry.name,
                .category = StorageCategory::systemCaches,
                .description = entry.name + " Cache",
                .ruleId = "sys.user.caches",
            },
            section);
    }
    return section.finish();
}

SystemScanOutput SystemTargets::scanUserLogs(const ScanProgressHandler& progress, StopToken stop) const {
    Section section{ItemCollector(riskClassifier_, progress), {}};
    const auto base = fileSystem_->existingURL(homeChild("Library/Logs").path());
    if (!base) return {};

    const auto entries = listBase({.url = *base,
                                   .label = "User Logs",
                                   .category = StorageCategory::systemLogs,
                                   .description = "User Logs",
                                   .ruleId = "sys.user.logs"},
                                  section);
    if (!entries) return section.finish();

    for (const DirectoryEntry& entry : *entries) {
        throwIfCancelled(stop);
        // Those two belong to the crash reports.
        if (entry.name == "DiagnosticReports" || entry.name == "CrashReporter") continue;
        measureAndAdd(base->appending(entry.name, entry.kind == FileKind::directory), StorageCategory::systemLogs,
                      entry.name + " Log Data", "sys.user.logs", passesSystemKeepTest, section);
    }
    return section.finish();
}

SystemScanOutput SystemTargets::scanCrashReports(const ScanProgressHandler& progress, StopToken stop) const {
    Section section{ItemCollector(riskClassifier_, progress), {}};
    struct Place {
        FileURL url;
        std::string_view label;
    };
    // The system-wide place shares the user reports' rule id.
    const std::array places{
        Place{homeChild("Library/Logs/DiagnosticReports"), "User Diagnostic & Crash Reports (.ips)"},
        Place{homeChild("Library/Logs/CrashReporter"), "Legacy User Crash Reports"},
        Place{FileURL(paths::appending(systemRoot_, "Library/Logs/DiagnosticReports"), true),
              "System Diagnostic & Panic Reports"},
    };
    for (const Place& place : places) {
        throwIfCancelled(stop);
        const auto url = fileSystem_->existingURL(place.url.path());
        if (!url) continue;
        scanGuardedPlace(
            {
                .url = *url,
                .label = std::string(place.label),
                .category = StorageCategory::crashReports,
                .description = std::string(place.label),
                .ruleId = "sys.crash.user_reports",
            },
            section);
    }
    return section.finish();
}

SystemScanOutput SystemTargets::scanMailDownloads(const ScanProgressHandler& progress) const {
    Section section{ItemCollector(riskClassifier_, progress), {}};
    const FileURL container = homeChild("Library/Containers/com.apple.mail");
    const FileURL dataLibrary = container.appending("Data/Library", true);
    const FileURL current = fileSystem_->fileURL(paths::appending(dataLibrary.path(), "Mail Downloads"));
    const FileURL legacy = homeChild("Library/Mail Downloads");

    // The container's library is what the privacy control closes, so that is
    // what is probed; a refusal stands for the downloads folder, whether or
    // not it exists.
    if (fileSystem_->existingURL(container.path()) && probeIsRefused(dataLibrary)) {
        addRefusal({.url = current,
                    .label = "Apple Mail Downloads",
                    .category = StorageCategory::mailDownloads,
                    .description = "Apple Mail Attachment Downloads",
                    .ruleId = "sys.mail.downloads"},
                   RiskTier::reviewRequired, section);
    } else if (const auto url = fileSystem_->existingURL(current.path())) {
        measureAndAdd(*url, StorageCategory::mailDownloads, "Apple Mail Attachment Downloads", "sys.mail.downloads",
                      passesSystemKeepTest, section);
    }

    // The legacy place is not guarded: no probe, and the narrower keep test.
    if (const auto url = fileSystem_->existingURL(legacy.path())) {
        measureAndAdd(*url, StorageCategory::mailDownloads, "Legacy Mail Downloads", "sys.mail.downloads",
                      ItemMeasurer::passesKeepTest, section);
    }
    return section.finish();
}

SystemScanOutput SystemTargets::scanBrowserCaches(const ScanProgressHandler& progress) const {
    Section section{ItemCollector(riskClassifier_, progress), {}};

    // Safari's caches are guarded.
    struct SafariPlace {
        std::string_view relative;
        std::string_view label;
    };
    for (const SafariPlace& place : {
             SafariPlace{"Library/Containers/com.apple.Safari/Data/Library/Caches", "Safari WebKit Container Cache"},
             SafariPlace{"Library/Caches/com.apple.Safari", "Safari WebKit User Cache"},
         }) {
        const auto url = fileSystem_->existingURL(homeChild(place.relative).path());
        if (!url) continue;
        scanGuardedPlace(
            {
                .url = *url,
                .label = std::string(place.label),
                .category = StorageCategory::browserCaches,
                .description = std::string(place.label),
                .ruleId = "sys.browser.safari",
            },
            section);
    }

    // The Chromium family and Firefox are not: no probe, and the narrower
    // keep test.
    struct OpenPlace {
        std::string_view relative;
        std::string_view description;
        std::string_view ruleId;
    };
    for (const OpenPlace& place : {
             OpenPlace{"Library/Caches/Google/Chrome", "Google Chrome Cache", "sys.browser.chrome"},
             OpenPlace{"Library/Caches/Microsoft Edge", "Microsoft Edge Cache", "sys.browser.edge"},
             OpenPlace{"Library/Caches/company.thebrowser.Browser", "Arc Browser Cache", "sys.browser.arc"},
             OpenPlace{"Library/Caches/BraveSoftware/Brave-Browser", "Brave Browser Cache", "sys.browser.brave"},
             OpenPlace{"Library/Caches/com.operasoftware.Opera", "Opera Browser Cache", "sys.browser.other"},
             OpenPlace{"Library/Caches/Vivaldi", "Vivaldi Browser Cache", "sys.browser.other"},
             OpenPlace{"Library/Caches/Firefox/Profiles", "Mozilla Firefox Profile Caches", "sys.browser.firefox"},
         }) {
        const auto url = fileSystem_->existingURL(homeChild(place.relative).path());
        if (!url) continue;
        measureAndAdd(*url, StorageCategory::browserCaches, std::string(place.description),
                      std::string(place.ruleId), ItemMeasurer::passesKeepTest, section);
    }
    return section.finish();
}

bool SystemTargets::isDeveloperCacheName(std::string_view name) {
    const std::string lower = unicode::lowercased(name);
    return std::find(developerCacheNames.begin(), developerCacheNames.end(), lower) != developerCacheNames.end();
}

// ---- shared steps

// As the platform's URL appends a component: the directory flag (the
// trailing "/") comes from the disk, so a place that does not exist, or
// cannot be looked at, has none.
FileURL SystemTargets::homeChild(std::string_view relative) const {
    return fileSystem_->fileURL(paths::appending(homeURL_.path(), relative));
}

bool SystemTargets::probeIsRefused(const FileURL& url) const {
    PlatformError error;
    (void)fileSystem_->contentsOfDirectory(url.path(), ListOptions{}, error);
    return error && TCCIsolationHelper::isPermissionOrTCCError(error.code);
}

std::optional<std::vector<DirectoryEntry>> SystemTargets::listBase(const GuardedPlace& base, Section& section) const {
    PlatformError error;
    auto entries = fileSystem_->contentsOfDirectory(base.url.path(), ListOptions{.skipHiddenFiles = true}, error);
    if (!error) return entries;
    if (TCCIsolationHelper::isPermissionOrTCCError(error.code)) addRefusal(base, RiskTier::safeToDelete, section);
    return std::nullopt;
}

void SystemTargets::addRefusal(const GuardedPlace& place, RiskTier tier, Section& section) const {
    section.warnings.push_back(TCCIsolationHelper::fdaWarning(place.label, place.url.path()));
    section.collector.addPlaceholder(place.url, place.category, tier, place.description + std::string(requiresAccess),
                                     place.ruleId);
}

void SystemTargets::scanGuardedPlace(const GuardedPlace& place, Section& section) const {
    if (probeIsRefused(place.url)) {
        addRefusal(place, RiskTier::safeToDelete, section);
        return;
    }
    measureAndAdd(place.url, place.category, place.description, place.ruleId, passesSystemKeepTest, section);
}

void SystemTargets::measureAndAdd(const FileURL& url, StorageCategory category, std::string description,
                                  std::string fallbackRuleId, bool (*keep)(const MeasuredMetrics&),
                                  Section& section) const {
    const MeasuredMetrics metrics = measureItem(url);
    if (!keep(metrics)) return;
    section.collector.add(
        {
            .url = url,
            .category = category,
            .description = std::move(description),
            .fallbackRuleId = std::move(fallbackRuleId),
        },
        metrics);
}

} // namespace unbulk
