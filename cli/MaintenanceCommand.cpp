#include "Handlers.hpp"
#include "Maintenance/MaintenanceTasks.hpp"
#include "Output.hpp"

namespace unbulk::cli {

int handleMaintenance(const Environment& environment, const Arguments& args) {
    const auto& runner = environment.processRunner;
    const std::string task = args.empty() ? "all" : args.front();
    if (task == "dns") {
        printLine("Done: " + MaintenanceTasks::flushDNSCache(*runner));
    } else if (task == "purgeable") {
        printLine("Done: " + MaintenanceTasks::unbulkPurgeableSpace(*runner, 10));
    } else if (task == "spotlight") {
        printLine("Done: " + MaintenanceTasks::triggerSpotlightReindex(*runner, "/"));
    } else {
        // "all", and any word it does not know: no usage message. Spotlight
        // is not part of it, and the tools' own texts are not shown.
        printLine("Running all maintenance tasks...");
        MaintenanceTasks::flushDNSCache(*runner);
        printLine("DNS cache flushed.");
        MaintenanceTasks::unbulkPurgeableSpace(*runner, 10);
        printLine("APFS purgeable space unbulked.");
    }
    return 0;
}

} // namespace unbulk::cli
