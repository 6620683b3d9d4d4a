#include "Platform/ProcessLauncher.hpp"

namespace unbulk {

bool openURL(const std::string& url) { return launchDetached("/usr/bin/open", {url}); }

} // namespace unbulk
