#include "Scanner/OrderedProgress.hpp"

namespace unbulk {

OrderedProgress::OrderedProgress(const ScanProgressHandler& progress, std::size_t parts, StopToken stop)
    : progress_(progress), stop_(std::move(stop)), held_(parts), done_(parts, 0), failed_(parts, 0),
      cancelled_(parts, 0) {
    std::lock_guard lock(mutex_);
    if (parts > 0) beginTurn();
}

ScanProgressHandler OrderedProgress::handlerFor(std::size_t index) {
    if (!progress_) return {};
    return [this, index](const ScanProgress& progress) { report(index, progress); };
}

void OrderedProgress::report(std::size_t index, const ScanProgress& progress) {
    std::lock_guard lock(mutex_);
    if (ended_) return;
    if (index == current_) {
        progress_(progress);
    } else {
        held_[index].push_back(progress);
    }
}

void OrderedProgress::finished(std::size_t index, bool failed) {
    std::lock_guard lock(mutex_);
    done_[index] = 1;
    failed_[index] = failed ? 1 : 0;
    while (!ended_ && done_[current_]) {
        if (failed_[current_]) {
            ended_ = true;
            break;
        }
        if (++current_ == done_.size()) break;
        beginTurn();
    }
}

void OrderedProgress::beginTurn() {
    std::vector<ScanProgress> held = std::move(held_[current_]);
    if (stop_.stopRequested()) {
        cancelled_[current_] = 1;
        ended_ = true;
        return;
    }
    for (std::size_t i = 0; i < held.size(); ++i) {
        progress_(held[i]);
        // A part still running looked for a stop after its last report
        // before that report was passed on, so it cannot have seen one that
        // the report brought: it counts as having stopped there.
        const bool more = i + 1 < held.size() || !done_[current_];
        if (more && stop_.stopRequested()) {
            cancelled_[current_] = 1;
            ended_ = true;
            return;
        }
    }
}

bool OrderedProgress::cancelled(std::size_t index) const {
    std::lock_guard lock(mutex_);
    return cancelled_[index] != 0;
}

} // namespace unbulk
