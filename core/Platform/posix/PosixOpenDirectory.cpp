#include "Platform/posix/PosixOpenDirectory.hpp"

#include <cerrno>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "Platform/posix/Descriptors.hpp"
#include "Platform/posix/DirectoryStream.hpp"
#include "Platform/posix/EntryKinds.hpp"
#include "Platform/posix/PosixFileSystem.hpp"

namespace unbulk::posix {

namespace {

// An open directory and its fstat. Its entries are examined, and opened,
// relative to its descriptor, from as many threads at once as ask.
class PosixOpenDirectory final : public OpenDirectory {
public:
    PosixOpenDirectory(int fd, const FileStatus& status) : stream_(fd), status_(status) {}

    const FileStatus& status() const override { return status_; }

    std::error_code read(WalkStatus wanted, bool skipHiddenFiles,
                         const std::function<bool(const DirectoryItem&)>& visit) override {
        const int fd = stream_.fd();
        bool ended = false;
        return stream_.readAll([&](const char* name, unsigned char type) {
            if (ended || (skipHiddenFiles && name[0] == '.')) return;
            FileKind kind = kindFromDirent(type);
            FileStatus examined;
            const FileStatus* status = nullptr;
            if (needsStatus(wanted, type)) {
                struct stat st;
                // Gone since it was listed, or not to be examined: left out.
                if (::fstatat(fd, name, &st, AT_SYMLINK_NOFOLLOW) != 0) return;
                examined = fileStatusOf(st);
                kind = examined.kind;
                status = &examined;
            }
            ended = !visit(DirectoryItem{name, kind, status});
        });
    }

    std::unique_ptr<OpenDirectory> openEntry(std::string_view name, const std::string& path,
                                             PlatformError& error) const override {
        return openDirectoryAt(stream_.fd(), std::string(name), "openat", path, error);
    }

private:
    DirectoryStream stream_;
    FileStatus status_;
};

} // namespace

std::unique_ptr<OpenDirectory> openDirectoryAt(int directoryFd, const std::string& name, std::string_view call,
                                               const std::string& path, PlatformError& error) {
    if (containsNul(name)) {
        error = failedWith(EINVAL, call, path);
        return nullptr;
    }
    const int fd = ::openat(directoryFd, name.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) {
        error = failed(call, path);
        return nullptr;
    }
    struct stat st;
    if (::fstat(fd, &st) != 0) {
        error = failed("fstat", path);
        ::close(fd);
        return nullptr;
    }
    return std::make_unique<PosixOpenDirectory>(fd, fileStatusOf(st));
}

} // namespace unbulk::posix
