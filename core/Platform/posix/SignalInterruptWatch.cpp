// The interrupt signals, waited for with sigwait on a thread of our own.
// Blocking them and taking them from the pending set this way needs no
// handler, and so no global state: what a signal does is done on an ordinary
// thread, where requesting a stop (a mutex, callbacks) is allowed, as it is
// not inside a signal handler.

#include <atomic>
#include <csignal>
#include <thread>

#include <pthread.h>

#include "Platform/InterruptSignals.hpp"

namespace unbulk {
namespace {

class SignalInterruptWatch final : public InterruptWatch {
public:
    SignalInterruptWatch() {
        sigemptyset(&signals_);
        for (int signal : {SIGINT, SIGTERM, SIGHUP}) sigaddset(&signals_, signal);
        pthread_sigmask(SIG_BLOCK, &signals_, &previousMask_);
        waiter_ = std::thread([this] { wait(); });
    }

    ~SignalInterruptWatch() override {
        // The waiter is woken by a signal sent to it alone; `closing_` tells
        // it that this one is ours.
        closing_.store(true);
        pthread_kill(waiter_.native_handle(), SIGTERM);
        waiter_.join();
        pthread_sigmask(SIG_SETMASK, &previousMask_, nullptr);
    }

    SignalInterruptWatch(const SignalInterruptWatch&) = delete;
    SignalInterruptWatch& operator=(const SignalInterruptWatch&) = delete;

    StopToken token() const override { return source_.token(); }
    int receivedSignal() const override { return received_.load(); }

private:
    void wait() {
        for (;;) {
            int signal = 0;
            if (sigwait(&signals_, &signal) != 0) continue;
            if (closing_.load()) return;
            int none = 0;
            if (received_.compare_exchange_strong(none, signal)) {
                source_.requestStop();
                continue;
            }
            // Asked twice: the process ends as the signal would end it.
            std::signal(signal, SIG_DFL);
            sigset_t only;
            sigemptyset(&only);
            sigaddset(&only, signal);
            pthread_sigmask(SIG_UNBLOCK, &only, nullptr);
            raise(signal);
        }
    }

    sigset_t signals_{};
    sigset_t previousMask_{};
    StopSource source_;
    std::atomic<int> received_{0};
    std::atomic<bool> closing_{false};
    std::thread waiter_;
};

} // namespace

std::unique_ptr<InterruptWatch> watchInterruptSignals() { return std::make_unique<SignalInterruptWatch>(); }

} // namespace unbulk
