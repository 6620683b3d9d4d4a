#include <algorithm>
#include <chrono>
#include <optional>
#include <vector>

#include <fmt/format.h>

#include "Handlers.hpp"
#include "Models/Categories.hpp"
#include "Models/ScanItem.hpp"
#include "Operations/Engines.hpp"
#include "Output.hpp"
#include "Platform/ByteCountFormatter.hpp"
#include "Platform/FileSystem.hpp"
#include "ProgressLine.hpp"
#include "Scanner/DeepScanEngine.hpp"
#include "Support/Dates.hpp"
#include "Support/FileURL.hpp"
#include "Support/Json.hpp"

namespace unbulk::cli {
namespace {

void printReport(const ScanResult& result) {
    const double seconds = std::chrono::duration<double>(result.completedAt - result.startedAt).count();
    printLine("\nScan Completed in " + formatDuration(seconds));
    printLine(fmt::format("Found {} items taking {}", result.items.size(),
                          formatByteCount(result.summary.totalAllocatedBytes)));
    printLine("\nCategory Breakdown:");

    std::vector<CategorySummary> breakdown = result.summary.categoryBreakdown;
    std::stable_sort(breakdown.begin(), breakdown.end(), [](const CategorySummary& a, const CategorySummary& b) {
        return a.totalAllocatedBytes > b.totalAllocatedBytes;
    });
    for (const CategorySummary& entry : breakdown) {
        printLine(fmt::format("  \u2022 {}: {} ({} items) [{}]", displayName(entry.category),
                              formatByteCount(entry.totalAllocatedBytes), entry.itemCount,
                              displayName(entry.riskTier)));
    }
}

} // namespace

int handleScan(const Environment& environment, const Arguments& args) {
    const bool jsonOutput = hasFlag(args, "--json");

    const DeepScanEngine engine = Engines::scanEngine(environment);

    // Only an exact raw value selects a category; anything else, or no value
    // at all, scans everything.
    std::optional<CategorySet> categories;
    if (auto raw = optionValue(args, "--category")) {
        if (auto category = fromRawValue<StorageCategory>(*raw)) categories = CategorySet{*category};
    }

    if (!jsonOutput) printLine("Scanning storage for system junk, developer bloat, and AI models...");

    // A live line on a terminal.
    ScanResult result;
    {
        ProgressLine progress(!jsonOutput);
        result = engine.scan(categories, progress.scanTotals());
    }

    if (jsonOutput) {
        printJson(toJson(result, DateEncoding::iso8601));
    } else {
        printReport(result);
    }
    return 0;
}

} // namespace unbulk::cli
