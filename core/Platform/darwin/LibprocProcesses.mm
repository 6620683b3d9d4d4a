#import <AppKit/AppKit.h>

#include "Platform/Processes.hpp"

#include <libproc.h>
#include <signal.h>
#include <sys/proc.h>
#include <sys/proc_info.h>

#include <cerrno>

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

    // NSRunningApplication's properties change only as the main run loop
    // turns, and the thread that waits for an application to end runs none:
    // `terminated` might never turn true there. So the list is asked afresh
    // on each call, and the kernel decides by process id whether each
    // application's process is still there.
    bool applicationsTerminated(const std::string& bundleIdentifier) const override {
        @autoreleasepool {
            for (NSRunningApplication* application in running(bundleIdentifier)) {
                if (!application.terminated && processRuns(application.processIdentifier)) return false;
            }
            return true;
        }
    }

private:
    // A process that has ended but is not yet reaped (a zombie) has ended.
    static bool processRuns(pid_t pid) {
        if (pid <= 0) return false; // -1: the application has no process
        struct proc_bsdinfo info {};
        if (proc_pidinfo(pid, PROC_PIDTBSDINFO, 0, &info, sizeof info) == static_cast<int>(sizeof info)) {
            return info.pbi_status != SZOMB;
        }
        if (errno == ESRCH) return false;
        // Refused (another user's process): kill(2) with no signal still tells whether it exists.
        return ::kill(pid, 0) == 0 || errno == EPERM;
    }

    static NSArray<NSRunningApplication*>* running(const std::string& bundleIdentifier) {
        NSString* identifier = [NSString stringWithUTF8String:bundleIdentifier.c_str()];
        if (identifier == nil) return @[];
        return [NSRunningApplication runningApplicationsWithBundleIdentifier:identifier];
    }
};

} // namespace

std::shared_ptr<Processes> makeDefaultProcesses() { return std::make_shared<LibprocProcesses>(); }

} // namespace unbulk
