#include <fmt/format.h>

#include "CoreObjects.hpp"
#include "Handlers.hpp"
#include "Output.hpp"
#include "Platform/ByteCountFormatter.hpp"
#include "Platform/InterruptSignals.hpp"
#include "ProgressLine.hpp"
#include "Support/Json.hpp"
#include "Support/Unicode.hpp"
#include "Uninstaller/AppScanner.hpp"
#include "Uninstaller/AppUninstaller.hpp"
#include "Uninstaller/LeftoversHunter.hpp"

namespace unbulk::cli {
namespace {

AppScanner makeScanner(const FileURL& homeURL) {
    return AppScanner({.fileSystem = makeDefaultFileSystem(), .homeURL = homeURL});
}

int list(const Arguments& args) {
    const FileURL homeURL = userHomeURL();
    std::vector<InstalledApp> apps;
    std::vector<AppLeftover> leftovers;
    {
        ProgressLine progress(!hasFlag(args, "--json"));
        apps = makeScanner(homeURL).scanInstalledApps(false, {}, progress.countingItems());
        // The hunter is handed the list just made. Left to itself, with no list
        // and no scanner, its index would be empty and every installed
        // application's data would be listed as orphaned; an orphan is what no
        // installed application accounts for.
        leftovers = LeftoversHunter(homeURL).scanForLeftovers(apps);
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

int remove(const Arguments& args) {
    if (args.size() < 2) {
        printLine("Usage: unbulk uninstaller remove <bundle_id_or_name> [--execute]");
        return 0;
    }
    // Before the application scan starts its threads: see handleClean.
    const std::unique_ptr<InterruptWatch> interrupts = watchInterruptSignals();
    const auto fileSystem = makeDefaultFileSystem();
    const auto pipeline = makeTrashPipeline(fileSystem);
    pipeline->recordInterruptedOperations();
    // The operand is the second word, whatever it is: "--execute" there is a name.
    const std::string& target = args[1];
    const bool execute = hasFlag(args, "--execute");
    const bool force = hasFlag(args, "--force");
    const FileURL homeURL = userHomeURL();
    const auto apps = makeScanner(homeURL).scanInstalledApps(false);
    const std::string wanted = unicode::lowercased(target);
    const InstalledApp* app = nullptr;
    for (const auto& candidate : apps) {
        if (unicode::lowercased(candidate.bundleIdentifier) == wanted ||
            unicode::lowercased(candidate.displayName) == wanted) {
            app = &candidate;
            break;
        }
    }
    if (app == nullptr) {
        printLine("Error: Application not found matching '" + target + "'");
        return 1;
    }
    const AppUninstaller uninstaller({.fileSystem = fileSystem, .trashPipeline = pipeline, .homeURL = homeURL});
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

int handleUninstaller(const Arguments& args) {
    const std::string subcommand = args.empty() ? "list" : args.front();
    if (subcommand == "list") return list(args);
    if (subcommand == "remove" || subcommand == "uninstall") return remove(args);
    return 0; // an unknown subcommand does nothing, quietly
}

} // namespace unbulk::cli
