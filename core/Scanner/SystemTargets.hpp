#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Models/Categories.hpp"
#include "Platform/FileSystem.hpp"
#include "Scanner/ItemCollector.hpp"
#include "Scanner/ItemMeasurer.hpp"
#include "Scanner/RiskClassifier.hpp"
#include "Scanner/ScanTypes.hpp"
#include "Support/Cancellation.hpp"
#include "Support/FileURL.hpp"

namespace unbulk {

class RuleRegistry;

// The user's caches, logs, crash reports, Mail downloads and browser caches.
// Places the privacy control may guard are probed with one listing first; a
// refusal gives a placeholder item and a warning that says how to grant Full
// Disk Access, and the scan goes on. It holds no mutable state.
class SystemTargets {
public:
    // The system's own crash reports are read below `systemRoot` ("/" on a
    // real machine).
    SystemTargets(FileURL homeURL, std::string systemRoot, std::shared_ptr<FileSystem> fileSystem,
                  std::shared_ptr<const RuleRegistry> ruleRegistry = nullptr);

    // The sections that serve the given categories, in their fixed order:
    // caches, logs, crash reports, Mail downloads, browser caches. They run
    // at once; what they give comes out in that order (ScanParts).
    // Throws CancellationError when stop is requested (before a section, and
    // inside the caches, logs and crash-report sections before each entry or
    // place); what was gathered by the call is dropped then.
    SystemScanOutput scan(const CategorySet& categories, const ScanProgressHandler& progress,
                          StopToken stop = {}) const;

    // Like the developer targets' measurement, and it also marks the item
    // when a directory inside refuses permission.
    MeasuredMetrics measureItem(const FileURL& url) const;

    const FileURL& homeURL() const { return homeURL_; }

private:
    // A place that may be closed by the privacy control, and what it becomes:
    // a measured item with `description`, or, when its probe is refused, a
    // warning naming `label` and a "(Requires Full Disk Access)" placeholder.
    struct GuardedPlace {
        FileURL url;
        std::string label;
        StorageCategory category;
        std::string description;
        std::string ruleId; // the measured item's fallback, the placeholder's id
    };

    // What one section hands back, built up as it goes.
    struct Section {
        ItemCollector collector;
        std::vector<std::string> warnings;

        SystemScanOutput finish() { return {collector.take(), std::move(warnings)}; }
    };

    SystemScanOutput scanUserCaches(const ScanProgressHandler& progress, StopToken stop) const;
    SystemScanOutput scanUserLogs(const ScanProgressHandler& progress, StopToken stop) const;
    SystemScanOutput scanCrashReports(const ScanProgressHandler& progress, StopToken stop) const;
    SystemScanOutput scanMailDownloads(const ScanProgressHandler& progress) const;
    SystemScanOutput scanBrowserCaches(const ScanProgressHandler& progress) const;

    static bool isDeveloperCacheName(std::string_view name);

    FileURL homeChild(std::string_view relative) const;
    // A URL for the path if something exists there (links followed), with the
    // The probe: one listing with no options, thrown away. True when it was
    // refused for permission; any other outcome lets the place be measured.
    bool probeIsRefused(const FileURL& url) const;
    // Lists a section's base (hidden entries left out). A refusal adds the
    // base's warning and placeholder; any failure gives nothing.
    std::optional<std::vector<DirectoryEntry>> listBase(const GuardedPlace& base, Section& section) const;
    // The warning that names the place and the placeholder that stands for it.
    void addRefusal(const GuardedPlace& place, RiskTier tier, Section& section) const;
    // Probes the place, then adds either its placeholder and warning, or its
    // measured item when the measurement passes the system keep test.
    void scanGuardedPlace(const GuardedPlace& place, Section& section) const;
    // Measures the place and adds its item if it passes the given keep test.
    void measureAndAdd(const FileURL& url, StorageCategory category, std::string description,
                       std::string fallbackRuleId, bool (*keep)(const MeasuredMetrics&), Section& section) const;

    FileURL homeURL_;
    std::string systemRoot_;
    std::shared_ptr<FileSystem> fileSystem_;
    std::shared_ptr<const RuleRegistry> ruleRegistry_;
    RiskClassifier riskClassifier_;
};

} // namespace unbulk
