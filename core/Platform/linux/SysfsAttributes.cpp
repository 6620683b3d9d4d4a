#include "Platform/linux/SysfsAttributes.hpp"

#include <algorithm>
#include <charconv>
#include <cerrno>
#include <filesystem>
#include <system_error>

#include <fcntl.h>
#include <unistd.h>

namespace unbulk::sysfs {
namespace {

constexpr const char* whiteSpace = " \t\r\n";
// Attribute files are small; a bound keeps a stray path from reading much.
constexpr std::size_t maxAttributeSize = 4096;

} // namespace

std::optional<std::string> readAttribute(const std::string& path) {
    const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) return std::nullopt;
    std::string text(maxAttributeSize, '\0');
    std::size_t length = 0;
    bool failed = false;
    // Some attributes (a sensor that is off) fail the read itself, with EIO or ENODATA.
    while (length < text.size()) {
        const ssize_t count = ::read(fd, text.data() + length, text.size() - length);
        if (count == 0) break;
        if (count < 0) {
            if (errno == EINTR) continue;
            failed = true;
            break;
        }
        length += static_cast<std::size_t>(count);
    }
    ::close(fd);
    if (failed) return std::nullopt;
    text.resize(length);
    const auto first = text.find_first_not_of(whiteSpace);
    if (first == std::string::npos) return std::string{};
    const auto last = text.find_last_not_of(whiteSpace);
    return text.substr(first, last - first + 1);
}

std::optional<long long> readInteger(const std::string& path) {
    const std::optional<std::string> text = readAttribute(path);
    if (!text || text->empty()) return std::nullopt;
    long long value = 0;
    const char* end = text->data() + text->size();
    const auto [stop, error] = std::from_chars(text->data(), end, value);
    if (error != std::errc{} || stop != end) return std::nullopt;
    return value;
}

std::vector<std::string> sortedNames(const std::string& directory) {
    std::vector<std::string> names;
    std::error_code error;
    std::filesystem::directory_iterator it(directory, error);
    for (; !error && it != std::filesystem::directory_iterator(); it.increment(error)) {
        names.push_back(it->path().filename().string());
    }
    std::sort(names.begin(), names.end());
    return names;
}

} // namespace unbulk::sysfs
