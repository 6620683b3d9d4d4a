#include "Platform/posix/AnchoredDirectory.hpp"

#include <fcntl.h>
#include <sys/stat.h>

#if defined(__linux__)
#include <sys/syscall.h>
#if __has_include(<linux/openat2.h>)
#include <linux/openat2.h>
#endif
#endif

#include "Platform/posix/PosixFileSystem.hpp"
#include "Support/Paths.hpp"

namespace unbulk::posix {
namespace {

constexpr int directoryFlags = O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC;

#if defined(__linux__) && defined(SYS_openat2) && defined(RESOLVE_NO_SYMLINKS)
// One call for the whole path; ENOSYS on kernels before 5.6, and EPERM or
// EINVAL where a seccomp filter refuses it, send us to the walk by component.
int openWithKernelResolution(const std::string& path, bool& unsupported) {
    struct open_how how {};
    how.flags = static_cast<unsigned long long>(directoryFlags);
    how.resolve = RESOLVE_NO_SYMLINKS | RESOLVE_NO_MAGICLINKS;
    const long fd = ::syscall(SYS_openat2, AT_FDCWD, path.c_str(), &how, sizeof how);
    unsupported = fd < 0 && (errno == ENOSYS || errno == EPERM || errno == EINVAL);
    return static_cast<int>(fd);
}
#endif

} // namespace

FdGuard openDirectoryWithoutLinks(const std::string& absolutePath, PlatformError& error,
                                  std::vector<AnchoredStep>* steps) {
    if (!paths::isAbsolute(absolutePath) || containsNul(absolutePath)) {
        error = failedWith(EINVAL, "open", absolutePath);
        return FdGuard();
    }
#if defined(__linux__) && defined(SYS_openat2) && defined(RESOLVE_NO_SYMLINKS)
    // One call cannot tell what it passed through: the way is walked by
    // component when it is to be reported.
    if (steps == nullptr) {
        bool unsupported = false;
        const int fd = openWithKernelResolution(absolutePath, unsupported);
        if (fd >= 0) return FdGuard(fd);
        if (!unsupported) {
            error = failed("openat2", absolutePath);
            return FdGuard();
        }
    }
#endif
    std::string walked = "/";
    auto record = [&](int fd) {
        if (steps == nullptr) return true;
        struct stat st {};
        if (::fstat(fd, &st) != 0) {
            error = failed("fstat", walked);
            return false;
        }
        steps->push_back(AnchoredStep{walked, fileStatusOf(st)});
        return true;
    };
    FdGuard current(::open("/", directoryFlags));
    if (current.get() < 0) {
        error = failed("open", "/");
        return FdGuard();
    }
    if (!record(current.get())) return FdGuard();
    for (const std::string& component : paths::components(absolutePath)) {
        if (component == "." ) continue;
        if (component == "..") {
            // ".." is never a link, but it would leave the path that was
            // checked; a standardised path has none.
            error = failedWith(EINVAL, "openat", paths::appending(walked, component));
            return FdGuard();
        }
        FdGuard next(::openat(current.get(), component.c_str(), directoryFlags));
        if (next.get() < 0) {
            error = failed("openat", paths::appending(walked, component));
            return FdGuard();
        }
        current = std::move(next);
        walked = paths::appending(walked, component);
        if (!record(current.get())) return FdGuard();
    }
    return current;
}

std::optional<AnchoredItem> openAnchoredItem(const std::string& path, const Identity& expected,
                                             const AnchorCheck& anchorCheck, std::string_view action,
                                             PlatformError& error) {
    AnchoredItem item;
    item.name = paths::lastComponent(path);
    if (!paths::isAbsolute(path) || containsNul(path) || item.name.empty() || item.name == "/" ||
        item.name == "." || item.name == "..") {
        error = failedWith(EINVAL, action, path);
        return std::nullopt;
    }
    std::vector<AnchoredStep> steps;
    item.parent = openDirectoryWithoutLinks(paths::deletingLastComponent(path), error, anchorCheck ? &steps : nullptr);
    if (item.parent.get() < 0) {
        // A directory on the way that is a link now was not one when the
        // path was resolved and checked.
        if (error.value() == ELOOP || error.value() == ENOTDIR) error = PlatformError::of(changedSinceCheckedError());
        return std::nullopt;
    }
    if (::fstatat(item.parent.get(), item.name.c_str(), &item.status, AT_SYMLINK_NOFOLLOW) != 0) {
        error = failed("fstatat", path);
        return std::nullopt;
    }
    if (Identity{static_cast<std::uint64_t>(item.status.st_dev), static_cast<std::uint64_t>(item.status.st_ino)} !=
        expected) {
        error = PlatformError::of(changedSinceCheckedError());
        return std::nullopt;
    }
    if (anchorCheck) {
        steps.push_back(AnchoredStep{path, fileStatusOf(item.status)});
        if (const std::error_code refused = anchorCheck(steps)) {
            error = PlatformError::of(refused);
            return std::nullopt;
        }
    }
    return item;
}

} // namespace unbulk::posix
