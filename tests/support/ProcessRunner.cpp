#include "support/ProcessRunner.hpp"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <string_view>
#include <system_error>
#include <thread>

#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace unbulk::testing {
namespace {

[[noreturn]] void fail(const char* what) { throw std::system_error(errno, std::generic_category(), what); }

// An unlinked temporary file holding `contents`, positioned at its start and
// closed on exec. The child's three streams are such files: however much it
// reads or writes, nothing here has to feed or drain a pipe meanwhile, and a
// grandchild that keeps them open holds nothing up.
int temporaryFile(std::string_view contents = {}) {
    std::string name = "/tmp/unbulk-stream-XXXXXX";
    const int fd = ::mkstemp(name.data());
    if (fd < 0) fail("mkstemp");
    ::unlink(name.c_str());
    ::fcntl(fd, F_SETFD, FD_CLOEXEC);
    while (!contents.empty()) {
        const ssize_t n = ::write(fd, contents.data(), contents.size());
        if (n < 0 && errno != EINTR) fail("write");
        if (n > 0) contents.remove_prefix(static_cast<std::size_t>(n));
    }
    if (::lseek(fd, 0, SEEK_SET) != 0) fail("lseek");
    return fd;
}

// Everything the file holds, from its start; the file is closed.
std::string readBack(int fd) {
    std::string text;
    char buffer[65536];
    ::lseek(fd, 0, SEEK_SET);
    for (ssize_t n; (n = ::read(fd, buffer, sizeof buffer)) != 0;) {
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) break;
        text.append(buffer, static_cast<std::size_t>(n));
    }
    ::close(fd);
    return text;
}

// The environment as "NAME=value" strings: ours, with the overrides applied.
std::vector<std::string> childEnvironment(const std::map<std::string, std::string>& overrides) {
    std::vector<std::string> result;
    for (char** entry = environ; entry && *entry; ++entry) {
        std::string_view text(*entry);
        if (!overrides.contains(std::string(text.substr(0, text.find('='))))) result.emplace_back(text);
    }
    for (const auto& [name, value] : overrides) result.push_back(name + "=" + value);
    return result;
}

// NULL-terminated pointers into `strings`, for execve.
std::vector<char*> pointers(std::vector<std::string>& strings) {
    std::vector<char*> result;
    for (std::string& s : strings) result.push_back(s.data());
    result.push_back(nullptr);
    return result;
}

} // namespace

ProcessResult runProcess(const std::string& program, const std::vector<std::string>& arguments,
                         const ProcessOptions& options) {
    // Everything the child needs is prepared before fork: between fork and
    // execve only async-signal-safe calls are allowed.
    std::vector<std::string> argvStrings{program};
    argvStrings.insert(argvStrings.end(), arguments.begin(), arguments.end());
    std::vector<std::string> envStrings = childEnvironment(options.environment);
    std::vector<char*> argv = pointers(argvStrings), envp = pointers(envStrings);
    const int input =
        options.standardInput ? temporaryFile(*options.standardInput) : ::open("/dev/null", O_RDONLY | O_CLOEXEC);
    if (input < 0) fail("open standard input");
    const int out = temporaryFile(), err = temporaryFile();

    const pid_t pid = ::fork();
    if (pid < 0) fail("fork");
    if (pid == 0) {
        // dup2 clears close-on-exec on the targets; every other descriptor
        // of ours closes at execve.
        if (::dup2(input, STDIN_FILENO) >= 0 && ::dup2(out, STDOUT_FILENO) >= 0 && ::dup2(err, STDERR_FILENO) >= 0) {
            ::execve(program.c_str(), argv.data(), envp.data());
        }
        ::_exit(127);
    }
    ::close(input);

    ProcessResult result;
    int status = 0;
    const auto deadline = std::chrono::steady_clock::now() + options.timeout;
    // The output lands in files, so nothing needs draining: look at the child
    // often while it is young and less often as it runs on.
    auto pause = std::chrono::microseconds(200);
    bool interrupted = false;
    for (pid_t done; (done = ::waitpid(pid, &status, WNOHANG)) != pid;) {
        if (done < 0 && errno != EINTR) fail("waitpid");
        if (options.interruption && !interrupted && options.interruption->when()) {
            ::kill(pid, options.interruption->signal);
            interrupted = true;
        }
        if (!result.timedOut && std::chrono::steady_clock::now() >= deadline) {
            result.timedOut = true;
            ::kill(pid, SIGKILL);
        }
        std::this_thread::sleep_for(pause);
        pause = std::min(pause * 2, std::chrono::microseconds(10'000));
    }
    result.standardOutput = readBack(out);
    result.standardError = readBack(err);
    if (WIFEXITED(status)) result.exitStatus = WEXITSTATUS(status);
    if (WIFSIGNALED(status)) result.signal = WTERMSIG(status);
    return result;
}

} // namespace unbulk::testing
