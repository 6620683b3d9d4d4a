#include <memory>
#include <optional>
#include <string>
#include <vector>

#include <fmt/format.h>

#include "Handlers.hpp"
#include "Models/Categories.hpp"
#include "Models/SafetyModels.hpp"
#include "Models/ScanItem.hpp"
#include "Operations/Engines.hpp"
#include "Output.hpp"
#include "Platform/ByteCountFormatter.hpp"
#include "Platform/FileSystem.hpp"
#include "Platform/InterruptSignals.hpp"
#include "ProgressLine.hpp"
#include "Removal.hpp"
#include "Scanner/DeepScanEngine.hpp"
#include "Support/Dates.hpp"
#include "Support/Json.hpp"

namespace unbulk::cli {
namespace {

// Without a usable --category, clean touches only what is safe by default.
CategorySet safeDefaultCategories() {
    CategorySet categories;
    for (const StorageCategoryInfo& entry : storageCategoryTable) {
        if (entry.defaultRiskTier == RiskTier::safeToDelete) categories.insert(entry.value);
    }
    return categories;
}

// Unlike scan, clean tells a missing value from a wrong one: no value means
// the safe default, a value that is not a raw value means every category.
std::optional<CategorySet> selectedCategories(const Arguments& args) {
    const auto raw = optionValue(args, "--category");
    if (!raw) return safeDefaultCategories();
    if (auto category = fromRawValue<StorageCategory>(*raw)) return CategorySet{*category};
    return std::nullopt;
}

void printReport(const TrashSummary& summary) {
    // The label and the hint say what the pipeline did, not what the flags
    // suggest: --permanent --yes purges without --execute too, and a purge
    // must never read as a dry run.
    const char* label = summary.isPermanentPurge ? "[PERMANENT PURGE]" : summary.isDryRun ? "[DRY RUN]" : "[TRASHED]";
    printLine(fmt::format("\n{} Cleanup Summary:", label));
    printLine(fmt::format("  Items Processed: {}", summary.records.size()));
    printLine(fmt::format("  Successful: {}", summary.successCount));
    printLine(fmt::format("  Space Unbulked: {}", formatByteCount(summary.totalAllocatedBytesUnbulked)));
    if (summary.isDryRun) {
        printLine("\nTo apply these deletions, run again with '--execute'. All items will be moved to macOS Trash.");
    }
}

} // namespace

int handleClean(const Environment& environment, const Arguments& args) {
    const bool jsonOutput = hasFlag(args, "--json");
    // "--dry-run" is not read: a dry run is what clean does unless told otherwise.
    const bool dryRun = !(hasFlag(args, "--execute") || hasFlag(args, "--no-dry-run"));
    const bool permanent = hasFlag(args, "--permanent");
    const bool confirmed = hasFlag(args, "--yes") || hasFlag(args, "-y");

    // Refused before anything is scanned. Without --execute the purge is not
    // stopped here but by the pipeline, after the scan.
    if (permanent && !dryRun && !confirmed) {
        writeError("Permanent purge requires explicit confirmation via '--yes'.\n");
        return 1;
    }

    // Ctrl-C, SIGTERM and SIGHUP end the scan, or the cleanup after the
    // item in hand, which is then logged and reported as it stands. Made
    // before the scan starts any thread, so that none of them gets the
    // signal instead.
    const std::unique_ptr<InterruptWatch> interrupts = watchInterruptSignals();
    const StopToken stop = interrupts->token();

    const std::optional<CategorySet> categories = selectedCategories(args);

    // A cleanup that was cut short is logged now, whatever this one finds.
    const std::shared_ptr<const TrashPipeline> pipeline = Engines::trashPipeline(environment, writeError);
    ScanResult result;
    try {
        ProgressLine progress(!jsonOutput);
        result = Engines::scanEngine(environment).scan(categories, progress.scanTotals(), stop);
    } catch (const CancellationError&) {
        // Nothing was touched yet.
        if (interrupts->receivedSignal() != 0) return statusAfterSignal(interrupts->receivedSignal());
        throw;
    }

    // Every item of a selected category goes; what must not go is refused
    // item by item by the pipeline's sandbox.
    std::vector<FileURL> targets;
    targets.reserve(result.items.size());
    for (const DiscoveredItem& item : result.items)
        targets.push_back(item.url);

    if (targets.empty()) {
        printLine(jsonOutput ? "{\"status\":\"nothing_to_clean\"}"
                             : "No cleanable files found for the selected categories.");
        return 0;
    }

    const TrashSummary summary = runRemoval(
        {.targets = std::move(targets), .dryRun = dryRun, .permanent = permanent, .confirmed = confirmed, .stop = stop},
        *pipeline);

    if (jsonOutput) {
        printJson(toJson(summary, DateEncoding::iso8601));
    } else {
        printReport(summary);
    }
    return interrupts->receivedSignal() != 0 ? statusAfterSignal(interrupts->receivedSignal()) : 0;
}

} // namespace unbulk::cli
