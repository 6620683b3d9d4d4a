#pragma once

#include <cstddef>
#include <mutex>
#include <vector>

#include "Scanner/ScanTypes.hpp"
#include "Support/Cancellation.hpp"

namespace unbulk {

// Makes parts of a scan that run at once look, from outside, as if they had
// run one after the other: their progress reports are passed on in that
// order, and a stop counts where it would have counted in order.
//
// A part's turn comes when every part before it has finished. Until then
// its reports are held; at its turn they are passed on, and from then on
// they go on at once. A part whose turn comes after a stop was requested is
// cancelled, as one that looked at its start would have been; a stop that
// comes while its held reports are passed on cancels it too, with the rest
// of them (it looks for a stop between its items, and would have stopped),
// and so does one that comes with the last of them while the part is still
// running (whatever it reports after that is not passed on).
// Once a part has failed or been cancelled, nothing after it is passed on.
// The handler is never called twice at once.
class OrderedProgress {
public:
    OrderedProgress(const ScanProgressHandler& progress, std::size_t parts, StopToken stop);

    // The handler for part `index`; empty when there is no one to tell.
    ScanProgressHandler handlerFor(std::size_t index);
    void finished(std::size_t index, bool failed);
    // Once every part has finished: whether part `index` counts as cancelled.
    bool cancelled(std::size_t index) const;

private:
    void report(std::size_t index, const ScanProgress& progress);
    void beginTurn(); // of part current_, with mutex_ held

    const ScanProgressHandler& progress_;
    const StopToken stop_;
    mutable std::mutex mutex_;
    std::vector<std::vector<ScanProgress>> held_;
    std::vector<char> done_;
    std::vector<char> failed_;
    std::vector<char> cancelled_;
    std::size_t current_ = 0;
    bool ended_ = false;
};

} // namespace unbulk
