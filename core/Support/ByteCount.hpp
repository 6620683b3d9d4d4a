#pragma once

#include <cstdint>
#include <string>

namespace unbulk {

// Byte counts as a person reads them, in the file style of the macOS byte
// count formatter: decimal units of 1,000; "Zero KB", "1 byte", "999 bytes",
// then KB with no fraction, MB with one fractional digit, GB and above with
// two, trailing zeros dropped ("1 KB", "1.5 MB", "1.23 GB", "2 GB").
std::string formatByteCount(std::int64_t bytes);

} // namespace unbulk
