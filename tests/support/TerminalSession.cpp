#include "support/TerminalSession.hpp"

#include <atomic>
#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <stdexcept>
#include <thread>

#include <unistd.h>

#include "support/ProcessRunner.hpp"

namespace unbulk::testing {
namespace {

// tmux from PATH: the process runner takes no shell and so no PATH lookup.
std::string tmuxProgram() {
    const char* path = std::getenv("PATH");
    std::stringstream folders(path ? path : "/usr/bin:/bin");
    for (std::string folder; std::getline(folders, folder, ':');) {
        const std::string candidate = folder + "/tmux";
        if (!folder.empty() && ::access(candidate.c_str(), X_OK) == 0) return candidate;
    }
    return {};
}

std::string uniqueSocketName() {
    static std::atomic<int> counter{0};
    return "unbulk-test-" + std::to_string(::getpid()) + "-" + std::to_string(counter++);
}

} // namespace

TerminalSession::TerminalSession(const std::string& command, int width, int height) : socket_(uniqueSocketName()) {
    if (!available()) throw std::runtime_error("tmux is not installed (scripts/install-deps test installs it)");
    tmux({"new-session", "-d", "-s", "test", "-x", std::to_string(width), "-y", std::to_string(height), "-e",
          "LANG=C.UTF-8", "-e", "LC_ALL=C.UTF-8", command});
    socketPath_ = query("#{socket_path}");
}

TerminalSession::~TerminalSession() {
    try {
        tmux({"kill-server"});
    } catch (...) {
        // Nothing more can be done for a server that will not go.
    }
    if (!socketPath_.empty()) ::unlink(socketPath_.c_str());
}

bool TerminalSession::available() { return !tmuxProgram().empty(); }

void TerminalSession::press(const std::vector<std::string>& keys) const {
    std::vector<std::string> arguments{"send-keys", "-t", "test"};
    arguments.insert(arguments.end(), keys.begin(), keys.end());
    tmux(arguments);
}

void TerminalSession::type(const std::string& text) const { tmux({"send-keys", "-t", "test", "-l", text}); }

std::string TerminalSession::screen(bool attributes) const {
    if (attributes) return tmux({"capture-pane", "-p", "-e", "-t", "test"});
    return tmux({"capture-pane", "-p", "-t", "test"});
}

bool TerminalSession::waitUntil(const std::function<bool(const std::string&)>& holds,
                                std::chrono::milliseconds timeout) const {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    for (;;) {
        if (holds(screen())) return true;
        if (std::chrono::steady_clock::now() >= deadline) return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
}

bool TerminalSession::waitFor(const std::string& text, std::chrono::milliseconds timeout) const {
    return waitUntil([&](const std::string& shown) { return shown.find(text) != std::string::npos; }, timeout);
}

void TerminalSession::resize(int width, int height) const {
    tmux({"resize-window", "-t", "test", "-x", std::to_string(width), "-y", std::to_string(height)});
}

std::string TerminalSession::query(const std::string& format) const {
    std::string answer = tmux({"display-message", "-p", "-t", "test", format});
    while (!answer.empty() && answer.back() == '\n')
        answer.pop_back();
    return answer;
}

std::string TerminalSession::tmux(const std::vector<std::string>& arguments) const {
    std::vector<std::string> all{"-u", "-L", socket_, "-f", "/dev/null"};
    all.insert(all.end(), arguments.begin(), arguments.end());
    const ProcessResult result = runProcess(tmuxProgram(), all, {.timeout = std::chrono::seconds(30)});
    if (result.exitStatus != 0) {
        throw std::runtime_error("tmux " + arguments.front() + " failed: " + result.standardError);
    }
    return result.standardOutput;
}

} // namespace unbulk::testing
