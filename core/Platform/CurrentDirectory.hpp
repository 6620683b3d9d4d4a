#pragma once

#include <string>

namespace unbulk {

// The process's working directory, standardised; a relative path given to
// the core is read against it. "/" when the directory cannot be named (it was
// removed, or a component is unreadable), so that what is built on it stays
// absolute and is judged by the same checks as any other absolute path.
std::string currentDirectory();

} // namespace unbulk
