#include "Support/Cancellation.hpp"

#include <condition_variable>
#include <mutex>

namespace unbulk {

void cancellableSleep(std::chrono::nanoseconds duration, const std::stop_token& token) {
    throwIfCancelled(token);
    std::mutex mutex;
    std::condition_variable_any wake;
    std::unique_lock lock(mutex);
    wake.wait_for(lock, token, duration, [] { return false; });
    throwIfCancelled(token);
}

} // namespace unbulk
