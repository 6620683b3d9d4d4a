#pragma once

#include <memory>
#include <string>
#include <vector>

#include "Models/SafetyModels.hpp"
#include "Operations/Engines.hpp"
#include "Safety/TrashPipeline.hpp"
#include "Support/Cancellation.hpp"
#include "Support/FileURL.hpp"

namespace unbulk::cli {

// What one removal asks for.
struct RemovalRequest {
    std::vector<FileURL> targets;
    bool dryRun = true;     // only report what would go; a purge does not read it
    bool permanent = false; // delete for good instead of moving to the Trash
    bool confirmed = false; // the confirmation a purge needs
    StopToken stop = {};    // a stop ends the work after the item in hand
};

// The one way the program removes anything: the targets go through the trash
// pipeline (see Engines::trashPipeline) with the client "cli", so every command
// that removes gets the same sandbox, the same journal, the same measure
// before the move, the same audit entry and the same summary. Throws what
// the pipeline throws (an empty list, an unconfirmed purge).
TrashSummary runRemoval(const RemovalRequest& request, const TrashPipeline& pipeline);

// The notice of a full-screen command: each line is kept, without its line
// end, for the screen to show and for standard error once the terminal is
// given back.
Engines::Notice screenNotice(std::shared_ptr<std::vector<std::string>> lines);

} // namespace unbulk::cli
