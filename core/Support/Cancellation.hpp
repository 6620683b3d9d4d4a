#pragma once

#include <chrono>
#include <cstdint>
#include <exception>
#include <functional>
#include <memory>

namespace unbulk {

// Cooperative cancellation. A StopSource asks for a stop; the StopTokens it
// hands out see the request; a StopCallback runs a function once when it
// comes. Work that can be cancelled takes a StopToken, defaulting to one that
// never stops, and throws CancellationError when it notices a request.
//
// This is our own because the standard library that Xcode 15 ships (libc++
// 16, the newest on macOS 13) has neither std::stop_token nor std::jthread.
namespace detail {
struct StopState;
}

class StopToken {
public:
    // A token with no source: it never stops.
    StopToken() = default;

    bool stopRequested() const noexcept;
    // False for a token that can never stop.
    bool stopPossible() const noexcept { return state_ != nullptr; }

private:
    friend class StopSource;
    friend class StopCallback;
    explicit StopToken(std::shared_ptr<detail::StopState> state) : state_(std::move(state)) {}

    std::shared_ptr<detail::StopState> state_;
};

class StopSource {
public:
    StopSource();

    StopToken token() const { return StopToken(state_); }
    bool stopRequested() const noexcept;

    // Marks the state stopped and runs every registered callback on this
    // thread, each once. True if this call made the request, false if one had
    // been made before.
    bool requestStop();

private:
    std::shared_ptr<detail::StopState> state_;
};

// Runs the function once when stop is requested, or at once in the
// constructor if it already was. The destructor deregisters it; if the
// function is running on another thread at that moment, the destructor waits
// for it to return, so that what the function touches may die right after.
class StopCallback {
public:
    StopCallback(const StopToken& token, std::function<void()> callback);
    ~StopCallback();
    StopCallback(const StopCallback&) = delete;
    StopCallback& operator=(const StopCallback&) = delete;

private:
    std::shared_ptr<detail::StopState> state_;
    std::function<void()> callback_;
    std::uint64_t id_ = 0;
};

struct CancellationError : std::exception {
    const char* what() const noexcept override { return "The operation was cancelled."; }
};

inline void throwIfCancelled(const StopToken& token) {
    if (token.stopRequested()) throw CancellationError{};
}

// Sleeps for the duration unless stop is requested first, in which case it
// throws CancellationError at once.
void cancellableSleep(std::chrono::nanoseconds duration, const StopToken& token);

} // namespace unbulk
