#include "Platform/posix/TreeRemoval.hpp"

#include <cerrno>
#include <optional>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "Platform/posix/PosixFileSystem.hpp"
#include "Platform/posix/TreeWalker.hpp"

namespace unbulk::posix {
namespace {

// The mount a directory entry belongs to, where Linux says (statx, 5.8 and
// later): a bind mount of a folder of the same file system has the same
// device, and only this tells it apart. Nothing where it cannot be had.
std::optional<std::uint64_t> mountIdentifier([[maybe_unused]] int directoryFd, [[maybe_unused]] const char* name) {
#if defined(__linux__) && defined(STATX_MNT_ID)
    struct statx info {};
    if (::statx(directoryFd, name, AT_SYMLINK_NOFOLLOW | AT_NO_AUTOMOUNT, STATX_MNT_ID, &info) == 0 &&
        (info.stx_mask & STATX_MNT_ID) != 0) {
        return info.stx_mnt_id;
    }
#endif
    return std::nullopt;
}

void countRemoved(RemovalReport& report, const struct stat& st) {
    if (!S_ISREG(st.st_mode)) return;
    report.filesRemoved += 1;
    report.allocatedBytesRemoved += static_cast<std::int64_t>(st.st_blocks) * 512;
    report.logicalBytesRemoved += static_cast<std::int64_t>(st.st_size);
}

// One directory removed with all it holds, below an item already anchored:
// the walk's visits remove files, its leaves remove emptied directories, and
// the first failure stops it and is what the removal reports.
class TreeRemoval {
public:
    TreeRemoval(const RemovalCheck& check, std::optional<std::uint64_t> rootMount, RemovalReport& report,
                PlatformError& error)
        : check_(check), rootMount_(rootMount), report_(report), error_(error) {}

    bool run(int rootFd, const std::string& rootPath) {
        TreeWalker walker(TreeWalkerOptions{.status = WalkStatus::all});
        TreeWalkerHooks hooks;
        hooks.visit = [this](const TreeEntry& entry) { return visit(entry); };
        hooks.leave = [this](int parentFd, const char* name, const std::string& path) {
            return leave(parentFd, name, path);
        };
        // The walk tells where it failed, not which of its calls did.
        hooks.onError = [this](const std::string& path, std::error_code failure, WalkFailure) {
            fail(path, PlatformError::of(failure));
        };
        walker.run(rootFd, rootPath, hooks);
        return !error_;
    }

    void fail(const std::string& path, PlatformError failure) {
        if (error_) return;
        error_ = std::move(failure);
        report_.failedPath = path;
    }

private:
    WalkAction visit(const TreeEntry& entry) {
        const FileStatus status = fileStatusOf(*entry.status);
        bool leaveInPlace = false;
        if (check_) {
            if (const std::error_code refused =
                    check_(WalkEntry{entry.path, entry.name, entry.kind, &status, entry.depth}, leaveInPlace)) {
                fail(entry.path, PlatformError::of(refused));
                return WalkAction::stop;
            }
        }
        if (entry.kind == FileKind::directory) {
            const std::optional<std::uint64_t> mount =
                rootMount_ ? mountIdentifier(entry.directoryFd, entry.name) : std::nullopt;
            if (leaveInPlace || (mount && *mount != *rootMount_)) {
                report_.otherFileSystemPaths.push_back(entry.path);
                return WalkAction::skipDescendants;
            }
            return WalkAction::proceed;
        }
        if (::unlinkat(entry.directoryFd, entry.name, 0) != 0) {
            fail(entry.path, failed("unlinkat", entry.path));
            return WalkAction::stop;
        }
        countRemoved(report_, *entry.status);
        return WalkAction::proceed;
    }

    bool leave(int parentFd, const char* name, const std::string& path) {
        if (::unlinkat(parentFd, name, AT_REMOVEDIR) == 0) return true;
        // Not empty because of what another file system holds: expected.
        if ((errno == ENOTEMPTY || errno == EEXIST) && !report_.otherFileSystemPaths.empty()) return true;
        fail(path, failed("unlinkat", path));
        return false;
    }

    const RemovalCheck& check_;
    std::optional<std::uint64_t> rootMount_;
    RemovalReport& report_;
    PlatformError& error_;
};

bool removeDirectory(const AnchoredItem& item, const std::string& path, const RemovalCheck& check,
                     RemovalReport& report, PlatformError& error) {
    const int parent = item.parent.get();
    FdGuard root(::openat(parent, item.name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (root.get() < 0) {
        error = failed("openat", path);
        report.failedPath = path;
        return false;
    }
    struct stat opened {};
    if (::fstat(root.get(), &opened) != 0 || opened.st_dev != item.status.st_dev ||
        opened.st_ino != item.status.st_ino) {
        error = PlatformError::of(changedSinceCheckedError());
        return false;
    }
    TreeRemoval removal(check, mountIdentifier(parent, item.name.c_str()), report, error);
    // The walker owns the descriptor from here on.
    if (!removal.run(root.release(), path) || !report.otherFileSystemPaths.empty()) return false;
    if (::unlinkat(parent, item.name.c_str(), AT_REMOVEDIR) != 0) {
        removal.fail(path, failed("unlinkat", path));
        return false;
    }
    return true;
}

} // namespace

bool removeAnchoredItem(const AnchoredItem& item, const std::string& path, const RemovalCheck& check,
                        RemovalReport& report, PlatformError& error) {
    if (S_ISDIR(item.status.st_mode)) return removeDirectory(item, path, check, report, error);
    if (::unlinkat(item.parent.get(), item.name.c_str(), 0) != 0) {
        error = failed("unlinkat", path);
        report.failedPath = path;
        return false;
    }
    countRemoved(report, item.status);
    return true;
}

} // namespace unbulk::posix
