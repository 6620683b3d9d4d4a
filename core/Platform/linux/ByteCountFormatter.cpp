#include "Platform/ByteCountFormatter.hpp"

#include "Support/ByteCount.hpp"

namespace unbulk {

std::string formatByteCount(std::int64_t bytes) { return decimalByteCount(bytes); }

} // namespace unbulk
