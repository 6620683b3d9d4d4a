#pragma once

#include <condition_variable>
#include <deque>
#include <exception>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>

#include "Models/ScanItem.hpp"
#include "Support/Cancellation.hpp"

namespace unbulk {

// A stream of scan events fed by a background thread. The buffer is
// unbounded. next() blocks for the next event, gives nothing once the stream
// has finished, and rethrows the scan's error at the end of a failed scan.
// Destroying the stream cancels the scan and waits for the thread.
class ScanEventStream {
public:
    using Producer = std::function<void(StopToken, const std::function<void(ScanProgressEvent)>& yield)>;

    explicit ScanEventStream(Producer producer);
    ~ScanEventStream();
    ScanEventStream(const ScanEventStream&) = delete;
    ScanEventStream& operator=(const ScanEventStream&) = delete;

    std::optional<ScanProgressEvent> next();

    // Ends the scan early, as dropping the stream does.
    void cancel();

private:
    struct State {
        std::mutex mutex;
        std::condition_variable ready;
        std::deque<ScanProgressEvent> buffer;
        bool finished = false;
        std::exception_ptr error;
    };

    std::shared_ptr<State> state_;
    StopSource stop_;
    std::thread worker_;
};

} // namespace unbulk
