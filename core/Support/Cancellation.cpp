#include "Support/Cancellation.hpp"

#include <atomic>
#include <condition_variable>
#include <map>
#include <mutex>
#include <thread>

namespace unbulk {
namespace detail {

struct StopState {
    std::atomic<bool> requested{false};
    std::mutex mutex;
    std::condition_variable callbackFinished;
    // Registered callbacks by id, in registration order.
    std::map<std::uint64_t, std::function<void()>*> callbacks;
    std::uint64_t nextId = 1;
    // The callback that requestStop is running right now, and on which thread.
    std::uint64_t runningId = 0;
    std::thread::id runningThread;
};

} // namespace detail

bool StopToken::stopRequested() const noexcept {
    return state_ && state_->requested.load(std::memory_order_acquire);
}

StopSource::StopSource() : state_(std::make_shared<detail::StopState>()) {}

bool StopSource::stopRequested() const noexcept { return state_->requested.load(std::memory_order_acquire); }

bool StopSource::requestStop() {
    std::unique_lock lock(state_->mutex);
    if (state_->requested.load(std::memory_order_relaxed)) return false;
    state_->requested.store(true, std::memory_order_release);
    // No callback registers after this point (the constructor sees the flag
    // under the lock and runs its own), so the map only shrinks from here.
    while (!state_->callbacks.empty()) {
        auto first = state_->callbacks.begin();
        std::function<void()>* callback = first->second;
        state_->runningId = first->first;
        state_->runningThread = std::this_thread::get_id();
        state_->callbacks.erase(first);
        lock.unlock();
        (*callback)();
        lock.lock();
        state_->runningId = 0;
        state_->callbackFinished.notify_all();
    }
    return true;
}

StopCallback::StopCallback(const StopToken& token, std::function<void()> callback)
    : state_(token.state_), callback_(std::move(callback)) {
    if (!state_) return;
    {
        std::lock_guard lock(state_->mutex);
        if (!state_->requested.load(std::memory_order_relaxed)) {
            id_ = state_->nextId++;
            state_->callbacks.emplace(id_, &callback_);
            return;
        }
    }
    callback_();
}

StopCallback::~StopCallback() {
    if (!state_ || id_ == 0) return;
    std::unique_lock lock(state_->mutex);
    if (state_->callbacks.erase(id_) > 0) return;
    // requestStop took it: wait until it has returned, unless this is the
    // callback destroying its own registration from inside itself.
    if (state_->runningThread == std::this_thread::get_id()) return;
    state_->callbackFinished.wait(lock, [&] { return state_->runningId != id_; });
}

void cancellableSleep(std::chrono::nanoseconds duration, const StopToken& token) {
    throwIfCancelled(token);
    if (!token.stopPossible()) {
        std::this_thread::sleep_for(duration);
        return;
    }
    std::mutex mutex;
    std::condition_variable wake;
    bool woken = false;
    StopCallback onStop(token, [&] {
        std::lock_guard lock(mutex);
        woken = true;
        wake.notify_all();
    });
    {
        std::unique_lock lock(mutex);
        wake.wait_for(lock, duration, [&] { return woken; });
    }
    throwIfCancelled(token);
}

} // namespace unbulk
