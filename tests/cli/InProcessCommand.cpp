#include "InProcessCommand.hpp"

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>

#include <fcntl.h>
#include <unistd.h>

#include "cli/Program.hpp"

namespace unbulk::testing {
namespace {

// Standard output or standard error sent to a file while it lives.
class Redirection {
public:
    Redirection(int descriptor, std::FILE* stream) : descriptor_(descriptor), stream_(stream) {
        char name[] = "/tmp/unbulk-capture-XXXXXX";
        const int file = ::mkstemp(name);
        if (file < 0) throw std::runtime_error("mkstemp failed");
        path_ = name;
        std::fflush(stream_);
        saved_ = ::dup(descriptor_);
        ::dup2(file, descriptor_);
        ::close(file);
    }
    ~Redirection() {
        restore();
        std::filesystem::remove(path_);
    }
    Redirection(const Redirection&) = delete;
    Redirection& operator=(const Redirection&) = delete;

    std::string take() {
        restore();
        std::ifstream in(path_, std::ios::binary);
        std::ostringstream text;
        text << in.rdbuf();
        return text.str();
    }

private:
    void restore() {
        if (saved_ < 0) return;
        std::fflush(stream_);
        ::dup2(saved_, descriptor_);
        ::close(saved_);
        saved_ = -1;
    }

    int descriptor_;
    std::FILE* stream_;
    int saved_ = -1;
    std::string path_;
};

} // namespace

ProcessResult runCommand(const Environment& environment, const std::vector<std::string>& words) {
    ProcessResult result;
    Redirection output(STDOUT_FILENO, stdout), errors(STDERR_FILENO, stderr);
    result.exitStatus = cli::run(environment, words);
    result.standardOutput = output.take();
    result.standardError = errors.take();
    return result;
}

} // namespace unbulk::testing
