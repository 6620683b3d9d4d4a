#include "Maintenance/WindowCenterManager.hpp"

namespace unbulk {
namespace {

constexpr std::uint64_t keyDown = 10;
constexpr std::uint64_t shortcutMask = 0x9C0000;  // function, command, option, control
constexpr std::uint64_t shortcutFlags = 0x840000; // function and control only; shift is not looked at
constexpr std::uint64_t fullScreenStyle = 1u << 14;

} // namespace

WindowCenterManager& WindowCenterManager::shared(std::shared_ptr<WindowSystem> windowSystem) {
    static WindowCenterManager* const instance = new WindowCenterManager(std::move(windowSystem));
    return *instance;
}

WindowCenterManager::WindowCenterManager(std::shared_ptr<WindowSystem> windowSystem)
    : windowSystem_(std::move(windowSystem)), self_(std::make_shared<WindowCenterManager*>(this)) {}

WindowCenterManager::~WindowCenterManager() {
    *self_ = nullptr;
    stopMonitoring();
}

bool WindowCenterManager::isCenterShortcut(const KeyEvent& event) {
    if (event.type != keyDown) return false;
    if ((event.modifierFlags & shortcutMask) != shortcutFlags) return false;
    std::string lower = event.charactersIgnoringModifiers;
    for (char& c : lower) {
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    }
    return event.keyCode == 8 || lower == "c" || event.characters == "\x03";
}

void WindowCenterManager::requireMainThread() const {
    if (windowSystem_) windowSystem_->requireMainThread();
}

void WindowCenterManager::startMonitoring() {
    requireMainThread();
    if (monitor_ || !windowSystem_) return;
    // The handler holds the manager weakly: once it is gone, events pass.
    std::weak_ptr<WindowCenterManager*> weakSelf = self_;
    monitor_ = windowSystem_->addKeyDownMonitor([weakSelf](const KeyEvent& event) {
        auto self = weakSelf.lock();
        if (!self || *self == nullptr) return false;
        (*self)->requireMainThread();
        if (!isCenterShortcut(event)) return false;
        if (auto window = (*self)->resolveTargetWindow()) (*self)->center(*window, true);
        return true; // the shortcut is swallowed, window or not
    });
}

void WindowCenterManager::stopMonitoring() {
    requireMainThread();
    if (!monitor_ || !windowSystem_) return;
    windowSystem_->removeKeyDownMonitor(*monitor_);
    monitor_.reset();
}

bool WindowCenterManager::isValidTarget(const Window& window) {
    const std::string name = window.className();
    for (const char* excluded : {"StatusBar", "Menu", "Popover", "Tooltip"}) {
        if (name.find(excluded) != std::string::npos) return false;
    }
    return !window.isPanel() || window.canBecomeKey();
}

std::shared_ptr<Window> WindowCenterManager::resolveTargetWindow() const {
    requireMainThread();
    if (!windowSystem_) return nullptr;
    for (const auto& candidate : {windowSystem_->keyWindow(), trackedWindow.lock(), windowSystem_->mainWindow()}) {
        if (candidate && isValidTarget(*candidate)) return candidate;
    }
    for (const auto& window : windowSystem_->windows()) {
        if (window && isValidTarget(*window)) return window;
    }
    return nullptr;
}

bool WindowCenterManager::centerActiveWindow(bool animated) {
    requireMainThread();
    auto window = resolveTargetWindow();
    if (!window) return false;
    center(*window, animated);
    return true;
}

void WindowCenterManager::center(Window& window, bool animated) const {
    requireMainThread();
    if (window.styleMask() & fullScreenStyle) return;
    if (window.isMiniaturized()) window.deminiaturize();
    if (!window.isVisible()) window.makeKeyAndOrderFront();
    const WindowPoint before = window.frameOrigin();
    window.center();
    const WindowPoint after = window.frameOrigin();
    // Animate only a real move: put the window back, then glide it there.
    if (animated && after != before) {
        window.setFrameOrigin(before);
        window.animateFrameOrigin(after, 0.2);
    }
}

} // namespace unbulk
