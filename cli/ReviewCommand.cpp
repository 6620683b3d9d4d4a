#include <algorithm>
#include <chrono>
#include <memory>
#include <optional>

#include "Handlers.hpp"
#include "Removal.hpp"
#include "Models/Categories.hpp"
#include "Models/ScanItem.hpp"
#include "Operations/Engines.hpp"
#include "Output.hpp"
#include "Platform/InterruptSignals.hpp"
#include "ProgressLine.hpp"
#include "Scanner/DeepScanEngine.hpp"
#include "Scanner/RiskClassifier.hpp"
#include "Support/Cancellation.hpp"
#include "tui/ReviewList.hpp"
#include "tui/ReviewSession.hpp"
#include "tui/Screen.hpp"

namespace unbulk::cli {
namespace {

// Every exact raw value given; none of them (or none at all) scans every
// category, as scan does.
std::optional<CategorySet> selectedCategories(const Arguments& args) {
    CategorySet categories;
    for (const std::string& raw : optionValues(args, "--category")) {
        if (auto category = fromRawValue<StorageCategory>(raw)) categories.insert(*category);
    }
    if (categories.empty()) return std::nullopt;
    return categories;
}

ScanResult scanWithProgress(const Environment& environment, const std::optional<CategorySet>& categories,
                            StopToken stop) {
    ProgressLine progress(true);
    std::int64_t items = 0, bytes = 0;
    return Engines::scanEngine(environment)
        .scan(
            categories,
            [&](const ScanProgress& p) {
                items = std::max(items, p.itemsFound);
                bytes = std::max(bytes, p.totalAllocatedBytesScanned);
                progress.show(p.currentPath, items, bytes);
            },
            stop);
}

} // namespace

int handleReview(const Environment& environment, const Arguments& args) {
    if (!Screen::available()) {
        writeError("review needs a terminal; use 'unbulk scan' and 'unbulk clean --path' instead\n");
        return 1;
    }
    // Before any other thread exists, so that the scan's workers do not take
    // the signals either. A signal ends the screen; the terminal is given
    // back before the process ends with 128 + its number.
    const std::unique_ptr<InterruptWatch> interrupts = watchInterruptSignals();
    auto unrecorded = std::make_shared<std::vector<std::string>>();
    try {
        // A removal that was cut short is logged now, as clean does.
        const auto pipeline = Engines::trashPipeline(environment, screenNotice(unrecorded));
        ScanResult result = scanWithProgress(environment, selectedCategories(args), interrupts->token());

        // The scan keeps each item's tier, not the reason for it; a protected
        // item's reason is asked again of the same classifier (without a rule
        // registry, like the scan's).
        const FileURL& homeURL = environment.homeURL;
        const RiskClassifier classifier(homeURL, nullptr, environment.fileSystem);
        ReviewList list(std::move(result.items), environment.clock(), [&](const DiscoveredItem& item) {
            return classifier.classify(item.url, item.category, item.isOrphaned).reason;
        });
        ReviewSession session(std::move(list), pipeline, homeURL.path(), *interrupts, unrecorded);
        Screen screen;
        session.run(screen);
    } catch (const CancellationError&) {
        if (interrupts->receivedSignal() == 0) throw;
    }
    // The terminal is the user's again by now.
    // What could not be recorded and was not shown on the screen.
    for (const std::string& line : *unrecorded) writeError(line + "\n");
    return interrupts->receivedSignal() != 0 ? statusAfterSignal(interrupts->receivedSignal()) : 0;
}

} // namespace unbulk::cli
