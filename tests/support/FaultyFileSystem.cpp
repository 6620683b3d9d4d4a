#include "support/FaultyFileSystem.hpp"

#include "Support/Paths.hpp"

namespace unbulk::testing {

static_assert(static_cast<std::size_t>(FileSystemCall::openLocked) + 1 == fileSystemCallCount);

FaultyFileSystem::FaultyFileSystem(std::shared_ptr<FileSystem> inner) : inner_(std::move(inner)) {}

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

bool FaultyFileSystem::fails(FileSystemCall call, const std::string& path, std::error_code& error,
                             const std::string* other) const {
    {
        std::lock_guard lock(mutex_);
        ++counts_[static_cast<std::size_t>(call)];
    }
    std::error_code failure = failureFor(call, path);
    if (!failure && other) failure = failureFor(call, *other);
    if (failure) error = failure;
    return static_cast<bool>(failure);
}

std::optional<FileStatus> FaultyFileSystem::status(const std::string& path, std::error_code& error) const {
    return fails(FileSystemCall::status, path, error) ? std::nullopt : inner_->status(path, error);
}

std::optional<FileStatus> FaultyFileSystem::linkStatus(const std::string& path, std::error_code& error) const {
    return fails(FileSystemCall::linkStatus, path, error) ? std::nullopt : inner_->linkStatus(path, error);
}

std::vector<DirectoryEntry> FaultyFileSystem::contentsOfDirectory(const std::string& path, ListOptions options,
                                                                  std::error_code& error) const {
    if (fails(FileSystemCall::contentsOfDirectory, path, error)) return {};
    return inner_->contentsOfDirectory(path, options, error);
}

void FaultyFileSystem::walk(const std::string& root, const WalkOptions& options,
                            const WalkCallbacks& callbacks) const {
    std::error_code rootFailure;
    if (fails(FileSystemCall::walk, root, rootFailure)) {
        if (callbacks.onError) callbacks.onError(root, rootFailure, WalkFailure::directory);
        return;
    }
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
    inner_->walk(root, options, wrapped);
}

TreeMeasure FaultyFileSystem::measureTree(const std::string& root, const TreeMeasureOptions& options) const {
    return measureTreeSerially(*this, root, options);
}

std::optional<std::string> FaultyFileSystem::destinationOfSymbolicLink(const std::string& path,
                                                                       std::error_code& error) const {
    if (fails(FileSystemCall::destinationOfSymbolicLink, path, error)) return std::nullopt;
    return inner_->destinationOfSymbolicLink(path, error);
}

std::string FaultyFileSystem::resolvingSymlinks(const std::string& path) const {
    std::error_code ignored;
    if (fails(FileSystemCall::resolvingSymlinks, path, ignored)) return paths::standardize(path);
    return inner_->resolvingSymlinks(path);
}

std::optional<std::string> FaultyFileSystem::readFile(const std::string& path, std::size_t maxBytes,
                                                      std::error_code& error) const {
    if (fails(FileSystemCall::readFile, path, error)) return std::nullopt;
    return inner_->readFile(path, maxBytes, error);
}

bool FaultyFileSystem::writeFileAtomically(const std::string& path, std::string_view contents,
                                           std::uint32_t permissions, std::error_code& error) {
    return !fails(FileSystemCall::writeFileAtomically, path, error) &&
           inner_->writeFileAtomically(path, contents, permissions, error);
}

bool FaultyFileSystem::renameItem(const std::string& from, const std::string& to, std::error_code& error) {
    return !fails(FileSystemCall::renameItem, from, error) && inner_->renameItem(from, to, error);
}

bool FaultyFileSystem::createDirectory(const std::string& path, std::uint32_t permissions, bool withIntermediates,
                                       std::error_code& error) {
    return !fails(FileSystemCall::createDirectory, path, error) &&
           inner_->createDirectory(path, permissions, withIntermediates, error);
}

bool FaultyFileSystem::removeItem(const std::string& path, const Identity& expected, const AnchorCheck& anchorCheck,
                                  const RemovalCheck& check, RemovalReport& report, std::error_code& error) {
    if (fails(FileSystemCall::removeItem, path, error)) return false;
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
    return inner_->removeItem(path, expected, withReportedDevices(anchorCheck), wrapped, report, error);
}

bool FaultyFileSystem::appendUnderLock(
    const std::string& path, std::uint32_t permissions, std::chrono::milliseconds lockTimeout,
    const AppendComposer& compose, std::error_code& error) {
    return !fails(FileSystemCall::appendUnderLock, path, error) &&
           inner_->appendUnderLock(path, permissions, lockTimeout, compose, error);
}

std::unique_ptr<LockedFile> FaultyFileSystem::openLocked(const std::string& path, LockedFileMode mode,
                                                         std::uint32_t permissions, std::error_code& error) {
    if (fails(FileSystemCall::openLocked, path, error)) return nullptr;
    return inner_->openLocked(path, mode, permissions, error);
}

bool FaultyFileSystem::isPackage(const std::string& path) const {
    std::error_code ignored;
    return !fails(FileSystemCall::isPackage, path, ignored) && inner_->isPackage(path);
}

} // namespace unbulk::testing
