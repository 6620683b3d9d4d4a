#pragma once

#include <cstdint>
#include <string>

namespace unbulk {

// Byte counts as a person reads them where the system has no formatter of
// its own: decimal units of 1,000 with the wording of the macOS file style
// ("Zero KB", "1 byte", "999 bytes"), KB without a fraction and larger units
// with one fractional digit at most, trailing zeros dropped ("1 KB",
// "1.5 MB", "1.3 GB", "2 GB"). Commands print formatByteCount
// (Platform/ByteCountFormatter.hpp), which is this off macOS.
std::string decimalByteCount(std::int64_t bytes);

} // namespace unbulk
