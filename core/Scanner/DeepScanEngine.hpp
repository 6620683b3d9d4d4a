#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "Models/ScanItem.hpp"
#include "Platform/Clock.hpp"
#include "Platform/FileSystem.hpp"
#include "Scanner/ScanTypes.hpp"
#include "Support/Cancellation.hpp"
#include "Support/FileURL.hpp"

namespace unbulk {

class RuleRegistry;
class ThermalGovernor;
class ScanEventStream;

// The one entry point of a scan: runs the stages that serve the asked-for
// categories one after the other under the thermal governor, turns a failed
// stage into a warning, merges items of one path and sums them up. Only
// cancellation ends a scan early. Copies share their collaborators.
class DeepScanEngine {
public:
    using DeveloperStage =
        std::function<std::vector<DiscoveredItem>(const CategorySet&, const ScanProgressHandler&, StopToken)>;
    using SystemStage =
        std::function<SystemScanOutput(const CategorySet&, const ScanProgressHandler&, StopToken)>;

    // Nothing here has a default that reaches the machine: whoever builds
    // an engine hands it the services (a front end from its Environment).
    struct Configuration {
        FileURL homeURL;
        std::shared_ptr<FileSystem> fileSystem;
        std::optional<std::vector<FileURL>> applicationsURLs; // default: <systemRoot>/Applications, ~/Applications
        std::optional<std::vector<FileURL>> projectRoots;
        // Handed to the targets' classifiers. With a registry the scan also
        // looks for anomalies and resolves the registry's rules on disk.
        std::shared_ptr<const RuleRegistry> ruleRegistry;
        ProcessRunningCheck isProcessRunning; // DeveloperTargets::processChecker over the machine's processes
        std::shared_ptr<ThermalGovernor> thermalGovernor;
        Clock clock; // the scan's start and end
        // Where the system-wide places lie (/Applications, the system's
        // crash reports): "/" on a real machine.
        std::string systemRoot = "/";
    };

    // The stages a host may put in place of the built-in targets.
    struct Stages {
        DeveloperStage developer;
        SystemStage system;
    };

    // Stages from DeveloperTargets and SystemTargets.
    explicit DeepScanEngine(Configuration configuration);
    DeepScanEngine(Configuration configuration, Stages stages);

    // Absent or empty categories mean all sixteen. Throws CancellationError
    // when stop is requested; no partial result is ever returned.
    ScanResult scan(const std::optional<CategorySet>& categories, const ScanProgressHandler& progress = {},
                    StopToken stop = {}) const;

    // Runs the scan on a background thread and reports its progress, then
    // every final item, then the result. Dropping the stream cancels the scan.
    ScanEventStream scanStream(std::optional<CategorySet> categories) const;

    // Keeps one item per standardised path, merging duplicates field by
    // field, and sorts by allocated size, largest first.
    static std::vector<DiscoveredItem> deduplicate(const std::vector<DiscoveredItem>& items);

    const FileURL& homeURL() const { return homeURL_; }
    const std::vector<FileURL>& applicationsURLs() const { return applicationsURLs_; }
    const std::shared_ptr<ThermalGovernor>& thermalGovernor() const { return thermalGovernor_; }

    // The categories each stage serves.
    static const CategorySet& developerCategories();
    static const CategorySet& systemCategories();

private:
    std::vector<DiscoveredItem> scanAnomalies(const ScanProgressHandler& progress) const;
    std::vector<DiscoveredItem> scanRegistryRules(const RuleRegistry& registry, const CategorySet& categories,
                                                  const ScanProgressHandler& progress, StopToken stop) const;

    FileURL homeURL_;
    std::vector<FileURL> applicationsURLs_;
    std::shared_ptr<FileSystem> fileSystem_;
    std::shared_ptr<ThermalGovernor> thermalGovernor_;
    std::shared_ptr<const RuleRegistry> ruleRegistry_;
    Clock clock_;
    Stages stages_;
};

} // namespace unbulk
