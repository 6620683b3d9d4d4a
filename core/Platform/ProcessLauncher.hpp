#pragma once

#include <string>
#include <vector>

namespace unbulk {

// Starts `executable` (an absolute path, run as it is, with no shell and no
// search of PATH) with the given arguments and this process's environment and
// standard streams, and returns at once: nobody waits for it to end, though
// the child is reaped when it does. True when the child was started; false
// when the file is missing or not executable, or the launch itself failed.
bool launchDetached(const std::string& executable, const std::vector<std::string>& arguments);

} // namespace unbulk
