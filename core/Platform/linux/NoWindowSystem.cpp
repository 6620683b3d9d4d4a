#include "Platform/WindowSystem.hpp"

namespace unbulk {

// A command-line process on Linux has no application windows.
std::shared_ptr<WindowSystem> makeDefaultWindowSystem() { return nullptr; }

} // namespace unbulk
