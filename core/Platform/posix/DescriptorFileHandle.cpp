#include <cerrno>

#include <unistd.h>

#include "Platform/FileHandle.hpp"
#include "Platform/posix/Descriptors.hpp"

namespace unbulk {
namespace {

// A borrowed descriptor: reads retry on EINTR, writes until all is out.
class DescriptorFileHandle final : public FileHandle {
public:
    explicit DescriptorFileHandle(int fd) : fd_(fd) {}

    std::size_t read(char* buffer, std::size_t size) override {
        for (;;) {
            const ssize_t got = ::read(fd_, buffer, size);
            if (got >= 0) return static_cast<std::size_t>(got);
            if (errno != EINTR) return 0;
        }
    }

    bool write(std::string_view bytes) override {
        PlatformError error;
        return posix::writeAll(fd_, bytes, "", error);
    }

private:
    int fd_;
};

} // namespace

std::unique_ptr<FileHandle> makeStandardInput() { return std::make_unique<DescriptorFileHandle>(STDIN_FILENO); }
std::unique_ptr<FileHandle> makeStandardOutput() { return std::make_unique<DescriptorFileHandle>(STDOUT_FILENO); }
bool standardErrorIsTerminal() { return ::isatty(STDERR_FILENO) == 1; }

std::unique_ptr<FileHandle> makeStandardError() { return std::make_unique<DescriptorFileHandle>(STDERR_FILENO); }

} // namespace unbulk
