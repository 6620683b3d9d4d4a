#pragma once

#include <cerrno>
#include <string_view>
#include <system_error>
#include <utility>

#include <dirent.h>
#include <unistd.h>

#include "Platform/posix/Descriptors.hpp"

namespace unbulk::posix {

// The call that reads a directory's entries, for its errors.
#if defined(__linux__)
inline constexpr std::string_view readDirectoryCall = "getdents64";
#else
inline constexpr std::string_view readDirectoryCall = "readdir";
#endif

// An open directory, read whole in one pass. On Linux the entries come
// straight from getdents64 into a buffer on the stack: a stream set up with
// fdopendir costs an fstat and two fcntl calls, as much as reading a small
// directory, and a tree of small directories has many. Elsewhere the
// directory is read through fdopendir and readdir. Owns its descriptor.
class DirectoryStream {
public:
    DirectoryStream() = default;
    explicit DirectoryStream(int fd) : fd_(fd) {}
    ~DirectoryStream() { close(); }
    DirectoryStream(DirectoryStream&& other) noexcept
        : fd_(std::exchange(other.fd_, -1)), dir_(std::exchange(other.dir_, nullptr)) {}
    DirectoryStream& operator=(DirectoryStream&& other) noexcept {
        if (this != &other) {
            close();
            fd_ = std::exchange(other.fd_, -1);
            dir_ = std::exchange(other.dir_, nullptr);
        }
        return *this;
    }
    DirectoryStream(const DirectoryStream&) = delete;
    DirectoryStream& operator=(const DirectoryStream&) = delete;

    bool isOpen() const { return fd_ >= 0; }
    int fd() const { return fd_; }

    void close() {
        if (dir_ != nullptr) {
            ::closedir(dir_); // closes fd_ as well
        } else if (fd_ >= 0) {
            ::close(fd_);
        }
        dir_ = nullptr;
        fd_ = -1;
    }

    // Shows `visit(name, type)` each entry but "." and "..", with the type
    // the directory gives it (DT_UNKNOWN where it gives none). Reads once:
    // the directory's position is not rewound. Answers the error that ended
    // the reading early, or none; what was read before it has been shown.
    template <class Visit> std::error_code readAll(Visit&& visit);

private:
    int fd_ = -1;
    DIR* dir_ = nullptr; // the stream that reads fd_, where one is used
};

template <class Visit> std::error_code DirectoryStream::readAll(Visit&& visit) {
#if defined(__linux__)
    alignas(8) char buffer[32768];
    for (;;) {
        const ssize_t length = ::getdents64(fd_, buffer, sizeof buffer);
        if (length < 0) {
            if (errno == EINTR) continue;
            return lastError();
        }
        if (length == 0) return {};
        for (ssize_t at = 0; at < length;) {
            const auto* entry = reinterpret_cast<const struct dirent64*>(buffer + at);
            at += entry->d_reclen;
            if (!isDotOrDotDot(entry->d_name)) visit(static_cast<const char*>(entry->d_name), entry->d_type);
        }
    }
#else
    if (dir_ == nullptr) {
        dir_ = ::fdopendir(fd_);
        if (dir_ == nullptr) return lastError();
    }
    for (;;) {
        errno = 0;
        const struct dirent* entry = ::readdir(dir_);
        if (entry == nullptr) return errno != 0 ? lastError() : std::error_code{};
        if (!isDotOrDotDot(entry->d_name)) visit(static_cast<const char*>(entry->d_name), entry->d_type);
    }
#endif
}

} // namespace unbulk::posix
