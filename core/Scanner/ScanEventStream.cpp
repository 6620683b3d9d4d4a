#include "Scanner/ScanEventStream.hpp"

#include "Support/Json.hpp"

namespace unbulk {

ScanEventStream::ScanEventStream(Producer producer) : state_(std::make_shared<State>()) {
    worker_ = std::thread([state = state_, producer = std::move(producer), stop = stop_.token()] {
        auto yield = [&](ScanProgressEvent event) {
            std::lock_guard lock(state->mutex);
            state->buffer.push_back(std::move(event));
            state->ready.notify_one();
        };
        std::exception_ptr error;
        try {
            producer(stop, yield);
        } catch (...) {
            error = std::current_exception();
        }
        std::lock_guard lock(state->mutex);
        state->error = error;
        state->finished = true;
        state->ready.notify_one();
    });
}

ScanEventStream::~ScanEventStream() {
    stop_.requestStop();
    if (worker_.joinable()) worker_.join();
}

void ScanEventStream::cancel() { stop_.requestStop(); }

std::optional<ScanProgressEvent> ScanEventStream::next() {
    std::unique_lock lock(state_->mutex);
    state_->ready.wait(lock, [&] { return !state_->buffer.empty() || state_->finished; });
    if (!state_->buffer.empty()) {
        ScanProgressEvent event = std::move(state_->buffer.front());
        state_->buffer.pop_front();
        return event;
    }
    if (state_->error) {
        auto error = std::exchange(state_->error, nullptr);
        std::rethrow_exception(error);
    }
    return std::nullopt;
}

} // namespace unbulk
