#pragma once

#include <sys/stat.h>

#include "Platform/FileSystem.hpp"

namespace unbulk {

// The POSIX file system: directory reads with their entry types, lstat
// relative to the parent's descriptor, walks that neither recurse nor follow
// links, and removal relative to descriptors opened without links.
class PosixFileSystem final : public FileSystem {
public:
    std::optional<FileStatus> status(const std::string& path, PlatformError& error) const override;
    std::optional<FileStatus> linkStatus(const std::string& path, PlatformError& error) const override;
    std::vector<DirectoryEntry> contentsOfDirectory(const std::string& path, ListOptions options,
                                                    PlatformError& error) const override;
    void walk(const std::string& root, const WalkOptions& options, const WalkCallbacks& callbacks) const override;
    std::unique_ptr<OpenDirectory> openDirectory(const std::string& path, PlatformError& error) const override;
    TreeMeasure measureTree(const std::string& root, const TreeMeasureOptions& options) const override;
    std::optional<std::string> destinationOfSymbolicLink(const std::string& path,
                                                         PlatformError& error) const override;
    std::string resolvingSymlinks(const std::string& path) const override;
    std::optional<std::string> readFile(const std::string& path, std::size_t maxBytes,
                                        PlatformError& error) const override;
    bool writeFileAtomically(const std::string& path, std::string_view contents, std::uint32_t permissions,
                             PlatformError& error) override;
    bool renameItem(const std::string& from, const std::string& to, PlatformError& error) override;
    bool createDirectory(const std::string& path, std::uint32_t permissions, bool withIntermediates,
                         PlatformError& error) override;
    bool removeItem(const std::string& path, const Identity& expected, const AnchorCheck& anchorCheck,
                    const RemovalCheck& check, RemovalReport& report, PlatformError& error) override;
    bool appendUnderLock(const std::string& path, std::uint32_t permissions, std::chrono::milliseconds lockTimeout,
                         const AppendComposer& compose,
                         PlatformError& error) override;
    std::unique_ptr<LockedFile> openLocked(const std::string& path, LockedFileMode mode, std::uint32_t permissions,
                                           PlatformError& error) override;
    bool isPackage(const std::string& path) const override;
};

namespace posix {
// The status of an lstat or fstat as the core sees it.
FileStatus fileStatusOf(const struct stat& st);
} // namespace posix

// Extensions of directories that macOS shows as single files.
bool isPackageExtension(std::string_view extension);

} // namespace unbulk
