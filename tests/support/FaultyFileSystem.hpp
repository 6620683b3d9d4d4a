#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "support/ForwardingFileSystem.hpp"

namespace unbulk::testing {

// A file system that forwards every call to another one (the real one
// unless told otherwise) and fails the calls a test chooses with the errno it
// chooses. Tests run as root, where permissions stop nothing, so this is how
// "permission denied" and friends reach the code under test.
//
// A rule names a call, a path and an errno; the path matches exactly
// (failOn) or as a whole-component prefix (failBelow). Paths are compared in
// their standardised form. A matching call fails as ForwardingFileSystem
// says, with these additions:
//  - removeItem fails as a whole when the item matches; for an entry inside
//    the item that matches, the removal stops there with the error, as when
//    that entry cannot be removed (what went before it is gone);
//  - walk, when the root matches, reports the root through onError and
//    visits nothing. Inside the walk a matching directory is visited and then
//    reported through onError, its contents never read (as a directory that
//    cannot be opened); any other matching entry is reported through onError
//    and not visited (as an entry that cannot be examined).
// A device rule (reportDeviceBelow) makes the entries at and below a path
// report another device number in walks and removals (the entries below
// the item and the steps of the way to it), as a file system mounted there
// would; mounts need privileges that tests do not have. withReportedDevices
// puts the same answers in front of any anchor check, a Trash's included.
// Every call is counted by kind, failed or not.
class FaultyFileSystem final : public ForwardingFileSystem {
public:
    using ForwardingFileSystem::ForwardingFileSystem;

    // `error` is the errno value the matching calls fail with.
    void failOn(FileSystemCall call, const std::string& path, int error) { addRule({call, path, false, error}); }
    void failBelow(FileSystemCall call, const std::string& root, int error) { addRule({call, root, true, error}); }
    void clearFailures() { std::lock_guard lock(mutex_); rules_.clear(); }
    void reportDeviceBelow(const std::string& root, std::uint64_t device);
    AnchorCheck withReportedDevices(AnchorCheck check) const;

    std::size_t callCount(FileSystemCall call) const {
        std::lock_guard lock(mutex_);
        return counts_[static_cast<std::size_t>(call)];
    }
    void resetCounts() { std::lock_guard lock(mutex_); counts_.fill(0); }

    void walk(const std::string& root, const WalkOptions& options, const WalkCallbacks& callbacks) const override;
    bool removeItem(const std::string& path, const Identity& expected, const AnchorCheck& anchorCheck,
                    const RemovalCheck& check, RemovalReport& report, PlatformError& error) override;

protected:
    // Counts the call; the matching rule's error, if any.
    std::error_code interception(FileSystemCall call, const std::string& path) const override;

private:
    // `path` is standardised; `below` takes in everything under it as well.
    struct Rule { FileSystemCall call; std::string path; bool below; int errorNumber; };

    void addRule(Rule rule);
    // The matching rule's error without counting anything.
    std::error_code failureFor(FileSystemCall call, const std::string& path) const;
    // The device an entry reports, the real one unless a device rule says otherwise.
    std::uint64_t deviceFor(const std::string& path, std::uint64_t real) const;

    mutable std::mutex mutex_;
    std::vector<Rule> rules_;
    std::vector<std::pair<std::string, std::uint64_t>> devices_;
    mutable std::array<std::size_t, fileSystemCallCount> counts_{};
};

} // namespace unbulk::testing
