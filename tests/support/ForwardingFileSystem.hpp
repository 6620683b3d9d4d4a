#pragma once

#include <cstddef>
#include <memory>

#include "Platform/FileSystem.hpp"
#include "Platform/TreeMeasure.hpp"
#include "Support/Paths.hpp"

namespace unbulk::testing {

// The calls of FileSystem, one per virtual function.
enum class FileSystemCall {
    status,
    linkStatus,
    contentsOfDirectory,
    walk,
    destinationOfSymbolicLink,
    resolvingSymlinks,
    readFile,
    writeFileAtomically,
    createDirectory,
    removeItem,
    appendUnderLock,
    isPackage,
    renameItem,
    openLocked,
    openDirectory,
};

inline constexpr std::size_t fileSystemCallCount = 15;

// Forwards every call to another file system (the real one by default), so
// that a test double derives from it and overrides only what it changes.
// Every call first asks interception() about itself and its path (a
// rename's source); an error there fails the call as the platform would:
// a call with an error sets it (with no system call named) and answers its
// failure value (nothing, an empty list, false), a walk reports its root
// through onError and visits nothing, openDirectory answers nothing (for an
// entry of a directory it opened as well: openEntry asks interception()
// about the entry's path as openDirectory), isPackage answers false and
// resolvingSymlinks answers the path standardised, as if nothing along it
// could be examined.
class ForwardingFileSystem : public FileSystem {
public:
    explicit ForwardingFileSystem(std::shared_ptr<FileSystem> inner = makeDefaultFileSystem())
        : inner_(std::move(inner)) {}

    std::optional<FileStatus> status(const std::string& path, PlatformError& error) const override {
        if (intercepted(FileSystemCall::status, path, error)) return std::nullopt;
        return inner_->status(path, error);
    }
    std::optional<FileStatus> linkStatus(const std::string& path, PlatformError& error) const override {
        if (intercepted(FileSystemCall::linkStatus, path, error)) return std::nullopt;
        return inner_->linkStatus(path, error);
    }
    std::vector<DirectoryEntry> contentsOfDirectory(const std::string& path, ListOptions options,
                                                    PlatformError& error) const override {
        if (intercepted(FileSystemCall::contentsOfDirectory, path, error)) return {};
        return inner_->contentsOfDirectory(path, options, error);
    }
    void walk(const std::string& root, const WalkOptions& options, const WalkCallbacks& callbacks) const override {
        if (const std::error_code failure = interception(FileSystemCall::walk, root)) {
            if (callbacks.onError) callbacks.onError(root, failure, WalkFailure::directory);
            return;
        }
        inner_->walk(root, options, callbacks);
    }
    std::unique_ptr<OpenDirectory> openDirectory(const std::string& path, PlatformError& error) const override {
        if (intercepted(FileSystemCall::openDirectory, path, error)) return nullptr;
        return forwarded(inner_->openDirectory(path, error));
    }
    // The serial definition over this object's walk, so that a double that
    // changes walks changes what measures see too.
    TreeMeasure measureTree(const std::string& root, const TreeMeasureOptions& options) const override {
        return measureTreeSerially(*this, root, options);
    }
    std::optional<std::string> destinationOfSymbolicLink(const std::string& path,
                                                         PlatformError& error) const override {
        if (intercepted(FileSystemCall::destinationOfSymbolicLink, path, error)) return std::nullopt;
        return inner_->destinationOfSymbolicLink(path, error);
    }
    std::string resolvingSymlinks(const std::string& path) const override {
        if (interception(FileSystemCall::resolvingSymlinks, path)) return paths::standardize(path);
        return inner_->resolvingSymlinks(path);
    }
    std::optional<std::string> readFile(const std::string& path, std::size_t maxBytes,
                                        PlatformError& error) const override {
        if (intercepted(FileSystemCall::readFile, path, error)) return std::nullopt;
        return inner_->readFile(path, maxBytes, error);
    }
    bool writeFileAtomically(const std::string& path, std::string_view contents, std::uint32_t permissions,
                             PlatformError& error) override {
        return !intercepted(FileSystemCall::writeFileAtomically, path, error) &&
               inner_->writeFileAtomically(path, contents, permissions, error);
    }
    bool renameItem(const std::string& from, const std::string& to, PlatformError& error) override {
        return !intercepted(FileSystemCall::renameItem, from, error) && inner_->renameItem(from, to, error);
    }
    bool createDirectory(const std::string& path, std::uint32_t permissions, bool withIntermediates,
                         PlatformError& error) override {
        return !intercepted(FileSystemCall::createDirectory, path, error) &&
               inner_->createDirectory(path, permissions, withIntermediates, error);
    }
    bool removeItem(const std::string& path, const Identity& expected, const AnchorCheck& anchorCheck,
                    const RemovalCheck& check, RemovalReport& report, PlatformError& error) override {
        return !intercepted(FileSystemCall::removeItem, path, error) &&
               inner_->removeItem(path, expected, anchorCheck, check, report, error);
    }
    bool appendUnderLock(const std::string& path, std::uint32_t permissions, std::chrono::milliseconds lockTimeout,
                         const AppendComposer& compose,
                         PlatformError& error) override {
        return !intercepted(FileSystemCall::appendUnderLock, path, error) &&
               inner_->appendUnderLock(path, permissions, lockTimeout, compose, error);
    }
    std::unique_ptr<LockedFile> openLocked(const std::string& path, LockedFileMode mode, std::uint32_t permissions,
                                           PlatformError& error) override {
        if (intercepted(FileSystemCall::openLocked, path, error)) return nullptr;
        return inner_->openLocked(path, mode, permissions, error);
    }
    bool isPackage(const std::string& path) const override {
        return !interception(FileSystemCall::isPackage, path) && inner_->isPackage(path);
    }

protected:
    // Asked once by every call before it goes on: an error fails the call.
    virtual std::error_code interception(FileSystemCall, const std::string&) const { return {}; }

    std::shared_ptr<FileSystem> inner_;

private:
    // A directory the inner file system opened; its entries are opened
    // through interception() as openDirectory's paths are.
    class Directory final : public OpenDirectory {
    public:
        Directory(const ForwardingFileSystem& owner, std::unique_ptr<OpenDirectory> inner)
            : owner_(owner), inner_(std::move(inner)) {}
        const FileStatus& status() const override { return inner_->status(); }
        std::error_code read(WalkStatus wanted, bool skipHiddenFiles,
                             const std::function<bool(const DirectoryItem&)>& visit) override {
            return inner_->read(wanted, skipHiddenFiles, visit);
        }
        std::unique_ptr<OpenDirectory> openEntry(std::string_view name, const std::string& path,
                                                 PlatformError& error) const override {
            if (owner_.intercepted(FileSystemCall::openDirectory, path, error)) return nullptr;
            return owner_.forwarded(inner_->openEntry(name, path, error));
        }

    private:
        const ForwardingFileSystem& owner_;
        std::unique_ptr<OpenDirectory> inner_;
    };

    std::unique_ptr<OpenDirectory> forwarded(std::unique_ptr<OpenDirectory> inner) const {
        if (!inner) return nullptr;
        return std::make_unique<Directory>(*this, std::move(inner));
    }
    bool intercepted(FileSystemCall call, const std::string& path, PlatformError& error) const {
        const std::error_code failure = interception(call, path);
        if (failure) error = PlatformError::of(failure);
        return static_cast<bool>(failure);
    }
};

} // namespace unbulk::testing
