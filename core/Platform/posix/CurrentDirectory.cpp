#include "Platform/CurrentDirectory.hpp"

#include <cerrno>
#include <vector>

#include <unistd.h>

#include "Support/Paths.hpp"

namespace unbulk {

std::string currentDirectory() {
    std::vector<char> buffer(4096);
    while (true) {
        if (::getcwd(buffer.data(), buffer.size())) {
            std::string path(buffer.data());
            // Linux reports "(unreachable)/..." for a directory outside the
            // process's root; that is no path to build on.
            if (!paths::isAbsolute(path)) return "/";
            return paths::standardize(path);
        }
        if (errno != ERANGE || buffer.size() >= (1u << 20)) return "/";
        buffer.resize(buffer.size() * 2);
    }
}

} // namespace unbulk
