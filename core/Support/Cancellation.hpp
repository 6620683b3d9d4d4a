#pragma once

#include <chrono>
#include <exception>
#include <stop_token>

namespace unbulk {

// Thrown by whatever notices that its stop token has been triggered. Work that
// can be cancelled takes a std::stop_token, defaulting to one that never stops.
struct CancellationError : std::exception {
    const char* what() const noexcept override { return "The operation was cancelled."; }
};

inline void throwIfCancelled(const std::stop_token& token) {
    if (token.stop_requested()) throw CancellationError{};
}

// Sleeps for the duration unless stop is requested first, in which case it
// throws CancellationError at once.
void cancellableSleep(std::chrono::nanoseconds duration, const std::stop_token& token);

} // namespace unbulk
