#pragma once

#include <string_view>

#include "Models/AppModel.hpp"

// The architecture of an executable from the start of its Mach-O header.
namespace unbulk::MachOHeader {

// How much of a file architectureOf looks at.
inline constexpr std::size_t bytesRead = 4096;

// Fat headers (either byte order) by the CPU types of their first sixteen
// entries, provided the first is one we know; thin 64-bit files (either byte
// order) by their CPU type. Anything else, fewer than 8 bytes, 32-bit and
// 64-bit fat files among them, is unknown.
AppArchitecture architectureOf(std::string_view header);

} // namespace unbulk::MachOHeader
