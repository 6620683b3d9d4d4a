#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "Platform/WindowSystem.hpp"

namespace unbulk {

// Centres a window of the running application on its screen, on a keyboard
// shortcut (fn + control + C) or when asked. All of it belongs on the main
// thread, and every entry point (the key handler too) stops the process when
// called from another. A host uses the shared one, or makes one and keeps
// it; without a window system (any platform but the Mac) it finds no window
// and answers false.
class WindowCenterManager {
public:
    // The application's one manager, made on first use over the window
    // system given then (a host's Environment's); later calls return it as
    // it is. Never destroyed, so no exit-time teardown touches AppKit.
    static WindowCenterManager& shared(std::shared_ptr<WindowSystem> windowSystem);

    explicit WindowCenterManager(std::shared_ptr<WindowSystem> windowSystem);
    ~WindowCenterManager();
    WindowCenterManager(const WindowCenterManager&) = delete;
    WindowCenterManager& operator=(const WindowCenterManager&) = delete;

    // Installs the key monitor once; a second call does nothing.
    void startMonitoring();
    void stopMonitoring();
    bool isMonitoring() const { return monitor_.has_value(); }

    bool centerActiveWindow(bool animated);
    // The key window, the tracked one, the main one, or the first valid one.
    std::shared_ptr<Window> resolveTargetWindow() const;
    void center(Window& window, bool animated) const;

    static bool isCenterShortcut(const KeyEvent& event);
    static bool isValidTarget(const Window& window);

    std::weak_ptr<Window> trackedWindow;

private:
    void requireMainThread() const;

    std::shared_ptr<WindowSystem> windowSystem_;
    std::optional<std::uintptr_t> monitor_;
    std::shared_ptr<WindowCenterManager*> self_; // what the monitor holds: cleared when the manager goes
};

} // namespace unbulk
