#pragma once

#include <string>

namespace unbulk {

// The user's home directory: $HOME when it is an absolute path, otherwise the
// password database's entry for the current user, otherwise "/".
std::string homeDirectory();

} // namespace unbulk
