#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace unbulk {

struct WindowPoint {
    double x = 0;
    double y = 0;
    friend bool operator==(const WindowPoint&, const WindowPoint&) = default;
};

// A key event as the window system delivers it.
struct KeyEvent {
    std::uint64_t type = 0;          // 10 is key-down
    std::uint64_t modifierFlags = 0; // the device-independent flags
    std::uint16_t keyCode = 0;
    std::string charactersIgnoringModifiers;
    std::string characters;
};

// One window of the running application.
class Window {
public:
    virtual ~Window() = default;
    virtual std::string className() const = 0; // the plain name of its type
    virtual bool isPanel() const = 0;
    virtual bool canBecomeKey() const = 0;
    virtual std::uint64_t styleMask() const = 0;
    virtual bool isMiniaturized() const = 0;
    virtual void deminiaturize() = 0;
    virtual bool isVisible() const = 0;
    virtual void makeKeyAndOrderFront() = 0;
    virtual WindowPoint frameOrigin() const = 0;
    virtual void center() = 0; // the system's own centring
    virtual void setFrameOrigin(WindowPoint origin) = 0;
    // Moves the window there over `seconds` with an ease-out curve.
    virtual void animateFrameOrigin(WindowPoint origin, double seconds) = 0;
};

// The running application's windows and its local key monitor.
class WindowSystem {
public:
    // Answers whether the event was taken (and so swallowed).
    using KeyHandler = std::function<bool(const KeyEvent&)>;

    virtual ~WindowSystem() = default;
    // Stops the process when called anywhere but on the main thread, the one
    // thread the window system may be used from.
    virtual void requireMainThread() const = 0;
    virtual std::shared_ptr<Window> keyWindow() const = 0;
    virtual std::shared_ptr<Window> mainWindow() const = 0;
    virtual std::vector<std::shared_ptr<Window>> windows() const = 0;
    // A token for removeKeyDownMonitor; installs the handler for key-down
    // events. 0 when none could be installed; removing 0 does nothing.
    virtual std::uintptr_t addKeyDownMonitor(KeyHandler handler) = 0;
    virtual void removeKeyDownMonitor(std::uintptr_t token) = 0;
};

// AppKit on the Mac; nothing elsewhere (there is no window to centre).
std::shared_ptr<WindowSystem> makeDefaultWindowSystem();

} // namespace unbulk
