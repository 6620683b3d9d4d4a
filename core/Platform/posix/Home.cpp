#include "Platform/Home.hpp"

#include <cstdlib>
#include <vector>

#include <pwd.h>
#include <unistd.h>

#include "Support/Paths.hpp"

namespace unbulk {

std::string homeDirectory() {
    if (const char* home = std::getenv("HOME"); home && paths::isAbsolute(home)) {
        return paths::standardize(home);
    }
    long suggested = ::sysconf(_SC_GETPW_R_SIZE_MAX);
    std::vector<char> buffer(suggested > 0 ? static_cast<std::size_t>(suggested) : 16384);
    struct passwd entry;
    struct passwd* result = nullptr;
    if (::getpwuid_r(::getuid(), &entry, buffer.data(), buffer.size(), &result) == 0 && result &&
        result->pw_dir && paths::isAbsolute(result->pw_dir)) {
        return paths::standardize(result->pw_dir);
    }
    return "/";
}

} // namespace unbulk
