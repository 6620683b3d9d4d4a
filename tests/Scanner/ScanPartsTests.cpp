#include <atomic>
#include <chrono>
#include <future>
#include <stdexcept>
#include <thread>

#include <gtest/gtest.h>

#include "Scanner/ScanParts.hpp"

namespace unbulk {
namespace {

using namespace std::chrono_literals;

ScanProgress report(const std::string& path) { return ScanProgress{.currentPath = path, .itemsFound = 1}; }

// Part i reports "i.a", waits, reports "i.b" and answers i; the later a part
// comes, the sooner it is done, so that running at once reverses every
// order that is not restored.
ScanParts<int> reversedParts(int count, std::function<void(int)> during = {}) {
    ScanParts<int> parts;
    for (int i = 0; i < count; ++i) {
        parts.add([i, count, during](const ScanProgressHandler& progress, StopToken) {
            if (progress) progress(report(std::to_string(i) + ".a"));
            std::this_thread::sleep_for(std::chrono::milliseconds(15 * (count - i)));
            if (during) during(i);
            if (progress) progress(report(std::to_string(i) + ".b"));
            return i;
        });
    }
    return parts;
}

// What the handler heard, checking that it was never called twice at once.
struct Heard {
    std::vector<std::string> paths;
    std::atomic<bool> inside{false};
    bool overlapped = false;
    std::function<void(const ScanProgress&)> extra;

    ScanProgressHandler handler() {
        return [this](const ScanProgress& progress) {
            if (inside.exchange(true)) overlapped = true;
            paths.push_back(progress.currentPath);
            if (extra) extra(progress);
            inside = false;
        };
    }
};

TEST(ScanPartsTest, ResultsAndReportsComeInTheOrderOfTheParts) {
    Heard heard;
    EXPECT_EQ(reversedParts(4).run(heard.handler(), {}), (std::vector<int>{0, 1, 2, 3}));
    EXPECT_EQ(heard.paths, (std::vector<std::string>{"0.a", "0.b", "1.a", "1.b", "2.a", "2.b", "3.a", "3.b"}));
    EXPECT_FALSE(heard.overlapped);
}

// The first failure in the parts' order is the one thrown, and nothing is
// heard of the parts after it, whatever they did.
TEST(ScanPartsTest, TheFirstFailureInOrderWinsAndNothingAfterItIsHeard) {
    Heard heard;
    auto parts = reversedParts(4, [](int i) {
        if (i == 1) throw std::runtime_error("one");
        if (i == 3) throw std::runtime_error("three");
    });
    try {
        parts.run(heard.handler(), {});
        ADD_FAILURE() << "no failure";
    } catch (const std::runtime_error& failure) {
        EXPECT_STREQ(failure.what(), "one");
    }
    EXPECT_EQ(heard.paths, (std::vector<std::string>{"0.a", "0.b", "1.a"}));
}

// A stop counts where it would have counted in order: a part whose turn
// comes after the stop is cancelled, though it ran, and is not heard of; a
// part that ran without one, and finished, stands.
TEST(ScanPartsTest, AStopCountsAtTheTurnOfEachPart) {
    {
        StopSource source;
        Heard heard;
        heard.extra = [&](const ScanProgress& progress) {
            if (progress.currentPath == "0.b") source.requestStop();
        };
        EXPECT_THROW(reversedParts(3).run(heard.handler(), source.token()), CancellationError);
        EXPECT_EQ(heard.paths, (std::vector<std::string>{"0.a", "0.b"}));
    }
    {
        // A stop that comes while a part's held reports are passed on
        // cancels it, with the rest of them: the second part is all done
        // by the time the first finishes.
        StopSource source;
        Heard heard;
        heard.extra = [&](const ScanProgress& progress) {
            if (progress.currentPath == "1.a") source.requestStop();
        };
        std::promise<void> secondDone;
        auto secondFinished = secondDone.get_future();
        ScanParts<int> parts;
        parts.add([&](const ScanProgressHandler& progress, StopToken) {
            secondFinished.wait_for(10s);
            progress(report("0.a"));
            return 0;
        });
        parts.add([&](const ScanProgressHandler& progress, StopToken) {
            progress(report("1.a"));
            progress(report("1.b"));
            secondDone.set_value();
            return 1;
        });
        EXPECT_THROW(parts.run(heard.handler(), source.token()), CancellationError);
        EXPECT_EQ(heard.paths, (std::vector<std::string>{"0.a", "1.a"}));
    }
}

} // namespace
} // namespace unbulk
