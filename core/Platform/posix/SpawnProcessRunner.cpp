#include <cerrno>
#include <csignal>
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include "Platform/ProcessRunner.hpp"
#include "Platform/posix/Descriptors.hpp"

extern char** environ;

namespace unbulk {
namespace {

class SpawnProcessRunner final : public ProcessRunner {
public:
    ProcessOutput run(const std::string& executable, const std::vector<std::string>& arguments) const override {
        int fds[2];
        if (::pipe(fds) != 0) throw ProcessLaunchError(posix::failed("pipe", ""), executable);
        posix::FdGuard readEnd(fds[0]), writeEnd(fds[1]);
        // Not inherited by anything else this process starts meanwhile; the
        // child gets the write end through its dup2 actions, which clear it.
        ::fcntl(readEnd.get(), F_SETFD, FD_CLOEXEC);
        ::fcntl(writeEnd.get(), F_SETFD, FD_CLOEXEC);

        posix_spawn_file_actions_t actions;
        posix_spawn_file_actions_init(&actions);
        posix_spawn_file_actions_adddup2(&actions, writeEnd.get(), STDOUT_FILENO);
        posix_spawn_file_actions_adddup2(&actions, writeEnd.get(), STDERR_FILENO);
        posix_spawn_file_actions_addclose(&actions, readEnd.get());
        posix_spawn_file_actions_addclose(&actions, writeEnd.get());

        std::vector<std::string> argvStrings{executable};
        argvStrings.insert(argvStrings.end(), arguments.begin(), arguments.end());
        std::vector<char*> argv;
        for (auto& argument : argvStrings)
            argv.push_back(argument.data());
        argv.push_back(nullptr);

        pid_t pid = 0;
        const int spawned = ::posix_spawn(&pid, executable.c_str(), &actions, nullptr, argv.data(), environ);
        posix_spawn_file_actions_destroy(&actions);
        if (spawned != 0) throw ProcessLaunchError(posix::failedWith(spawned, "posix_spawn", executable), executable);
        writeEnd.reset();

        ProcessOutput result;
        char buffer[65536];
        for (;;) {
            const ssize_t n = ::read(readEnd.get(), buffer, sizeof buffer);
            if (n > 0) {
                result.output.append(buffer, static_cast<std::size_t>(n));
            } else if (n == 0 || errno != EINTR) {
                break;
            }
        }
        int status = 0;
        while (::waitpid(pid, &status, 0) < 0 && errno == EINTR) {
        }
        result.exitStatus = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
        return result;
    }
};

} // namespace

std::shared_ptr<ProcessRunner> makeDefaultProcessRunner() { return std::make_shared<SpawnProcessRunner>(); }

} // namespace unbulk
