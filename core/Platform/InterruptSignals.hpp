#pragma once

#include <memory>

#include "Support/Cancellation.hpp"

namespace unbulk {

// The signals by which a person or the system asks a program to stop:
// SIGINT (Ctrl-C), SIGTERM and SIGHUP. While a watch lives they no longer
// end the process at once: the first one that arrives asks the watch's
// StopSource to stop, so that the work in hand can end cleanly between two
// steps and say what it did. A second one ends the process as the signal
// always would (a journal covers what was under way).
class InterruptWatch {
public:
    virtual ~InterruptWatch() = default;

    // Stops once one of the signals has arrived.
    virtual StopToken token() const = 0;
    // The number of the signal that arrived first; 0 while none has.
    virtual int receivedSignal() const = 0;
};

// Starts watching. The signals are blocked in the calling thread, and so in
// every thread it starts from then on: make the watch before any other
// thread is started (a thread pool, a progress line), or a signal may reach
// one of those and end the process. When the watch goes, the calling
// thread's signal mask is as it was.
std::unique_ptr<InterruptWatch> watchInterruptSignals();

} // namespace unbulk
