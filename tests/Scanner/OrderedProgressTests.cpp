#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Scanner/OrderedProgress.hpp"

namespace unbulk {
namespace {

ScanProgress report(const std::string& path) { return ScanProgress{.currentPath = path, .itemsFound = 1}; }

// The second of two parts reported while the first ran; the report, passed
// on at its turn, stops the scan. Had the parts run in order, the second
// would have seen that stop before its next item: so it counts as stopped
// if it is still running then, and stands if it had already finished.
TEST(OrderedProgressTest, AStopFromAPartsLastHeldReportCancelsItOnlyWhileItRuns) {
    for (const bool runningAtItsTurn : {true, false}) {
        StopSource source;
        std::vector<std::string> heard;
        const ScanProgressHandler handler = [&](const ScanProgress& progress) {
            heard.push_back(progress.currentPath);
            source.requestStop();
        };
        OrderedProgress ordered(handler, 2, source.token());
        const ScanProgressHandler second = ordered.handlerFor(1);
        second(report("1.a"));
        if (!runningAtItsTurn) ordered.finished(1, false);
        ordered.finished(0, false);
        if (runningAtItsTurn) {
            second(report("1.b")); // it looked for a stop before this one in vain
            ordered.finished(1, false);
        }
        EXPECT_EQ(heard, std::vector<std::string>{"1.a"}) << runningAtItsTurn;
        EXPECT_EQ(ordered.cancelled(1), runningAtItsTurn);
    }
}

} // namespace
} // namespace unbulk
