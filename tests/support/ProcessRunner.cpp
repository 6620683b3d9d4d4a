#include "support/ProcessRunner.hpp"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <poll.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace unbulk::testing {
namespace {

[[noreturn]] void fail(const char* what) { throw std::system_error(errno, std::generic_category(), what); }

// Owns a file descriptor; closes it on every way out.
struct Descriptor {
    explicit Descriptor(int descriptor = -1) : fd(descriptor) {}
    ~Descriptor() { reset(); }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    void reset() { if (fd >= 0) ::close(std::exchange(fd, -1)); }
    int fd;
};

// Both ends close on exec. pipe() and then fcntl rather than pipe2(), which macOS lacks.
struct Pipe {
    Pipe() {
        std::array<int, 2> fds{};
        if (::pipe(fds.data()) != 0) fail("pipe");
        read.fd = fds[0];
        write.fd = fds[1];
        for (int fd : fds)
            if (::fcntl(fd, F_SETFD, FD_CLOEXEC) != 0) fail("fcntl");
    }
    Descriptor read, write;
};

// An unlinked temporary file holding `contents`, positioned at its start: a
// child reads it as standard input however large it is, and nothing here has
// to feed a pipe while reading the child's output.
int inputFile(const std::string& contents) {
    std::string name = "/tmp/unbulk-stdin-XXXXXX";
    const int fd = ::mkstemp(name.data());
    if (fd < 0) fail("mkstemp");
    ::unlink(name.c_str());
    ::fcntl(fd, F_SETFD, FD_CLOEXEC);
    std::string_view rest = contents;
    while (!rest.empty()) {
        const ssize_t n = ::write(fd, rest.data(), rest.size());
        if (n < 0 && errno == EINTR) continue;
        if (n < 0) fail("write");
        rest.remove_prefix(static_cast<std::size_t>(n));
    }
    if (::lseek(fd, 0, SEEK_SET) != 0) fail("lseek");
    return fd;
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

    Descriptor input(options.standardInput ? inputFile(*options.standardInput)
                                             : ::open("/dev/null", O_RDONLY | O_CLOEXEC));
    if (input.fd < 0) fail("open standard input");
    Pipe out, err;

    const pid_t pid = ::fork();
    if (pid < 0) fail("fork");
    if (pid == 0) {
        // dup2 clears close-on-exec on the targets; every other descriptor
        // of ours closes at execve.
        if (::dup2(input.fd, STDIN_FILENO) >= 0 && ::dup2(out.write.fd, STDOUT_FILENO) >= 0 &&
            ::dup2(err.write.fd, STDERR_FILENO) >= 0) {
            ::execve(program.c_str(), argv.data(), envp.data());
        }
        ::_exit(127);
    }
    out.write.reset();
    err.write.reset();
    input.reset();

    ProcessResult result;
    const auto deadline = std::chrono::steady_clock::now() + options.timeout;
    std::array<pollfd, 2> fds{{{out.read.fd, POLLIN, 0}, {err.read.fd, POLLIN, 0}}};
    std::array<std::string*, 2> sinks{&result.standardOutput, &result.standardError};
    std::array<char, 65536> buffer{};
    for (int openStreams = 2; openStreams > 0;) {
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0) {
            result.timedOut = true;
            ::kill(pid, SIGKILL);
            break;
        }
        const int ready = ::poll(fds.data(), fds.size(), static_cast<int>(left.count()));
        if (ready < 0 && errno == EINTR) continue; // nothing was reported: revents are stale
        if (ready < 0) {
            ::kill(pid, SIGKILL);
            ::waitpid(pid, nullptr, 0);
            fail("poll");
        }
        for (std::size_t i = 0; i < fds.size(); ++i) {
            if (fds[i].fd < 0 || fds[i].revents == 0) continue;
            const ssize_t n = ::read(fds[i].fd, buffer.data(), buffer.size());
            if (n > 0) {
                sinks[i]->append(buffer.data(), static_cast<std::size_t>(n));
            } else if (n == 0 || errno != EINTR) {
                fds[i].fd = -1; // end of stream (or a broken pipe): stop watching it
                --openStreams;
            }
        }
    }

    int status = 0;
    while (::waitpid(pid, &status, 0) < 0) {
        if (errno != EINTR) fail("waitpid");
    }
    if (WIFEXITED(status)) result.exitStatus = WEXITSTATUS(status);
    if (WIFSIGNALED(status)) result.signal = WTERMSIG(status);
    return result;
}

} // namespace unbulk::testing
