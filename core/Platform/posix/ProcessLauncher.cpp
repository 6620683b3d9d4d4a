#include "Platform/ProcessLauncher.hpp"

#include <spawn.h>
#include <sys/stat.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>
#include <thread>

extern char** environ;

namespace unbulk {

bool launchDetached(const std::string& executable, const std::vector<std::string>& arguments) {
    // Some C libraries report a file that cannot be run through posix_spawn's
    // answer, others only through the child's exit status 127, which a caller
    // that does not wait never sees. Asking first makes the answer the same
    // everywhere. A directory passes the access test (its x bit means search),
    // hence the test for a regular file.
    struct stat file {};
    if (::stat(executable.c_str(), &file) != 0 || !S_ISREG(file.st_mode)) return false;
    if (::access(executable.c_str(), X_OK) != 0) return false;

    std::vector<std::string> words;
    words.reserve(arguments.size() + 1);
    words.push_back(executable);
    words.insert(words.end(), arguments.begin(), arguments.end());
    std::vector<char*> argv;
    argv.reserve(words.size() + 1);
    for (std::string& word : words) argv.push_back(word.data());
    argv.push_back(nullptr);

    pid_t pid = 0;
    if (::posix_spawn(&pid, executable.c_str(), nullptr, nullptr, argv.data(), environ) != 0) return false;

    // The child is reaped on a thread of its own so that it leaves no zombie
    // and the caller does not wait. Should the thread not start, the child
    // still runs; it lingers as a zombie only until this process ends.
    try {
        std::thread([pid] {
            int status = 0;
            while (::waitpid(pid, &status, 0) == -1 && errno == EINTR) {
            }
        }).detach();
    } catch (const std::system_error&) {
    }
    return true;
}

} // namespace unbulk
