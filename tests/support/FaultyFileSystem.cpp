#include "support/FaultyFileSystem.hpp"

#include "Support/Paths.hpp"

namespace unbulk::testing {

static_assert(static_cast<std::size_t>(FileSystemCall::isPackage) + 1 == fileSystemCallCount);

FaultyFileSystem::FaultyFileSystem(std::shared_ptr<FileSystem> inner) : inner_(std::move(inner)) {}

void FaultyFileSystem::failOn(FileSystemCall call, const std::string& path, int errorNumber) {
    std::lock_guard lock(mutex_);
    rules_.push_back(Rule{call, paths::standardize(path), false, errorNumber});
}

void FaultyFileSystem::failBelow(FileSystemCall call, const std::string& root, int errorNumber) {
    std::lock_guard lock(mutex_);
    rules_.push_back(Rule{call, paths::standardize(root), true, errorNumber});
}

void FaultyFileSystem::clearFailures() {
    std::lock_guard lock(mutex_);
    rules_.clear();
}

std::size_t FaultyFileSystem::callCount(FileSystemCall call) const {
    std::lock_guard lock(mutex_);
    return counts_[static_cast<std::size_t>(call)];
}

void FaultyFileSystem::resetCounts() {
    std::lock_guard lock(mutex_);
    counts_.fill(0);
}

std::error_code FaultyFileSystem::failureFor(FileSystemCall call, const std::string& path) const {
    const std::string standardized = paths::standardize(path);
    std::lock_guard lock(mutex_);
    for (const auto& rule : rules_) {
        if (rule.call != call) continue;
        bool matches = rule.below ? paths::isSameOrBelow(standardized, rule.path) : standardized == rule.path;
        if (matches) return {rule.errorNumber, std::generic_category()};
    }
    return {};
}

std::error_code FaultyFileSystem::enter(FileSystemCall call, const std::string& path, const std::string* other) const {
    {
        std::lock_guard lock(mutex_);
        ++counts_[static_cast<std::size_t>(call)];
    }
    if (auto error = failureFor(call, path)) return error;
    if (other) return failureFor(call, *other);
    return {};
}

std::optional<FileStatus> FaultyFileSystem::status(const std::string& path, std::error_code& error) const {
    if (auto failure = enter(FileSystemCall::status, path)) {
        error = failure;
        return std::nullopt;
    }
    return inner_->status(path, error);
}

std::optional<FileStatus> FaultyFileSystem::linkStatus(const std::string& path, std::error_code& error) const {
    if (auto failure = enter(FileSystemCall::linkStatus, path)) {
        error = failure;
        return std::nullopt;
    }
    return inner_->linkStatus(path, error);
}

std::vector<DirectoryEntry> FaultyFileSystem::contentsOfDirectory(const std::string& path, ListOptions options,
                                                                  std::error_code& error) const {
    if (auto failure = enter(FileSystemCall::contentsOfDirectory, path)) {
        error = failure;
        return {};
    }
    return inner_->contentsOfDirectory(path, options, error);
}

void FaultyFileSystem::walk(const std::string& root, const WalkOptions& options,
                            const WalkCallbacks& callbacks) const {
    if (auto failure = enter(FileSystemCall::walk, root)) {
        if (callbacks.onError) callbacks.onError(root, failure, WalkFailure::directory);
        return;
    }
    WalkCallbacks wrapped;
    wrapped.onError = callbacks.onError;
    wrapped.visit = [&](const WalkEntry& entry) {
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

std::optional<std::string> FaultyFileSystem::destinationOfSymbolicLink(const std::string& path,
                                                                       std::error_code& error) const {
    if (auto failure = enter(FileSystemCall::destinationOfSymbolicLink, path)) {
        error = failure;
        return std::nullopt;
    }
    return inner_->destinationOfSymbolicLink(path, error);
}

std::string FaultyFileSystem::resolvingSymlinks(const std::string& path) const {
    if (enter(FileSystemCall::resolvingSymlinks, path)) return paths::standardize(path);
    return inner_->resolvingSymlinks(path);
}

std::optional<std::string> FaultyFileSystem::readFile(const std::string& path, std::size_t maxBytes,
                                                      std::error_code& error) const {
    if (auto failure = enter(FileSystemCall::readFile, path)) {
        error = failure;
        return std::nullopt;
    }
    return inner_->readFile(path, maxBytes, error);
}

bool FaultyFileSystem::writeFileAtomically(const std::string& path, std::string_view contents,
                                           std::uint32_t permissions, std::error_code& error) {
    if (auto failure = enter(FileSystemCall::writeFileAtomically, path)) {
        error = failure;
        return false;
    }
    return inner_->writeFileAtomically(path, contents, permissions, error);
}

bool FaultyFileSystem::appendToFile(const std::string& path, std::string_view contents, std::uint32_t permissions,
                                    std::error_code& error) {
    if (auto failure = enter(FileSystemCall::appendToFile, path)) {
        error = failure;
        return false;
    }
    return inner_->appendToFile(path, contents, permissions, error);
}

bool FaultyFileSystem::createDirectory(const std::string& path, std::uint32_t permissions, bool withIntermediates,
                                       std::error_code& error) {
    if (auto failure = enter(FileSystemCall::createDirectory, path)) {
        error = failure;
        return false;
    }
    return inner_->createDirectory(path, permissions, withIntermediates, error);
}

bool FaultyFileSystem::moveItem(const std::string& from, const std::string& to, std::error_code& error) {
    if (auto failure = enter(FileSystemCall::moveItem, from, &to)) {
        error = failure;
        return false;
    }
    return inner_->moveItem(from, to, error);
}

bool FaultyFileSystem::removeItem(const std::string& path, std::error_code& error) {
    if (auto failure = enter(FileSystemCall::removeItem, path)) {
        error = failure;
        return false;
    }
    return inner_->removeItem(path, error);
}

bool FaultyFileSystem::setPermissions(const std::string& path, std::uint32_t permissions, std::error_code& error) {
    if (auto failure = enter(FileSystemCall::setPermissions, path)) {
        error = failure;
        return false;
    }
    return inner_->setPermissions(path, permissions, error);
}

bool FaultyFileSystem::isPackage(const std::string& path) const {
    if (enter(FileSystemCall::isPackage, path)) return false;
    return inner_->isPackage(path);
}

} // namespace unbulk::testing
