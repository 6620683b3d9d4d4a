#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <optional>

namespace unbulk {

// What getattrlist(2) writes for a request of ATTR_VOL_INFO |
// ATTR_VOL_SPACEUSED: the length of the reply, then the attribute. The kernel
// packs attributes on 4-byte boundaries, 64-bit ones included, so the value
// (an off_t) starts at offset 4, where no 8-byte field of a plain struct can
// sit. The reply is kept as bytes and the value copied out of them, so
// nothing ever reads an int64 at a 4-byte-aligned address. The call is given
// all 64 bytes as its room.
struct alignas(4) VolumeSpaceUsedReply {
    std::uint32_t length = 0;
    unsigned char attributes[60] = {};

    // The space used, when the kernel wrote the whole attribute.
    std::optional<std::int64_t> value() const {
        if (length < sizeof length + sizeof(std::int64_t)) return std::nullopt;
        std::int64_t spaceUsed = 0;
        std::memcpy(&spaceUsed, attributes, sizeof spaceUsed);
        return spaceUsed;
    }
};

static_assert(offsetof(VolumeSpaceUsedReply, attributes) == 4, "getattrlist packs attributes on 4-byte boundaries");
static_assert(sizeof(VolumeSpaceUsedReply) == 64);
static_assert(alignof(VolumeSpaceUsedReply) == 4);

} // namespace unbulk
