#include <array>
#include <stdexcept>

#include <gtest/gtest.h>

#include "Maintenance/WindowCenterManager.hpp"

namespace unbulk {
namespace {

struct FakeWindow final : Window {
    explicit FakeWindow(std::string className = "NSWindow") : name(std::move(className)) {}
    std::string className() const override { return name; }
    bool isPanel() const override { return panel; }
    bool canBecomeKey() const override { return keyable; }
    std::uint64_t styleMask() const override { return style; }
    bool isMiniaturized() const override { return miniaturized; }
    void deminiaturize() override { miniaturized = false; }
    bool isVisible() const override { return visible; }
    void makeKeyAndOrderFront() override { visible = true; }
    WindowPoint frameOrigin() const override { return origin; }
    void center() override { origin = {100, 100}; }
    void setFrameOrigin(WindowPoint point) override { origin = point; }
    void animateFrameOrigin(WindowPoint point, double seconds) override {
        animations.push_back({point.x, point.y, seconds});
        origin = point;
    }
    std::string name;
    bool panel = false, keyable = true, miniaturized = false, visible = true;
    std::uint64_t style = 0;
    WindowPoint origin{0, 0};
    std::vector<std::array<double, 3>> animations;
};

struct FakeWindowSystem final : WindowSystem {
    // Off the main thread, the real one stops the process; this one throws.
    void requireMainThread() const override {
        if (offMainThread) throw std::logic_error("off the main thread");
    }
    std::shared_ptr<Window> keyWindow() const override { return key; }
    std::shared_ptr<Window> mainWindow() const override { return main; }
    std::vector<std::shared_ptr<Window>> windows() const override { return all; }
    std::uintptr_t addKeyDownMonitor(KeyHandler h) override {
        handlers.push_back(std::move(h));
        return handlers.size();
    }
    void removeKeyDownMonitor(std::uintptr_t token) override { handlers.at(token - 1) = nullptr; }
    std::shared_ptr<Window> key, main;
    std::vector<std::shared_ptr<Window>> all;
    std::vector<WindowSystem::KeyHandler> handlers;
    bool offMainThread = false;
};

KeyEvent key(std::uint64_t flags, std::uint16_t code = 8, std::string chars = "c", std::uint64_t type = 10) {
    return {type, flags, code, chars, chars};
}

TEST(WindowCenterManagerTest, TheShortcutIsFunctionAndControlWithC) {
    constexpr std::uint64_t fn = 0x800000, control = 0x40000, command = 0x100000, shift = 0x20000;
    const std::vector<std::pair<KeyEvent, bool>> cases{
        {key(fn | control | shift, 99, "C"), true}, {key(control), false}, {key(fn | control | command), false},
        {key(fn | control, 9, "v"), false},         {key(fn | control, 8, "c", 11), false}, // a key-up
    };
    for (std::size_t i = 0; i < cases.size(); ++i)
        EXPECT_EQ(WindowCenterManager::isCenterShortcut(cases[i].first), cases[i].second) << "case " << i;
}

TEST(WindowCenterManagerTest, ResolvesTheFirstValidWindowInOrder) {
    auto system = std::make_shared<FakeWindowSystem>();
    WindowCenterManager manager(system);
    auto menu = std::make_shared<FakeWindow>("NSMenuWindowManagerWindow");
    auto panel = std::make_shared<FakeWindow>("NSPanel");
    panel->panel = true;
    panel->keyable = false;
    auto tracked = std::make_shared<FakeWindow>("TrackedWindow");
    auto main = std::make_shared<FakeWindow>("MainWindow");
    auto plain = std::make_shared<FakeWindow>("PlainWindow");
    EXPECT_EQ(manager.resolveTargetWindow(), nullptr);
    EXPECT_FALSE(manager.centerActiveWindow(true));
    system->all = {menu, panel, plain};
    EXPECT_EQ(manager.resolveTargetWindow(), plain);
    system->main = main;
    EXPECT_EQ(manager.resolveTargetWindow(), main);
    manager.trackedWindow = tracked;
    EXPECT_EQ(manager.resolveTargetWindow(), tracked);
    system->key = menu; // invalid: passed over
    EXPECT_EQ(manager.resolveTargetWindow(), tracked);
}

TEST(WindowCenterManagerTest, CentresWithAnimationOnlyWhenTheWindowMoves) {
    FakeWindow window;
    WindowCenterManager manager(nullptr);
    window.miniaturized = true;
    window.visible = false;
    manager.center(window, true);
    EXPECT_FALSE(window.miniaturized);
    EXPECT_TRUE(window.visible);
    ASSERT_EQ(window.animations.size(), 1u);
    EXPECT_EQ(window.animations[0], (std::array<double, 3>{100, 100, 0.2}));
    manager.center(window, true); // already centred
    EXPECT_EQ(window.animations.size(), 1u);
    FakeWindow fullScreen;
    fullScreen.style = 1u << 14;
    manager.center(fullScreen, true);
    EXPECT_EQ(fullScreen.origin, (WindowPoint{0, 0}));
    FakeWindow still;
    manager.center(still, false);
    EXPECT_EQ(still.origin, (WindowPoint{100, 100}));
    EXPECT_TRUE(still.animations.empty());
    EXPECT_FALSE(WindowCenterManager(nullptr).centerActiveWindow(true)); // no window system
}

TEST(WindowCenterManagerTest, TheMonitorIsInstalledOnceAndSwallowsOnlyTheShortcut) {
    auto system = std::make_shared<FakeWindowSystem>();
    auto window = std::make_shared<FakeWindow>();
    {
        WindowCenterManager manager(system);
        manager.startMonitoring();
        manager.startMonitoring();
        ASSERT_EQ(system->handlers.size(), 1u);
        EXPECT_FALSE(system->handlers[0](key(0x40000))); // control-C alone passes
        EXPECT_TRUE(system->handlers[0](key(0x840000))); // swallowed, though no window
        system->key = window;
        EXPECT_TRUE(system->handlers[0](key(0x840000)));
        EXPECT_EQ(window->origin, (WindowPoint{100, 100}));
        manager.stopMonitoring();
        EXPECT_FALSE(manager.isMonitoring());
        EXPECT_EQ(system->handlers[0], nullptr);
        manager.startMonitoring();
    }
    // The manager is gone: its handler lets every event through.
    ASSERT_EQ(system->handlers.size(), 2u);
    EXPECT_EQ(system->handlers[1], nullptr); // removed when the manager went
}

TEST(WindowCenterManagerTest, EveryEntryAndTheKeyHandlerRequireTheMainThread) {
    auto system = std::make_shared<FakeWindowSystem>();
    auto window = std::make_shared<FakeWindow>();
    system->key = window;
    WindowCenterManager manager(system);
    manager.startMonitoring();
    system->offMainThread = true;
    EXPECT_THROW(manager.startMonitoring(), std::logic_error);
    EXPECT_THROW(manager.stopMonitoring(), std::logic_error);
    EXPECT_THROW(manager.centerActiveWindow(false), std::logic_error);
    EXPECT_THROW(manager.resolveTargetWindow(), std::logic_error);
    EXPECT_THROW(manager.center(*window, false), std::logic_error);
    EXPECT_THROW(system->handlers.at(0)(key(0x840000)), std::logic_error);
    EXPECT_EQ(window->origin, (WindowPoint{0, 0})) << "nothing moved off the main thread";
    system->offMainThread = false;
}

TEST(WindowCenterManagerTest, TheSharedManagerIsOneInstance) {
    EXPECT_EQ(&WindowCenterManager::shared(nullptr), &WindowCenterManager::shared(std::make_shared<FakeWindowSystem>()));
}

} // namespace
} // namespace unbulk
