#include "Platform/ProcessLauncher.hpp"

namespace unbulk {

// Nothing here can open the Mac's settings; see the header.
bool openURL(const std::string&) { return false; }

} // namespace unbulk
