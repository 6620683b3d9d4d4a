#include "Uninstaller/MachOHeader.hpp"

#include <cstdint>

namespace unbulk::MachOHeader {
namespace {

constexpr std::uint32_t cpuArm64 = 0x0100000C;
constexpr std::uint32_t cpuX86_64 = 0x01000007;
constexpr std::uint32_t cpuI386 = 7;

std::uint32_t readU32(std::string_view bytes, std::size_t offset, bool bigEndian) {
    std::uint32_t value = 0;
    for (std::size_t i = 0; i < 4; ++i) {
        const auto byte = static_cast<std::uint8_t>(bytes[offset + i]);
        value |=
            bigEndian ? static_cast<std::uint32_t>(byte) << (8 * (3 - i)) : static_cast<std::uint32_t>(byte) << (8 * i);
    }
    return value;
}

} // namespace

AppArchitecture architectureOf(std::string_view header) {
    if (header.size() > bytesRead) header = header.substr(0, bytesRead);
    if (header.size() < 8) return AppArchitecture::unknown;
    const std::uint32_t magic = readU32(header, 0, true);

    if (magic == 0xCAFEBABE || magic == 0xBEBAFECA) {
        const bool bigEndian = magic == 0xCAFEBABE;
        const std::uint32_t count = readU32(header, 4, bigEndian);
        if (count < 1 || count > 99 || header.size() < 12) return AppArchitecture::unknown;
        const std::uint32_t first = readU32(header, 8, bigEndian);
        if (first != cpuArm64 && first != cpuX86_64 && first != cpuI386) return AppArchitecture::unknown;
        bool arm64 = false, x86_64 = false;
        for (std::size_t entry = 0; entry < 16 && entry < count; ++entry) {
            const std::size_t offset = 8 + entry * 20;
            if (offset + 4 > header.size()) break;
            const std::uint32_t cpu = readU32(header, offset, bigEndian);
            arm64 = arm64 || cpu == cpuArm64;
            x86_64 = x86_64 || cpu == cpuX86_64;
        }
        if (arm64 && x86_64) return AppArchitecture::universal;
        if (arm64) return AppArchitecture::arm64;
        if (x86_64) return AppArchitecture::x86_64;
        return AppArchitecture::unknown;
    }

    const bool thinLittle = magic == 0xCFFAEDFE; // CF FA ED FE on disk
    const bool thinBig = magic == 0xFEEDFACF;
    if (thinLittle || thinBig) {
        const std::uint32_t cpu = readU32(header, 4, thinBig);
        if (cpu == cpuArm64) return AppArchitecture::arm64;
        if (cpu == cpuX86_64) return AppArchitecture::x86_64;
    }
    return AppArchitecture::unknown;
}

} // namespace unbulk::MachOHeader
