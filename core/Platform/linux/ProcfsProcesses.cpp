#include "Platform/Processes.hpp"

#include <fstream>

#include <dirent.h>

namespace unbulk {
namespace {

// Every numeric entry of /proc is a process; its comm file holds the short
// name (at most 15 bytes) and a line feed.
class ProcfsProcesses final : public Processes {
public:
    std::vector<std::string> runningProcessNames() const override {
        std::vector<std::string> names;
        DIR* proc = ::opendir("/proc");
        if (!proc) return names;
        while (struct dirent* entry = ::readdir(proc)) {
            const char* name = entry->d_name;
            bool numeric = *name != '\0';
            for (const char* c = name; *c; ++c)
                numeric = numeric && *c >= '0' && *c <= '9';
            if (!numeric) continue;
            std::ifstream comm(std::string("/proc/") + name + "/comm");
            std::string line;
            if (comm && std::getline(comm, line) && !line.empty()) names.push_back(line);
        }
        ::closedir(proc);
        return names;
    }

    std::size_t runningApplicationCount(const std::string&) const override { return 0; }
    void terminateApplications(const std::string&, bool) const override {}
    bool applicationsTerminated(const std::string&) const override { return true; }
};

} // namespace

std::shared_ptr<Processes> makeDefaultProcesses() { return std::make_shared<ProcfsProcesses>(); }

} // namespace unbulk
