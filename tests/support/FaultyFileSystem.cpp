#include "support/FaultyFileSystem.hpp"

#include "Support/Paths.hpp"

namespace unbulk::testing {

static_assert(static_cast<std::size_t>(FileSystemCall::openDirectory) + 1 == fileSystemCallCount);

void FaultyFileSystem::reportDeviceBelow(const std::string& root, std::uint64_t device) {
    std::lock_guard lock(mutex_);
    devices_.emplace_back(paths::standardize(root), device);
}

AnchorCheck FaultyFileSystem::withReportedDevices(AnchorCheck check) const {
    if (!check) return check;
    return [this, check = std::move(check)](const std::vector<AnchoredStep>& steps) {
        std::vector<AnchoredStep> reported = steps;
        for (AnchoredStep& step : reported) step.status.device = deviceFor(step.path, step.status.device);
        return check(reported);
    };
}

std::uint64_t FaultyFileSystem::deviceFor(const std::string& path, std::uint64_t real) const {
    const std::string standardized = paths::standardize(path);
    std::lock_guard lock(mutex_);
    for (const auto& [root, device] : devices_) {
        if (paths::isSameOrBelow(standardized, root)) return device;
    }
    return real;
}

void FaultyFileSystem::addRule(Rule rule) {
    std::lock_guard lock(mutex_);
    rule.path = paths::standardize(rule.path);
    rules_.push_back(std::move(rule));
}

std::error_code FaultyFileSystem::failureFor(FileSystemCall call, const std::string& path) const {
    const std::string standardized = paths::standardize(path);
    std::lock_guard lock(mutex_);
    for (const auto& rule : rules_) {
        if (rule.call != call) continue;
        if (rule.below ? paths::isSameOrBelow(standardized, rule.path) : standardized == rule.path) {
            return {rule.errorNumber, std::generic_category()};
        }
    }
    return {};
}

std::error_code FaultyFileSystem::interception(FileSystemCall call, const std::string& path) const {
    {
        std::lock_guard lock(mutex_);
        ++counts_[static_cast<std::size_t>(call)];
    }
    return failureFor(call, path);
}

void FaultyFileSystem::walk(const std::string& root, const WalkOptions& options,
                            const WalkCallbacks& callbacks) const {
    WalkCallbacks wrapped;
    wrapped.onError = callbacks.onError;
    wrapped.visit = [&](const WalkEntry& original) {
        FileStatus status;
        WalkEntry entry = original;
        if (original.status != nullptr) {
            status = *original.status;
            status.device = deviceFor(original.path, status.device);
            entry.status = &status;
        }
        auto failure = failureFor(FileSystemCall::walk, entry.path);
        if (!failure) return callbacks.visit(entry);
        if (entry.kind != FileKind::directory) {
            if (callbacks.onError) callbacks.onError(entry.path, failure, WalkFailure::entry);
            return WalkAction::proceed;
        }
        // Like a directory that cannot be opened: seen, then reported.
        WalkAction action = callbacks.visit(entry);
        if (action != WalkAction::proceed) return action;
        if (callbacks.onError) callbacks.onError(entry.path, failure, WalkFailure::directory);
        return WalkAction::skipDescendants;
    };
    ForwardingFileSystem::walk(root, options, wrapped);
}

bool FaultyFileSystem::removeItem(const std::string& path, const Identity& expected, const AnchorCheck& anchorCheck,
                                  const RemovalCheck& check, RemovalReport& report, PlatformError& error) {
    // Entries inside the item pass the rules on their way to the check: a
    // device rule changes what the check sees, a failure rule stops there.
    const RemovalCheck wrapped = [&](const WalkEntry& original, bool& leaveInPlace) -> std::error_code {
        if (auto failure = failureFor(FileSystemCall::removeItem, original.path)) return failure;
        FileStatus status = *original.status;
        status.device = deviceFor(original.path, status.device);
        WalkEntry entry = original;
        entry.status = &status;
        return check ? check(entry, leaveInPlace) : std::error_code();
    };
    return ForwardingFileSystem::removeItem(path, expected, withReportedDevices(anchorCheck), wrapped, report, error);
}

} // namespace unbulk::testing
