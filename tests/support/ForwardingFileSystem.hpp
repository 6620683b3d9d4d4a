#pragma once

#include <memory>

#include "Platform/FileSystem.hpp"
#include "Platform/TreeMeasure.hpp"

namespace unbulk::testing {

// Forwards every call to another file system (the real one by default), so
// that a test double derives from it and overrides only what it changes.
class ForwardingFileSystem : public FileSystem {
public:
    explicit ForwardingFileSystem(std::shared_ptr<FileSystem> inner = makeDefaultFileSystem())
        : inner_(std::move(inner)) {}

    std::optional<FileStatus> status(const std::string& path, std::error_code& error) const override {
        return inner_->status(path, error);
    }
    std::optional<FileStatus> linkStatus(const std::string& path, std::error_code& error) const override {
        return inner_->linkStatus(path, error);
    }
    std::vector<DirectoryEntry> contentsOfDirectory(const std::string& path, ListOptions options,
                                                    std::error_code& error) const override {
        return inner_->contentsOfDirectory(path, options, error);
    }
    void walk(const std::string& root, const WalkOptions& options, const WalkCallbacks& callbacks) const override {
        inner_->walk(root, options, callbacks);
    }
    // The serial definition over this object's walk, so that a double that
    // changes walks changes what measures see too.
    TreeMeasure measureTree(const std::string& root, const TreeMeasureOptions& options) const override {
        return measureTreeSerially(*this, root, options);
    }
    std::optional<std::string> destinationOfSymbolicLink(const std::string& path,
                                                         std::error_code& error) const override {
        return inner_->destinationOfSymbolicLink(path, error);
    }
    std::string resolvingSymlinks(const std::string& path) const override { return inner_->resolvingSymlinks(path); }
    std::optional<std::string> readFile(const std::string& path, std::size_t maxBytes,
                                        std::error_code& error) const override {
        return inner_->readFile(path, maxBytes, error);
    }
    bool writeFileAtomically(const std::string& path, std::string_view contents, std::uint32_t permissions,
                             std::error_code& error) override {
        return inner_->writeFileAtomically(path, contents, permissions, error);
    }
    bool renameItem(const std::string& from, const std::string& to, std::error_code& error) override {
        return inner_->renameItem(from, to, error);
    }
    bool createDirectory(const std::string& path, std::uint32_t permissions, bool withIntermediates,
                         std::error_code& error) override {
        return inner_->createDirectory(path, permissions, withIntermediates, error);
    }
    bool removeItem(const std::string& path, const Identity& expected, const AnchorCheck& anchorCheck,
                    const RemovalCheck& check, RemovalReport& report, std::error_code& error) override {
        return inner_->removeItem(path, expected, anchorCheck, check, report, error);
    }
    bool appendUnderLock(const std::string& path, std::uint32_t permissions, std::chrono::milliseconds lockTimeout,
                         const AppendComposer& compose,
                         std::error_code& error) override {
        return inner_->appendUnderLock(path, permissions, lockTimeout, compose, error);
    }
    std::unique_ptr<LockedFile> openLocked(const std::string& path, LockedFileMode mode, std::uint32_t permissions,
                                           std::error_code& error) override {
        return inner_->openLocked(path, mode, permissions, error);
    }
    bool isPackage(const std::string& path) const override { return inner_->isPackage(path); }

protected:
    std::shared_ptr<FileSystem> inner_;
};

} // namespace unbulk::testing
