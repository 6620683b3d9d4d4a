#include "Handlers.hpp"
#include "Output.hpp"
#include "Safety/FDAChecker.hpp"

namespace unbulk::cli {

int handleFDA(const Environment& environment, const Arguments& args) {
    const bool granted = FDAChecker::hasFullDiskAccess(environment.homeURL, *environment.fileSystem);

    if (hasFlag(args, "--open")) {
        printLine("Opening macOS System Settings > Privacy & Security > Full Disk Access...");
        // Whether the launch worked changes nothing: the command has said what
        // it does, and it always ends with status 0.
        (void)FDAChecker::openSystemSettings();
        return 0;
    }

    printLine(granted ? "Full Disk Access (FDA) status: GRANTED (Full access)"
                      : "Full Disk Access (FDA) status: NOT GRANTED (Standard access)");
    if (!granted) {
        printLine("  Note: Unbulk cleans all developer bloat, package caches, DerivedData, and Docker VMs "
                  "without FDA.");
        printLine("  To grant access for protected Safari, Mail, and Time Machine paths, run:");
        printLine("       unbulk fda --open");
    }
    return 0;
}

} // namespace unbulk::cli
