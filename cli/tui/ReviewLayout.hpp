#pragma once

#include <string>
#include <vector>

#include "Models/SafetyModels.hpp"
#include "Models/ScanItem.hpp"
#include "tui/Frame.hpp"
#include "tui/ReviewList.hpp"
#include "tui/Viewport.hpp"

// The screens of `unbulk review`, composed as frames from the list and the
// little the session adds (a message, a prompt). Every row fits the width
// it is given, whatever the names hold.
namespace unbulk::cli::reviewLayout {

// What the bottom two rows say: a message or a prompt in place of the
// highlighted item's description and path.
struct Footer {
    std::string message;
    Style messageStyle = Style::message;
    std::string prompt; // replaces the key hints when not empty
};

// The grouped list with its title and status rows. Moves the viewport to
// keep the cursor in view.
Frame list(const ReviewList& list, Viewport& viewport, const std::string& homePath, const Footer& footer, int width,
           int height);

// What will go and how much, before it goes: to the Trash, or (with
// `purge`) for good, with the typed confirmation so far.
Frame confirmation(const std::vector<DiscoveredItem>& items, const std::string& homePath, bool purge,
                   const std::string& typed, const std::string& message, int width, int height);

// The outcome of a removal, record by record, failures with their reasons.
Frame summary(const TrashSummary& summary, const std::string& homePath, int width, int height);

// The keys, over the list.
void help(Frame& frame);

} // namespace unbulk::cli::reviewLayout
