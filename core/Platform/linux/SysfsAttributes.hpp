#pragma once

#include <optional>
#include <string>
#include <vector>

namespace unbulk::sysfs {

// The text of one attribute file with surrounding white space (the kernel's
// trailing newline included) removed; nothing when it cannot be read.
std::optional<std::string> readAttribute(const std::string& path);

// An attribute that holds a whole decimal number and nothing else.
std::optional<long long> readInteger(const std::string& path);

// The names in a directory, sorted; empty when it cannot be listed. Entries
// are usually symbolic links into /sys/devices, so they are not examined here.
std::vector<std::string> sortedNames(const std::string& directory);

} // namespace unbulk::sysfs
