// The thermal state as the system's process information reports it, and its
// changes as the notification centre announces them. Built with ARC.

#import <Foundation/Foundation.h>

#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <optional>

#include "Platform/Power.hpp"
#include "Support/Cancellation.hpp"

namespace unbulk {
namespace {

ThermalState currentThermalState() {
    @autoreleasepool {
        switch (NSProcessInfo.processInfo.thermalState) {
        case NSProcessInfoThermalStateNominal:
            return ThermalState::nominal;
        case NSProcessInfoThermalStateFair:
            return ThermalState::fair;
        case NSProcessInfoThermalStateSerious:
            return ThermalState::serious;
        case NSProcessInfoThermalStateCritical:
            return ThermalState::critical;
        }
        return ThermalState::nominal;
    }
}

// Values the observer block has delivered and next() has not yet taken. The
// block holds it by shared_ptr, so a notice that is being delivered while the
// stream goes away still finds it alive.
struct PendingStates {
    std::mutex mutex;
    std::condition_variable arrived;
    std::deque<ThermalState> values;

    void push(ThermalState state) {
        {
            std::lock_guard lock(mutex);
            values.push_back(state);
        }
        arrived.notify_all();
    }
};

// Unbounded: every notice is kept until it is read. The observer is removed
// when the stream is destroyed.
class NotificationThermalStateUpdates final : public ThermalStateUpdates {
public:
    NotificationThermalStateUpdates() : pending_(std::make_shared<PendingStates>()) {
        std::shared_ptr<PendingStates> pending = pending_;
        @autoreleasepool {
            // No object: notices from any sender. No queue: the block runs on
            // the thread that posts, and only hands the value over.
            observer_ = [NSNotificationCenter.defaultCenter
                addObserverForName:NSProcessInfoThermalStateDidChangeNotification
                            object:nil
                             queue:nil
                        usingBlock:^(NSNotification* notification) {
                          (void)notification;
                          pending->push(currentThermalState());
                        }];
        }
    }

    ~NotificationThermalStateUpdates() override {
        @autoreleasepool {
            [NSNotificationCenter.defaultCenter removeObserver:observer_];
        }
        observer_ = nil;
    }

    NotificationThermalStateUpdates(const NotificationThermalStateUpdates&) = delete;
    NotificationThermalStateUpdates& operator=(const NotificationThermalStateUpdates&) = delete;

    std::optional<ThermalState> next(StopToken stop) override {
        PendingStates& pending = *pending_;
        bool stopped = false;
        // The callback outlives neither this frame nor the wait: its
        // destructor waits for a run on another thread to finish.
        StopCallback onStop(stop, [&] {
            std::lock_guard lock(pending.mutex);
            stopped = true;
            pending.arrived.notify_all();
        });
        std::unique_lock lock(pending.mutex);
        pending.arrived.wait(lock, [&] { return !pending.values.empty() || stopped; });
        if (pending.values.empty()) return std::nullopt;
        const ThermalState state = pending.values.front();
        pending.values.pop_front();
        return state;
    }

private:
    std::shared_ptr<PendingStates> pending_;
    id<NSObject> observer_;
};

class DefaultThermalStateProvider final : public ThermalStateProviding {
public:
    ThermalState thermalState() const override { return currentThermalState(); }

    std::unique_ptr<ThermalStateUpdates> thermalStateUpdates() override {
        return std::make_unique<NotificationThermalStateUpdates>();
    }
};

} // namespace

std::shared_ptr<ThermalStateProviding> makeDefaultThermalStateProvider() {
    return std::make_shared<DefaultThermalStateProvider>();
}

} // namespace unbulk
