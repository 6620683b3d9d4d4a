#include "Removal.hpp"

namespace unbulk::cli {

TrashSummary runRemoval(const RemovalRequest& request, const TrashPipeline& pipeline) {
    // A purge has no dry run of its own: it goes for good once confirmed.
    return request.permanent ? pipeline.purgePermanently(request.targets, request.confirmed, "cli", request.stop)
                             : pipeline.trash(request.targets, request.dryRun, "cli", request.stop);
}

Engines::Notice screenNotice(std::shared_ptr<std::vector<std::string>> lines) {
    return [lines = std::move(lines)](std::string_view line) {
        if (line.ends_with('\n')) line.remove_suffix(1);
        lines->emplace_back(line);
    };
}

} // namespace unbulk::cli
