#include "support/ProcessRunner.hpp"

#include <array>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <stdexcept>
#include <system_error>

#include <fcntl.h>
#include <poll.h>
#include <sys/types.h>
#include <sys/wait.h>
#include <unistd.h>

extern char** environ;

namespace unbulk::testing {
namespace {

[[noreturn]] void fail(const char* what) { throw std::system_error(errno, std::generic_category(), what); }

// Owns a file descriptor; closes it on every way out.
class Descriptor {
public:
    Descriptor() = default;
    explicit Descriptor(int fd) : fd_(fd) {}
    ~Descriptor() { reset(); }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    Descriptor(Descriptor&& other) noexcept : fd_(other.fd_) { other.fd_ = -1; }
    int get() const { return fd_; }
    void reset() {
        if (fd_ >= 0) ::close(fd_);
        fd_ = -1;
    }

private:
    int fd_ = -1;
};

struct Pipe {
    Descriptor read;
    Descriptor write;
};

Pipe makePipe() {
    // pipe() and then close-on-exec rather than pipe2(), which macOS lacks.
    std::array<int, 2> fds{};
    if (::pipe(fds.data()) != 0) fail("pipe");
    Pipe pipe{Descriptor(fds[0]), Descriptor(fds[1])};
    for (int fd : fds) {
        if (::fcntl(fd, F_SETFD, FD_CLOEXEC) != 0) fail("fcntl");
    }
    return pipe;
}

// The environment as "NAME=value" strings: ours, with the overrides applied.
std::vector<std::string> childEnvironment(const std::map<std::string, std::string>& overrides) {
    std::vector<std::string> result;
    for (char** entry = environ; entry && *entry; ++entry) {
        std::string_view text(*entry);
        std::string name(text.substr(0, text.find('=')));
        if (!overrides.contains(name)) result.emplace_back(text);
    }
    for (const auto& [name, value] : overrides) result.push_back(name + "=" + value);
    return result;
}

std::vector<char*> pointers(std::vector<std::string>& strings) {
    std::vector<char*> result;
    result.reserve(strings.size() + 1);
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
    std::vector<char*> argv = pointers(argvStrings);
    std::vector<char*> envp = pointers(envStrings);

    Descriptor devNull(::open("/dev/null", O_RDONLY | O_CLOEXEC));
    if (devNull.get() < 0) fail("open /dev/null");
    Pipe out = makePipe();
    Pipe err = makePipe();

    const pid_t pid = ::fork();
    if (pid < 0) fail("fork");
    if (pid == 0) {
        // dup2 clears close-on-exec on the targets; every other descriptor
        // of ours closes at execve.
        if (::dup2(devNull.get(), STDIN_FILENO) < 0 || ::dup2(out.write.get(), STDOUT_FILENO) < 0 ||
            ::dup2(err.write.get(), STDERR_FILENO) < 0) {
            ::_exit(127);
        }
        ::execve(program.c_str(), argv.data(), envp.data());
        ::_exit(127);
    }

    out.write.reset();
    err.write.reset();
    devNull.reset();

    ProcessResult result;
    const auto deadline = std::chrono::steady_clock::now() + options.timeout;
    std::array<pollfd, 2> fds{{{out.read.get(), POLLIN, 0}, {err.read.get(), POLLIN, 0}}};
    std::array<std::string*, 2> sinks{&result.standardOutput, &result.standardError};
    std::array<char, 65536> buffer{};
    int openStreams = 2;
    while (openStreams > 0) {
        const auto left =
            std::chrono::duration_cast<std::chrono::milliseconds>(deadline - std::chrono::steady_clock::now());
        if (left.count() <= 0) {
            result.timedOut = true;
            ::kill(pid, SIGKILL);
            break;
        }
        const int ready = ::poll(fds.data(), fds.size(), static_cast<int>(left.count()));
        if (ready < 0) {
            if (errno == EINTR) continue;
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
    if (WIFEXITED(status)) {
        result.exitStatus = WEXITSTATUS(status);
    } else if (WIFSIGNALED(status)) {
        result.signal = WTERMSIG(status);
    }
    return result;
}

} // namespace unbulk::testing
