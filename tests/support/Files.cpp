#include "support/Files.hpp"

#include <filesystem>
#include <fstream>
#include <iterator>

#include <sys/stat.h>

namespace unbulk::testing {

DiskUsage diskUsage(const std::string& path) {
    DiskUsage usage;
    const auto add = [&](const std::filesystem::path& file) {
        struct stat st {};
        if (::lstat(file.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) return;
        usage.logical += st.st_size;
        usage.allocated += std::int64_t{st.st_blocks} * 512;
        ++usage.files;
    };
    add(path);
    if (std::filesystem::is_directory(std::filesystem::symlink_status(path))) {
        for (const auto& entry : std::filesystem::recursive_directory_iterator(path)) add(entry.path());
    }
    return usage;
}

std::string readAll(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

Identity identityOf(const std::string& path) {
    PlatformError error;
    const auto status = makeDefaultFileSystem()->linkStatus(path, error);
    return status ? status->identity() : Identity{};
}

} // namespace unbulk::testing
