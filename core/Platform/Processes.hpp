#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <vector>

namespace unbulk {

// The processes running on this machine, by their short names.
class Processes {
public:
    virtual ~Processes() = default;
    // The short name of every running process (what `ps -c` shows), in no
    // particular order. Processes that vanish while being listed are left out.
    virtual std::vector<std::string> runningProcessNames() const = 0;

    // The running applications with a bundle identifier (NSRunningApplication
    // on the Mac; Linux has no such applications, so none).
    virtual std::size_t runningApplicationCount(const std::string& bundleIdentifier) const = 0;
    // Asks each of them to quit, or forces it to.
    virtual void terminateApplications(const std::string& bundleIdentifier, bool force) const = 0;
    // True when every one of them has ended (or none runs).
    virtual bool applicationsTerminated(const std::string& bundleIdentifier) const = 0;
};

// /proc/<pid>/comm on Linux; proc_listallpids and proc_name on macOS.
std::shared_ptr<Processes> makeDefaultProcesses();

} // namespace unbulk
