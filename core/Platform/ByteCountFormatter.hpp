#pragma once

#include <cstdint>
#include <string>

namespace unbulk {

// A byte count as the system shows file sizes: on macOS the system's byte
// count formatter in its file style (so that people see their own locale's
// separators); elsewhere decimalByteCount of Support/ByteCount.hpp.
std::string formatByteCount(std::int64_t bytes);

} // namespace unbulk
