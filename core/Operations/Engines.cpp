#include "Operations/Engines.hpp"

#include <string>

#include "Maintenance/VitalsMonitor.hpp"
#include "Platform/SystemInfo.hpp"
#include "Safety/AuditLogger.hpp"
#include "Scanner/DeveloperTargets.hpp"
#include "Scanner/ThermalGovernor.hpp"
#include "Support/Unicode.hpp"
#include "Uninstaller/ProtectedAppGuard.hpp"

namespace unbulk::Engines {

DeepScanEngine scanEngine(const Environment& environment) {
    DeepScanEngine::Configuration configuration;
    configuration.homeURL = environment.homeURL;
    configuration.fileSystem = environment.fileSystem;
    configuration.isProcessRunning = DeveloperTargets::processChecker(environment.processes);
    configuration.thermalGovernor =
        ThermalGovernor::make(environment.thermalState, environment.powerSource, activeProcessorCount());
    configuration.clock = environment.clock;
    configuration.systemRoot = environment.systemRoot;
    return DeepScanEngine(std::move(configuration));
}

std::shared_ptr<const TrashPipeline> trashPipeline(const Environment& environment, Notice notice) {
    auto pipeline = std::make_shared<const TrashPipeline>(
        environment.fileSystem, environment.trash,
        std::make_shared<AuditLogger>(std::nullopt, environment.homeURL, environment.fileSystem), environment.homeURL,
        environment.clock, [notice = std::move(notice)](const std::string& logPath, const std::string& reason) {
            if (notice) notice(TrashPipeline::unrecordedWarning(logPath, reason) + "\n");
        });
    pipeline->recordInterruptedOperations();
    return pipeline;
}

namespace {

std::shared_ptr<const ProtectedAppGuard> protectedAppGuard(const Environment& environment) {
    return std::make_shared<const ProtectedAppGuard>(environment.fileSystem, environment.codeSigning,
                                                     environment.processes);
}

} // namespace

AppScanner appScanner(const Environment& environment) {
    return AppScanner({.fileSystem = environment.fileSystem,
                       .homeURL = environment.homeURL,
                       .protectedAppGuard = protectedAppGuard(environment),
                       .systemRoot = environment.systemRoot});
}

LeftoversHunter leftoversHunter(const Environment& environment) {
    return LeftoversHunter(environment.homeURL, environment.fileSystem);
}

AppUninstaller appUninstaller(const Environment& environment, std::shared_ptr<const TrashPipeline> pipeline) {
    return AppUninstaller({.fileSystem = environment.fileSystem,
                           .trashPipeline = std::move(pipeline),
                           .homeURL = environment.homeURL,
                           .protectedAppGuard = protectedAppGuard(environment),
                           .clock = environment.clock});
}

const InstalledApp* findInstalledApp(const std::vector<InstalledApp>& apps, std::string_view bundleIdentifierOrName) {
    const std::string wanted = unicode::lowercased(bundleIdentifierOrName);
    for (const InstalledApp& app : apps) {
        if (unicode::lowercased(app.bundleIdentifier) == wanted || unicode::lowercased(app.displayName) == wanted) {
            return &app;
        }
    }
    return nullptr;
}

std::shared_ptr<RuleRegistry> ruleRegistry(const Environment& environment) {
    return std::make_shared<RuleRegistry>(std::nullopt, environment.homeURL, environment.fileSystem,
                                          environment.clock);
}

AnomalyDetector anomalyDetector(const Environment& environment, std::int64_t minSizeBytes) {
    return AnomalyDetector(AnomalyDetectorConfiguration::make(minSizeBytes, 2, environment.homeURL),
                           ruleRegistry(environment), environment.fileSystem, environment.clock);
}

SpaceLensEngine spaceLensEngine(const Environment& environment) {
    return SpaceLensEngine(environment.fileSystem, environment.fileTypes);
}

SystemVitals systemVitals(const Environment& environment) {
    return VitalsMonitor::getSystemVitals(*environment.vitalsSources, environment.clock());
}

} // namespace unbulk::Engines
