// The running application's windows through AppKit. Everything here runs on
// the main thread, as AppKit requires.

#import <AppKit/AppKit.h>
#import <QuartzCore/QuartzCore.h>
#include <dispatch/dispatch.h>

#include "Platform/WindowSystem.hpp"
#include "Platform/darwin/FoundationStrings.hpp"

namespace unbulk {
namespace {

class AppKitWindow final : public Window {
public:
    explicit AppKitWindow(NSWindow* window) : window_(window) {}

    std::string className() const override { return foundation::utf8(NSStringFromClass([window_ class])).value_or(""); }
    bool isPanel() const override { return [window_ isKindOfClass:[NSPanel class]]; }
    bool canBecomeKey() const override { return window_.canBecomeKeyWindow; }
    std::uint64_t styleMask() const override { return static_cast<std::uint64_t>(window_.styleMask); }
    bool isMiniaturized() const override { return window_.isMiniaturized; }
    void deminiaturize() override { [window_ deminiaturize:nil]; }
    bool isVisible() const override { return window_.isVisible; }
    void makeKeyAndOrderFront() override { [window_ makeKeyAndOrderFront:nil]; }
    WindowPoint frameOrigin() const override { return {window_.frame.origin.x, window_.frame.origin.y}; }
    void center() override { [window_ center]; }
    void setFrameOrigin(WindowPoint origin) override { [window_ setFrameOrigin:NSMakePoint(origin.x, origin.y)]; }
    void animateFrameOrigin(WindowPoint origin, double seconds) override {
        NSWindow* window = window_;
        [NSAnimationContext
            runAnimationGroup:^(NSAnimationContext* context) {
              dispatch_assert_queue(dispatch_get_main_queue());
              context.duration = seconds;
              context.timingFunction = [CAMediaTimingFunction functionWithName:kCAMediaTimingFunctionEaseOut];
              [window.animator setFrameOrigin:NSMakePoint(origin.x, origin.y)];
            }
            completionHandler:nil];
    }

private:
    NSWindow* window_;
};

std::shared_ptr<Window> wrap(NSWindow* window) {
    return window == nil ? nullptr : std::make_shared<AppKitWindow>(window);
}

KeyEvent keyEventOf(NSEvent* event) {
    KeyEvent key;
    key.type = static_cast<std::uint64_t>(event.type);
    key.modifierFlags = static_cast<std::uint64_t>(event.modifierFlags);
    key.keyCode = event.keyCode;
    if (auto text = foundation::utf8(event.charactersIgnoringModifiers)) key.charactersIgnoringModifiers = *text;
    if (auto text = foundation::utf8(event.characters)) key.characters = *text;
    return key;
}

class AppKitWindowSystem final : public WindowSystem {
public:
    void requireMainThread() const override { dispatch_assert_queue(dispatch_get_main_queue()); }
    std::shared_ptr<Window> keyWindow() const override { return wrap(NSApp.keyWindow); }
    std::shared_ptr<Window> mainWindow() const override { return wrap(NSApp.mainWindow); }
    std::vector<std::shared_ptr<Window>> windows() const override {
        std::vector<std::shared_ptr<Window>> out;
        for (NSWindow* window in NSApp.windows)
            out.push_back(wrap(window));
        return out;
    }
    std::uintptr_t addKeyDownMonitor(KeyHandler handler) override {
        id monitor = [NSEvent addLocalMonitorForEventsMatchingMask:NSEventMaskKeyDown
                                                           handler:^NSEvent*(NSEvent* event) {
                                                             dispatch_assert_queue(dispatch_get_main_queue());
                                                             return handler(keyEventOf(event)) ? nil : event;
                                                           }];
        // AppKit answers nil when it installs nothing: token 0, which removes nothing.
        if (monitor == nil) return 0;
        return reinterpret_cast<std::uintptr_t>((__bridge_retained void*)monitor);
    }
    void removeKeyDownMonitor(std::uintptr_t token) override {
        if (token == 0) return;
        id monitor = (__bridge_transfer id) reinterpret_cast<void*>(token);
        [NSEvent removeMonitor:monitor];
    }
};

} // namespace

std::shared_ptr<WindowSystem> makeDefaultWindowSystem() { return std::make_shared<AppKitWindowSystem>(); }

} // namespace unbulk
