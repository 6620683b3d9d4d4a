#pragma once

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
};

// /proc/<pid>/comm on Linux; proc_listallpids and proc_name on macOS.
std::shared_ptr<Processes> makeDefaultProcesses();

} // namespace unbulk
