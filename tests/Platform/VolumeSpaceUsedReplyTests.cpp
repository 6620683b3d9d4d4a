#include "Platform/VolumeSpaceUsedReply.hpp"

#include <cstring>
#include <vector>

#include <gtest/gtest.h>

namespace unbulk {
namespace {

// The reply as getattrlist(2) lays it out: the length, then each attribute
// at the next 4-byte boundary, however wide it is.
VolumeSpaceUsedReply kernelReply(std::uint32_t length, std::int64_t spaceUsed) {
    std::vector<unsigned char> bytes(64, 0xAB);
    std::memcpy(bytes.data(), &length, sizeof length);
    std::memcpy(bytes.data() + 4, &spaceUsed, sizeof spaceUsed);
    VolumeSpaceUsedReply reply;
    std::memcpy(&reply, bytes.data(), sizeof reply);
    return reply;
}

TEST(VolumeSpaceUsedReply, ReadsTheValueWhereTheKernelPacksIt) {
    const std::int64_t twelveGB = 12'000'000'000;
    EXPECT_EQ(kernelReply(12, twelveGB).value(), twelveGB);
    EXPECT_EQ(kernelReply(64, twelveGB).value(), twelveGB);
    // A reply too short to hold the attribute holds no value.
    EXPECT_EQ(kernelReply(4, twelveGB).value(), std::nullopt);
    EXPECT_EQ(kernelReply(11, twelveGB).value(), std::nullopt);
}

} // namespace
} // namespace unbulk
