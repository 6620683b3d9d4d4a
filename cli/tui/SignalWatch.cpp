#include "tui/SignalWatch.hpp"

#include <cstdlib>

#include <pthread.h>
#include <unistd.h>

namespace unbulk::cli {

SignalWatch::SignalWatch() {
    sigemptyset(&watched_);
    for (int signal : {SIGINT, SIGTERM, SIGHUP, SIGQUIT})
        sigaddset(&watched_, signal);
    pthread_sigmask(SIG_BLOCK, &watched_, &previous_);
    waiter_ = std::thread([this] { wait(); });
}

SignalWatch::~SignalWatch() {
    // The waiter is woken by a signal of the watched set sent to it alone,
    // which it then takes for the wake-up it is.
    closing_ = true;
    pthread_kill(waiter_.native_handle(), SIGHUP);
    waiter_.join();
    pthread_sigmask(SIG_SETMASK, &previous_, nullptr);
}

void SignalWatch::wait() {
    for (;;) {
        int signal = 0;
        if (sigwait(&watched_, &signal) != 0) continue;
        if (closing_) return;
        int none = 0;
        if (caught_.compare_exchange_strong(none, signal)) stop_.requestStop();
    }
}

void SignalWatch::endProcessWithCaughtSignal() const {
    const int signal = caught();
    if (signal == 0) std::_Exit(1); // nothing came: a caller's mistake, ended plainly
    ::signal(signal, SIG_DFL);
    sigset_t only;
    sigemptyset(&only);
    sigaddset(&only, signal);
    ::raise(signal);
    pthread_sigmask(SIG_UNBLOCK, &only, nullptr);
    // Only a signal whose default action does not end the process gets here.
    std::_Exit(128 + signal);
}

} // namespace unbulk::cli
