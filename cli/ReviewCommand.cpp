#include <chrono>
#include <memory>
#include <optional>

#include "Handlers.hpp"
#include "Models/Categories.hpp"
#include "Models/ScanItem.hpp"
#include "Operations/Engines.hpp"
#include "Output.hpp"
#include "Platform/InterruptSignals.hpp"
#include "ProgressLine.hpp"
#include "Removal.hpp"
#include "Scanner/DeepScanEngine.hpp"
#include "Scanner/RiskClassifier.hpp"
#include "ScreenCommand.hpp"
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

} // namespace

int handleReview(const Environment& environment, const Arguments& args) {
    return runScreenCommand(
        "review needs a terminal; use 'unbulk scan' and 'unbulk clean --path' instead",
        [&](const ScreenCommandContext& context) {
            // A removal that was cut short is logged now, as clean does.
            const auto pipeline = Engines::trashPipeline(environment, screenNotice(context.unrecorded));
            ScanResult result = [&] {
                ProgressLine progress(true);
                return Engines::scanEngine(environment)
                    .scan(selectedCategories(args), progress.scanTotals(), context.interrupts.token());
            }();

            // The scan keeps each item's tier, not the reason for it; a
            // protected item's reason is asked again of the same classifier
            // (without a rule registry, like the scan's).
            const FileURL& homeURL = environment.homeURL;
            const RiskClassifier classifier(homeURL, nullptr, environment.fileSystem);
            ReviewList list(std::move(result.items), environment.clock(), [&](const DiscoveredItem& item) {
                return classifier.classify(item.url, item.category, item.isOrphaned).reason;
            });
            ReviewSession session(std::move(list), pipeline, homeURL.path(), context.interrupts, context.unrecorded);
            Screen screen;
            session.run(screen);
        });
}

} // namespace unbulk::cli
