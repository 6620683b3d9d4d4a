#include "Removal.hpp"

#include <optional>

#include "CoreObjects.hpp"
#include "Platform/Trash.hpp"
#include "Safety/AuditLogger.hpp"
#include "Safety/TrashPipeline.hpp"

namespace unbulk::cli {

TrashSummary runRemoval(const RemovalRequest& request, const std::shared_ptr<FileSystem>& fileSystem) {
    const FileURL homeURL = userHomeURL();
    auto auditLogger = std::make_shared<AuditLogger>(std::nullopt, homeURL, fileSystem);
    const TrashPipeline pipeline(fileSystem, makeDefaultTrash(), auditLogger, homeURL);
    // A purge has no dry run of its own: it goes for good once confirmed.
    return request.permanent ? pipeline.purgePermanently(request.targets, request.confirmed, "cli")
                             : pipeline.trash(request.targets, request.dryRun, "cli");
}

} // namespace unbulk::cli
