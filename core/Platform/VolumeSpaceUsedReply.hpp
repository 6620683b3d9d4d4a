#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

namespace unbulk {

// What getattrlist(2) writes for a request of ATTR_VOL_INFO |
// ATTR_VOL_SPACEUSED: the length of the reply, then the attribute. The kernel
// packs attributes on 4-byte boundaries, 64-bit ones included, so the value
// starts at offset 4; a plain struct would put it at 8 and read the padding.
// The call is given all 64 bytes as its room.
struct __attribute__((packed, aligned(4))) VolumeSpaceUsedReply {
    std::uint32_t length = 0;
    std::int64_t spaceUsed = 0; // an off_t
    unsigned char room[52] = {};

    // The space used, when the kernel wrote the whole attribute.
    std::optional<std::int64_t> value() const {
        if (length < offsetof(VolumeSpaceUsedReply, spaceUsed) + sizeof(std::int64_t)) return std::nullopt;
        return spaceUsed;
    }
};

static_assert(offsetof(VolumeSpaceUsedReply, spaceUsed) == 4, "getattrlist packs attributes on 4-byte boundaries");
static_assert(sizeof(VolumeSpaceUsedReply) == 64);
static_assert(alignof(VolumeSpaceUsedReply) == 4);

} // namespace unbulk
