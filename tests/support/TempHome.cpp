#include "support/TempHome.hpp"

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <stdexcept>

#include <fcntl.h>
#include <unistd.h>

namespace unbulk::testing {
namespace fs = std::filesystem;

namespace {

std::optional<std::string> valueOf(const char* name) {
    const char* value = std::getenv(name);
    return value ? std::optional<std::string>(value) : std::nullopt;
}

void restore(const char* name, const std::optional<std::string>& value) {
    if (value) {
        ::setenv(name, value->c_str(), 1);
    } else {
        ::unsetenv(name);
    }
}

} // namespace

TempHome::TempHome() : savedHome_(valueOf("HOME")), savedXdgDataHome_(valueOf("XDG_DATA_HOME")) {
    std::string pattern = (fs::temp_directory_path() / "unbulk-test-XXXXXX").string();
    if (!::mkdtemp(pattern.data())) throw std::runtime_error("mkdtemp failed");
    root_ = fs::canonical(pattern).string();
    home_ = root_ + "/home";
    fs::create_directories(home_);
    fs::create_directories(home_ + "/.local/share");
    ::setenv("HOME", home_.c_str(), 1);
    ::setenv("XDG_DATA_HOME", (home_ + "/.local/share").c_str(), 1);
}

TempHome::~TempHome() {
    restore("HOME", savedHome_);
    restore("XDG_DATA_HOME", savedXdgDataHome_);
    std::error_code error;
    // Give every directory back its write and search bits so removal works.
    for (auto it = fs::recursive_directory_iterator(root_, fs::directory_options::skip_permission_denied, error);
         !error && it != fs::recursive_directory_iterator(); it.increment(error)) {
        if (it->is_directory(error) && !it->is_symlink(error)) {
            fs::permissions(it->path(), fs::perms::owner_all, fs::perm_options::add, error);
        }
    }
    fs::remove_all(root_, error);
}

std::string TempHome::at(std::string_view relative) const {
    if (relative.empty()) return home_;
    return home_ + "/" + std::string(relative);
}

std::string TempHome::makeDirectory(std::string_view relative) const {
    std::string path = at(relative);
    fs::create_directories(path);
    return path;
}

std::string TempHome::writeFile(std::string_view relative, std::uintmax_t size) const {
    return writeFile(relative, std::string(static_cast<std::size_t>(size), 'x'));
}

std::string TempHome::writeFile(std::string_view relative, std::string_view contents) const {
    std::string path = at(relative);
    fs::create_directories(fs::path(path).parent_path());
    std::ofstream out(path, std::ios::binary | std::ios::trunc);
    out.write(contents.data(), static_cast<std::streamsize>(contents.size()));
    if (!out) throw std::runtime_error("cannot write " + path);
    return path;
}

std::string TempHome::allocateFile(std::string_view relative, std::int64_t size) const {
    std::string path = at(relative);
    fs::create_directories(fs::path(path).parent_path());
    const int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0) throw std::runtime_error("cannot create " + path);
    const int result = ::posix_fallocate(fd, 0, static_cast<off_t>(size));
    ::close(fd);
    if (result != 0) throw std::runtime_error("cannot allocate " + path);
    return path;
}

std::string TempHome::makeSymlink(std::string_view relative, std::string_view target) const {
    std::string path = at(relative);
    fs::create_directories(fs::path(path).parent_path());
    fs::create_symlink(std::string(target), path);
    return path;
}

} // namespace unbulk::testing
