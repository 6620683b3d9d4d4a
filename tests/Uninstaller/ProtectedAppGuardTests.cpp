#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Uninstaller/ProtectedAppGuard.hpp"
#include "Uninstaller/UninstallerError.hpp"
#include "support/TempHome.hpp"

namespace unbulk {
namespace {

// Applications that end when told to, or never.
class FakeProcesses final : public Processes {
public:
    std::vector<std::string> runningProcessNames() const override { return {}; }
    std::size_t runningApplicationCount(const std::string&) const override { return running ? 1 : 0; }
    void terminateApplications(const std::string&, bool force) const override {
        requests.push_back(force);
        if (force ? endsWhenForced : endsWhenAsked) running = false;
    }
    bool applicationsTerminated(const std::string&) const override { return !running; }
    mutable bool running = true;
    bool endsWhenAsked = false, endsWhenForced = true;
    mutable std::vector<bool> requests;
};

struct SignedByApple final : CodeSigning {
    std::optional<SigningInformation> signingInformation(const std::string&) const override {
        return SigningInformation{std::nullopt, true, 0, std::nullopt};
    }
};

TEST(ProtectedAppGuardTest, ProtectionTestsInTheirOrderAndWords) {
    testing::TempHome home;
    const ProtectedAppGuard guard(makeDefaultFileSystem(), makeDefaultCodeSigning(), makeDefaultProcesses());
    home.makeSymlink("Applications/Sneaky.app", "/usr/bin");
    home.makeDirectory("MyCryptexes/Tool.app");
    auto reason = [&](const std::string& path, const std::string& id) {
        return guard.evaluateProtection(FileURL(path, true), id, std::nullopt).reason.value_or("");
    };
    EXPECT_EQ(reason("/system/library/x.app", "x"), "Application resides in protected system directory '/System'");
    EXPECT_EQ(reason("/USR/local/x.app", "x"), "Application resides in protected system directory '/usr'");
    EXPECT_EQ(reason("/usrlocal/x.app", "x"), ""); // whole components only
    EXPECT_EQ(reason(home.at("Applications/Sneaky.app"), "x"),
              "Application resolves via symlink to protected system directory '/usr'");
    EXPECT_EQ(reason(home.at("MyCryptexes/Tool.app"), "x"), "Application is hosted on sealed macOS Cryptex volume");
    EXPECT_EQ(reason(home.at("Downloads/Safari.app"), "com.apple.Safari"),
              "Protected Apple core operating system bundle 'com.apple.Safari'");
    EXPECT_EQ(reason("/Library/Apps/Foo.app", "com.apple.Foo"), "Apple system component 'com.apple.Foo'");
    EXPECT_EQ(reason("/Applications/Foo.app", "com.apple.Foo"), "");
    EXPECT_EQ(reason("/Library/Apps/Foo.app", "com.Apple.Foo"), ""); // the prefix test keeps case
    EXPECT_EQ(guard.evaluateProtection(FileURL("/opt/Tool.app", true), "x", std::nullopt),
              ProtectionEvaluation::make(false, std::nullopt));

    const ProtectedAppGuard platform(makeDefaultFileSystem(), std::make_shared<SignedByApple>(), makeDefaultProcesses());
    EXPECT_EQ(platform.evaluateProtection(FileURL("/opt/Tool.app", true), "x", std::nullopt).reason,
              "Signed with Apple Platform OS authority (Platform)");
    // A report given says no: the guard does not read the signature again.
    EXPECT_FALSE(platform.evaluateProtection(FileURL("/opt/Tool.app", true), "x", CodeSignatureReport{}).isProtected);
}

TEST(ProtectedAppGuardTest, ValidationRefusesProtectedBeforeRunning) {
    using ::testing::ThrowsMessage;
    const ProtectedAppGuard guard(makeDefaultFileSystem(), makeDefaultCodeSigning(), makeDefaultProcesses(),
                                  [](const std::string&) { return true; });
    InstalledApp app = InstalledApp::make(
        {.bundleIdentifier = "com.acme.x", .bundleURL = FileURL("/Applications/X.app", true), .displayName = "X",
         .isSystemApp = true});
    const auto validate = [&] { guard.validateUninstall(app); };
    EXPECT_THAT(validate, ::testing::Throws<UninstallerError>(::testing::Field(
                              &UninstallerError::kind, UninstallerError::Kind::protectedSystemApp)));
    EXPECT_THAT(validate, ThrowsMessage<UninstallerError>("Refusing uninstallation of protected system application "
                                                          "'com.acme.x' at '/Applications/X.app': Protected macOS "
                                                          "system application"));
    app.isSystemApp = app.isProtected = false;
    EXPECT_THAT(validate,
                ThrowsMessage<UninstallerError>("Cannot uninstall 'X' (com.acme.x) because it is currently running."));
}

TEST(ProtectedAppGuardTest, TerminationAsksThenForcesThenGivesUp) {
    const TerminationTiming quick{std::chrono::milliseconds(30), std::chrono::milliseconds(5)};
    auto processes = std::make_shared<FakeProcesses>();
    const ProtectedAppGuard guard(makeDefaultFileSystem(), makeDefaultCodeSigning(), processes, {}, {}, quick);
    EXPECT_TRUE(guard.terminate("com.acme.x", false));
    EXPECT_EQ(processes->requests, (std::vector<bool>{false, true})); // polite, then forced after the deadline

    processes->running = true, processes->endsWhenForced = false;
    processes->requests.clear();
    EXPECT_THROW(guard.terminate("com.acme.x", true), UninstallerError);
    EXPECT_EQ(processes->requests, std::vector<bool>{true});

    const ProtectedAppGuard refusing(makeDefaultFileSystem(), makeDefaultCodeSigning(), processes, {},
                                     [](const std::string&, bool) { return false; });
    EXPECT_THROW(refusing.terminate("com.acme.x", false), UninstallerError);
}

} // namespace
} // namespace unbulk
