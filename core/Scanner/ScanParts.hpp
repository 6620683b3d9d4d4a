#pragma once

#include <cstddef>
#include <exception>
#include <functional>
#include <optional>
#include <vector>

#include <tbb/task_group.h>

#include "Scanner/OrderedProgress.hpp"
#include "Scanner/ScanTypes.hpp"
#include "Support/Cancellation.hpp"

namespace unbulk {

// Independent parts of a scan (sub-scans that share nothing), run at once as
// tasks on every core beside the measurements inside them, with the outcome
// of running them one after the other in the order they were added: the
// results in that order, the progress reports and the stops as
// OrderedProgress tells, and, when parts fail, the failure of the first of
// them, with nothing of what any part found. Each part is handed the stop
// token to look at as it goes. A part must not wait on anyone: a task that
// waited could hold up a task it is waiting for.
template <typename Result>
class ScanParts {
public:
    using Part = std::function<Result(const ScanProgressHandler& progress, StopToken stop)>;

    void add(Part part) { parts_.push_back(std::move(part)); }

    std::vector<Result> run(const ScanProgressHandler& progress, const StopToken& stop) {
        const std::size_t count = parts_.size();
        std::vector<std::optional<Result>> results(count);
        std::vector<std::exception_ptr> failures(count);
        OrderedProgress ordered(progress, count, stop);
        auto runPart = [&](std::size_t index) {
            try {
                // As it would have looked at its start, had it run in order.
                throwIfCancelled(stop);
                results[index] = parts_[index](ordered.handlerFor(index), stop);
            } catch (...) {
                failures[index] = std::current_exception();
            }
            ordered.finished(index, failures[index] != nullptr);
        };
        tbb::task_group group;
        for (std::size_t i = 0; i < count; ++i) group.run([&runPart, i] { runPart(i); });
        group.wait();
        std::vector<Result> out;
        out.reserve(count);
        for (std::size_t i = 0; i < count; ++i) {
            if (ordered.cancelled(i)) throw CancellationError{};
            if (failures[i]) std::rethrow_exception(failures[i]);
            out.push_back(std::move(*results[i]));
        }
        return out;
    }

private:
    std::vector<Part> parts_;
};

} // namespace unbulk
