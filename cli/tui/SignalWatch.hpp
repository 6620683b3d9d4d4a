#pragma once

#include <atomic>
#include <thread>

#include <signal.h>

#include "Support/Cancellation.hpp"

namespace unbulk::cli {

// The signals that end an interactive command (SIGINT, SIGTERM, SIGHUP,
// SIGQUIT), taken without a signal handler: while this lives they are
// blocked in the calling thread, and so in every thread started after it
// (the scan's and the measure's workers), and one thread of its own waits
// for them with sigwait. The first to come requests a stop on the token and
// is remembered; the interface notices, leaves its loop, gives the terminal
// back, and then ends the process as the signal would have. Nothing runs in
// signal context, so nothing here has to be async-signal-safe, and all the
// state is in this object. Make it before any other thread exists.
//
// SIGWINCH and SIGTSTP are left to curses, whose handlers redraw after a
// resize and give the terminal back around a suspension.
class SignalWatch {
public:
    SignalWatch();
    // Stops the waiting thread and unblocks the signals.
    ~SignalWatch();
    SignalWatch(const SignalWatch&) = delete;
    SignalWatch& operator=(const SignalWatch&) = delete;

    StopToken token() const { return stop_.token(); }
    // The signal that came, or 0.
    int caught() const { return caught_.load(); }
    // Ends the process with the default action of the signal that came.
    [[noreturn]] void endProcessWithCaughtSignal() const;

private:
    void wait();

    sigset_t watched_;
    sigset_t previous_;
    StopSource stop_;
    std::atomic<int> caught_{0};
    std::atomic<bool> closing_{false};
    std::thread waiter_;
};

} // namespace unbulk::cli
