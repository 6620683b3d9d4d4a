#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string_view>
#include <vector>

#include "Models/AppModel.hpp"
#include "Models/VitalsModel.hpp"
#include "Platform/Environment.hpp"
#include "Rules/RuleRegistry.hpp"
#include "Safety/TrashPipeline.hpp"
#include "Scanner/AnomalyDetector.hpp"
#include "Scanner/DeepScanEngine.hpp"
#include "SpaceLens/SpaceLensEngine.hpp"
#include "Uninstaller/AppScanner.hpp"
#include "Uninstaller/AppUninstaller.hpp"
#include "Uninstaller/LeftoversHunter.hpp"

// The short-lived engines of one command or one tool call, built from the
// front end's Environment the same way for both front ends: the command line
// and the agent tools differ in what they read and print, never in how the
// core is put together.
namespace unbulk::Engines {

// A line for a person that is no part of the result; a front end writes it
// to standard error.
using Notice = std::function<void(std::string_view line)>;

// The scan of scan, clean and their tools: the machine's thermal and power
// state pace it. No rule registry is passed, so such a scan has no anomaly
// or rule stage.
DeepScanEngine scanEngine(const Environment& environment);

// The removal road of clean, uninstall and their tools: the Trash and the
// audit log at its default place. Operations cut short by an earlier process
// are recorded first; an operation that could not be recorded is told
// through `notice`, one line each time.
std::shared_ptr<const TrashPipeline> trashPipeline(const Environment& environment, Notice notice);

AppScanner appScanner(const Environment& environment);
LeftoversHunter leftoversHunter(const Environment& environment);
AppUninstaller appUninstaller(const Environment& environment, std::shared_ptr<const TrashPipeline> pipeline);

// The application a person named by its bundle identifier or its display
// name, either without regard to case: the first such in `apps`, or none.
const InstalledApp* findInstalledApp(const std::vector<InstalledApp>& apps, std::string_view bundleIdentifierOrName);

// The built-in catalog; the stored rules are not read.
std::shared_ptr<RuleRegistry> ruleRegistry(const Environment& environment);

// Anomalies of at least `minSizeBytes`, two levels below the usual roots.
AnomalyDetector anomalyDetector(const Environment& environment, std::int64_t minSizeBytes);

SpaceLensEngine spaceLensEngine(const Environment& environment);

// The vitals now.
SystemVitals systemVitals(const Environment& environment);

} // namespace unbulk::Engines
