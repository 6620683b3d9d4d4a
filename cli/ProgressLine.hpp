#pragma once

#include <chrono>
#include <cstdint>
#include <mutex>
#include <string>

#include "Scanner/ScanTypes.hpp"
#include "Support/ItemProgress.hpp"

namespace unbulk::cli {

// One live status line on standard error while a long command works: what
// is being looked at, what was found so far, and the time spent. Only when
// standard error is a terminal and the command prints text, so pipes,
// scripts and --json see exactly the bytes they always did. Rewritten at
// most ten times a second, and erased before the result is printed.
class ProgressLine {
public:
    explicit ProgressLine(bool wanted);
    ~ProgressLine();
    ProgressLine(const ProgressLine&) = delete;
    ProgressLine& operator=(const ProgressLine&) = delete;

    void show(const std::string& where, std::int64_t items, std::int64_t bytes);
    // Counts each finished item and adds its bytes, then shows the totals;
    // safe to call from several threads, as the parallel engines do.
    ItemProgress countingItems();
    // Shows what a scan reports; the totals shown are the largest reported
    // so far, since each of its stages counts from its own start.
    ScanProgressHandler scanTotals();
    // Removes the line; the next show() draws it again.
    void clear();

private:
    bool enabled_;
    std::mutex mutex_; // for countingItems and scanTotals
    std::int64_t items_ = 0;
    std::int64_t bytes_ = 0;
    bool shown_ = false;
    std::chrono::steady_clock::time_point start_;
    std::chrono::steady_clock::time_point last_{};
};

} // namespace unbulk::cli
