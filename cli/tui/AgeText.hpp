#pragma once

#include <string>

#include "Support/Dates.hpp"

namespace unbulk::cli {

// How long ago `then` was, in the largest unit that fits, rounded down:
// "just now", "1 minute", "5 minutes", "3 hours", "1 day", "20 days",
// "5 months", "2 years". A month is 30 days and a year 365: enough for a
// glance down a list. A date after `now` (a clock set wrong) is "just now".
std::string ageText(Date then, Date now);

} // namespace unbulk::cli
