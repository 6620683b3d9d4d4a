#pragma once

#include <string>
#include <vector>

#include "Models/SpaceNode.hpp"
#include "Support/Dates.hpp"
#include "tui/ExploreView.hpp"
#include "tui/Frame.hpp"
#include "tui/Viewport.hpp"

// The screens of `unbulk explore`, composed as frames from the view.
namespace unbulk::cli::exploreLayout {

// The directory shown: its entries largest first (or as sorted), each with
// its size, its share as a bar and a percentage, and for a directory the
// number of files below it. `message` takes the row above the status row;
// `prompt`, when not empty, the status row itself.
Frame directory(const ExploreView& view, Viewport& viewport, const std::string& homePath, const std::string& message,
                Style messageStyle, const std::string& prompt, int width, int height);

// An entry's details, one line each: name, path, kind, category, dates,
// allocated and logical bytes, items.
std::vector<std::string> details(const SpaceNode& entry, Date now);

// The keys, over the directory.
void help(Frame& frame);

} // namespace unbulk::cli::exploreLayout
