#include "support/DeepTree.hpp"

#include <cerrno>
#include <stdexcept>
#include <string>
#include <system_error>

#include <fcntl.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

namespace unbulk::testing {
namespace {

[[noreturn]] void fail(const char* what) { throw std::system_error(errno, std::generic_category(), what); }

// Makes the directory `name` in `parent` and opens it.
int makeDirectoryAt(int parent, const char* name) {
    if (::mkdirat(parent, name, 0700) != 0) fail("mkdirat");
    const int directory = ::openat(parent, name, O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (directory < 0) fail("openat");
    return directory;
}

void writeFileAt(int directory, const char* name, const std::string& contents) {
    const int file = ::openat(directory, name, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
    if (file < 0) fail("create file");
    if (::write(file, contents.data(), contents.size()) != static_cast<ssize_t>(contents.size())) fail("write");
    ::close(file);
}

// The chain of "d" below root, relative to descriptors all the way: each
// level first gets its leaves (a directory holding one file "f"), then the
// next "d", which holds a file "f" itself on every `fileEvery`-th level.
std::int64_t makeChain(const std::string& root, int depth, int fileEvery, int leavesPerLevel, std::int64_t fileSize) {
    int current = ::open(root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (current < 0) fail("open root");
    const std::string contents(static_cast<std::size_t>(fileSize), 'x');
    std::int64_t files = 0;
    for (int level = 1; level <= depth; ++level) {
        for (int leaf = 0; leaf < leavesPerLevel; ++leaf) {
            const std::string name = "l" + std::to_string(level * 7919 % 1000) + "-" + std::to_string(leaf);
            const int directory = makeDirectoryAt(current, name.c_str());
            writeFileAt(directory, "f", contents);
            ::close(directory);
            ++files;
        }
        const int next = makeDirectoryAt(current, "d");
        ::close(current);
        current = next;
        if (fileEvery > 0 && level % fileEvery == 0) {
            writeFileAt(current, "f", contents);
            ++files;
        }
    }
    ::close(current);
    return files;
}

} // namespace

std::int64_t makeDeepChain(const std::string& root, int depth, int fileEvery, std::int64_t fileSize) {
    return makeChain(root, depth, fileEvery, 0, fileSize);
}

std::int64_t makeComb(const std::string& root, int depth, int leavesPerLevel, std::int64_t fileSize) {
    return makeChain(root, depth, 0, leavesPerLevel, fileSize);
}

DescriptorLimit::DescriptorLimit(std::uint64_t limit) {
    struct rlimit current {};
    if (::getrlimit(RLIMIT_NOFILE, &current) != 0) fail("getrlimit");
    saved_ = current.rlim_cur;
    current.rlim_cur = static_cast<rlim_t>(limit);
    if (::setrlimit(RLIMIT_NOFILE, &current) != 0) fail("setrlimit");
}

DescriptorLimit::~DescriptorLimit() {
    struct rlimit current {};
    if (::getrlimit(RLIMIT_NOFILE, &current) == 0) {
        current.rlim_cur = static_cast<rlim_t>(saved_);
        ::setrlimit(RLIMIT_NOFILE, &current);
    }
}

} // namespace unbulk::testing
