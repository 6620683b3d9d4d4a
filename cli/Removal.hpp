#pragma once

#include <memory>
#include <vector>

#include "Models/SafetyModels.hpp"
#include "Platform/FileSystem.hpp"
#include "Support/FileURL.hpp"

namespace unbulk::cli {

// What one removal asks for.
struct RemovalRequest {
    std::vector<FileURL> targets;
    bool dryRun = true;     // only report what would go; a purge does not read it
    bool permanent = false; // delete for good instead of moving to the Trash
    bool confirmed = false; // the confirmation a purge needs
};

// The one way the program removes anything: the targets go through the trash
// pipeline with the client "cli", so every command that removes gets the same
// sandbox, the same measure before the move, the same audit entry and the
// same summary. Throws what the pipeline throws (an empty list, an
// unconfirmed purge).
TrashSummary runRemoval(const RemovalRequest& request, const std::shared_ptr<FileSystem>& fileSystem);

} // namespace unbulk::cli
