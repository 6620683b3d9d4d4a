#include "Removal.hpp"

namespace unbulk::cli {

TrashSummary runRemoval(const RemovalRequest& request, const TrashPipeline& pipeline) {
    // A purge has no dry run of its own: it goes for good once confirmed.
    return request.permanent ? pipeline.purgePermanently(request.targets, request.confirmed, "cli", request.stop)
                             : pipeline.trash(request.targets, request.dryRun, "cli", request.stop);
}

} // namespace unbulk::cli
