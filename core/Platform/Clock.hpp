#pragma once

#include <functional>

#include "Support/Dates.hpp"

namespace unbulk {

// The time now. Every date the core stamps (a scan's start and end, an
// audit entry, a rule's creation) is asked of the clock it was handed, so
// that a test can fix the time or step it.
using Clock = std::function<Date()>;

// The system's wall clock.
Clock systemClock();

} // namespace unbulk
