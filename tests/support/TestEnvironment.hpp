#pragma once

#include "Platform/Environment.hpp"
#include "support/TempHome.hpp"

namespace unbulk::testing {

// An Environment for a test: the real services of this machine, working in
// the temporary home (its Trash below the home's XDG_DATA_HOME), with a
// system root of its own (<home.root()>/system, empty until the test puts
// something there), no window system, and thermal and power conditions
// that never slow a scan down. A test replaces what it fakes.
Environment testEnvironment(const TempHome& home);

} // namespace unbulk::testing
