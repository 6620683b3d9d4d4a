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

// Opens a URL with the system's handler (the Mac's /usr/bin/open). True when
// the handler was started. Linux has no handler for the Mac's settings URLs,
// and its /usr/bin/open, where one exists, is an unrelated program
// (run-mailcap): nothing is started there and the answer is false.
bool openURL(const std::string& url);

} // namespace unbulk
