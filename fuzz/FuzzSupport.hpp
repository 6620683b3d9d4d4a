#pragma once

#include <cstdint>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <string_view>

#include <unistd.h>

namespace unbulk::fuzz {

inline std::string_view text(const std::uint8_t* data, std::size_t size) {
    return {reinterpret_cast<const char*>(data), size};
}

// A temporary home for targets that touch the disk, made once per process:
// HOME and XDG_DATA_HOME point into it, so nothing reaches the real home or
// the real Trash.
inline const std::string& temporaryHome() {
    static const std::string home = [] {
        std::string root = std::filesystem::temp_directory_path() / "unbulk-fuzz-XXXXXX";
        if (::mkdtemp(root.data()) == nullptr) std::abort();
        const std::string path = root + "/home";
        std::filesystem::create_directories(path);
        ::setenv("HOME", path.c_str(), 1);
        ::setenv("XDG_DATA_HOME", (path + "/.local/share").c_str(), 1);
        return path;
    }();
    return home;
}

// Ends the run loudly when an invariant breaks, sanitizers or not.
inline void require(bool condition) {
    if (!condition) std::abort();
}

} // namespace unbulk::fuzz
