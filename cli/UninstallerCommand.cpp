#include <fmt/format.h>

#include "Handlers.hpp"
#include "Output.hpp"
#include "Platform/ByteCountFormatter.hpp"
#include "Platform/InterruptSignals.hpp"
#include "ProgressLine.hpp"
#include "Support/Json.hpp"
#include "Operations/Engines.hpp"

namespace unbulk::cli {
namespace {

int list(const Environment& environment, const Arguments& args) {
    std::vector<InstalledApp> apps;
    std::vector<AppLeftover> leftovers;
    {
        ProgressLine progress(!hasFlag(args, "--json"));
        apps = Engines::appScanner(environment).scanInstalledApps(false, {}, progress.countingItems());
        // The hunter is handed the list just made. Left to itself, with no list
        // and no scanner, its index would be empty and every installed
        // application's data would be listed as orphaned; an orphan is what no
        // installed application accounts for.
        leftovers = Engines::leftoversHunter(environment).scanForLeftovers(apps);
    }

    if (hasFlag(args, "--json")) {
        Json installed = Json::array(), orphans = Json::array();
        for (const auto& app : apps)
            installed.push_back(toJson(app));
        for (const auto& leftover : leftovers)
            orphans.push_back(toJson(leftover));
        printJson(Json{{"installed", installed}, {"leftovers", orphans}});
        return 0;
    }
    printLine(fmt::format("Installed apps ({}):", apps.size()));
    for (std::size_t i = 0; i < apps.size() && i < 15; ++i) {
        printLine(fmt::format("  \u2022 {} ({}): {}", apps[i].displayName, apps[i].bundleIdentifier,
                              formatByteCount(apps[i].bundleSizeBytes)));
    }
    if (apps.size() > 15) printLine(fmt::format("  ... and {} more.", apps.size() - 15));
    printLine(fmt::format("\nOrphaned files ({}):", leftovers.size()));
    for (const auto& leftover : leftovers) {
        printLine(fmt::format("  \u2022 {}: {} ({})", leftover.candidateAppName, leftover.path,
                              formatByteCount(leftover.allocatedSizeBytes)));
    }
    return 0;
}

int remove(const Environment& environment, const Arguments& args) {
    if (args.size() < 2) {
        printLine("Usage: unbulk uninstaller remove <bundle_id_or_name> [--execute]");
        return 0;
    }
    // Before the application scan starts its threads: see handleClean.
    const std::unique_ptr<InterruptWatch> interrupts = watchInterruptSignals();
    const auto pipeline = Engines::trashPipeline(environment, writeError);
    // The operand is the second word, whatever it is: "--execute" there is a name.
    const std::string& target = args[1];
    const bool execute = hasFlag(args, "--execute");
    const bool force = hasFlag(args, "--force");
    const auto apps = Engines::appScanner(environment).scanInstalledApps(false);
    const InstalledApp* app = Engines::findInstalledApp(apps, target);
    if (app == nullptr) {
        printLine("Error: Application not found matching '" + target + "'");
        return 1;
    }
    const AppUninstaller uninstaller = Engines::appUninstaller(environment, pipeline);
    const UninstallSummary summary = uninstaller.uninstall(
        *app, !execute, {.force = force, .includeBundle = true, .includeDependencies = true}, interrupts->token());
    const int status = interrupts->receivedSignal() != 0 ? statusAfterSignal(interrupts->receivedSignal()) : 0;
    if (hasFlag(args, "--json")) {
        printJson(toJson(summary));
        return status;
    }
    printLine(fmt::format("{} Successfully uninstalled {}:", execute ? "[UNINSTALLED]" : "[DRY RUN]", summary.appName));
    printLine("  Unbulked Space: " + formatByteCount(summary.unbulkedAllocatedBytes));
    printLine(fmt::format("  Files: {}", summary.records.size()));
    return status;
}

} // namespace

int handleUninstaller(const Environment& environment, const Arguments& args) {
    const std::string subcommand = args.empty() ? "list" : args.front();
    if (subcommand == "list") return list(environment, args);
    if (subcommand == "remove" || subcommand == "uninstall") return remove(environment, args);
    return 0; // an unknown subcommand does nothing, quietly
}

} // namespace unbulk::cli
