#pragma once

// What the POSIX implementations share: descriptors closed on every way out,
// errno as an error_code or as a PlatformError naming the call and the path,
// and whole writes.

#include <cerrno>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <stdio.h> // renameat, renameat2, renameatx_np
#include <unistd.h>

#include "Platform/PlatformError.hpp"

namespace unbulk::posix {

inline std::error_code lastError() { return {errno, std::generic_category()}; }
inline std::error_code errorOf(int value) { return {value, std::generic_category()}; }

// The call that just failed, with errno and the path(s) it was given.
inline PlatformError failed(std::string_view call, std::string path, std::string otherPath = {}) {
    return PlatformError::systemCall(call, errno, std::move(path), std::move(otherPath));
}
inline PlatformError failedWith(int errorNumber, std::string_view call, std::string path) {
    return PlatformError::systemCall(call, errorNumber, std::move(path));
}

// Closes a descriptor on every way out.
class FdGuard {
public:
    explicit FdGuard(int fd = -1) : fd_(fd) {}
    ~FdGuard() { reset(); }
    FdGuard(FdGuard&& other) noexcept : fd_(other.release()) {}
    FdGuard& operator=(FdGuard&& other) noexcept {
        if (this != &other) reset(other.release());
        return *this;
    }
    FdGuard(const FdGuard&) = delete;
    FdGuard& operator=(const FdGuard&) = delete;

    int get() const { return fd_; }
    int release() { return std::exchange(fd_, -1); }
    void reset(int fd = -1) {
        if (fd_ >= 0) ::close(fd_);
        fd_ = fd;
    }

private:
    int fd_;
};

// The name of the call behind renameWithoutReplacing, for its errors.
#if defined(__APPLE__)
inline constexpr std::string_view renameWithoutReplacingCall = "renameatx_np";
#else
inline constexpr std::string_view renameWithoutReplacingCall = "renameat2";
#endif

// renameat that fails with EEXIST instead of replacing what is at the
// destination (renameat2 RENAME_NOREPLACE on Linux, renameatx_np RENAME_EXCL
// on the Mac). Where a Linux file system cannot do that atomically, a plain
// renameat is the fallback; callers reserve or check the name first.
inline int renameWithoutReplacing(int fromDirectory, const char* fromName, int toDirectory, const char* toName) {
#if defined(__APPLE__)
    return ::renameatx_np(fromDirectory, fromName, toDirectory, toName, RENAME_EXCL);
#else
#if defined(RENAME_NOREPLACE)
    if (::renameat2(fromDirectory, fromName, toDirectory, toName, RENAME_NOREPLACE) == 0) return 0;
    if (errno != EINVAL && errno != ENOSYS) return -1;
#endif
    return ::renameat(fromDirectory, fromName, toDirectory, toName);
#endif
}

// Writes all of `contents` to `fd` (the file at `path`), going on after short
// writes and interruptions.
inline bool writeAll(int fd, std::string_view contents, const std::string& path, PlatformError& error) {
    while (!contents.empty()) {
        const ssize_t written = ::write(fd, contents.data(), contents.size());
        if (written < 0) {
            if (errno == EINTR) continue;
            error = failed("write", path);
            return false;
        }
        contents.remove_prefix(static_cast<std::size_t>(written));
    }
    return true;
}

// The kernel reads a path up to its first NUL: a path with one inside would
// name a place the caller never named, so it is refused with EINVAL.
inline bool containsNul(std::string_view path) { return path.find('\0') != std::string_view::npos; }

inline bool isDotOrDotDot(const char* name) {
    return name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'));
}

} // namespace unbulk::posix
