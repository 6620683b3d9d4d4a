#include <gtest/gtest.h>

#include "Uninstaller/CodeSignature.hpp"
#include "Uninstaller/MachOHeader.hpp"

namespace unbulk {
namespace {

using A = AppArchitecture;

std::string be32(std::uint32_t v) {
    return {static_cast<char>(v >> 24), static_cast<char>(v >> 16), static_cast<char>(v >> 8), static_cast<char>(v)};
}
std::string le32(std::uint32_t v) {
    return {static_cast<char>(v), static_cast<char>(v >> 8), static_cast<char>(v >> 16), static_cast<char>(v >> 24)};
}
constexpr std::uint32_t arm = 0x0100000C, intel = 0x01000007, ppc = 18;

// A fat header with one 20-byte entry per CPU type, in either byte order.
std::string fat(const std::vector<std::uint32_t>& cpus, bool swapped = false, std::optional<std::uint32_t> count = {}) {
    auto word = swapped ? le32 : be32;
    std::string bytes =
        be32(swapped ? 0xBEBAFECA : 0xCAFEBABE) + word(count.value_or(static_cast<std::uint32_t>(cpus.size())));
    for (auto cpu : cpus)
        bytes += word(cpu) + std::string(16, '\0');
    return bytes;
}

TEST(MachOHeaderTest, EveryBranchOfTheArchitectureRules) {
    std::vector<std::uint32_t> twenty(20, ppc);
    twenty[0] = intel;
    twenty[16] = arm; // the seventeenth: never looked at
    const std::vector<std::pair<std::string, A>> rows{
        {fat({arm, intel}), A::universal}, {fat({intel, arm}, true), A::universal}, {fat({arm}), A::arm64},
        {fat({ppc, arm}), A::unknown},        // the first entry decides whether to look at all
        {fat({arm}, false, 100), A::unknown}, // too many
        {fat(twenty), A::x86_64},
        {be32(0xCAFEBABE) + be32(1), A::unknown}, // 8 bytes: no room for an entry
        {"\xCF\xFA\xED\xFE" + le32(arm), A::arm64}, {"\xCF\xFA\xED\xFE" + le32(intel), A::x86_64},
        {"\xCE\xFA\xED\xFE" + le32(intel), A::unknown},       // 32-bit
        {be32(0xCAFEBABF) + be32(1) + be32(arm), A::unknown}, // 64-bit fat
        {"\xCF\xFA\xED", A::unknown}};
    for (std::size_t i = 0; i < rows.size(); ++i)
        EXPECT_EQ(MachOHeader::architectureOf(rows[i].first), rows[i].second) << "row " << i;
}

TEST(CodeSignatureTest, ClassifiesByTheLeafCertificatesName) {
    using C = CodeSignerCategory;
    auto signedBy = [](std::optional<std::string> authority, bool platform = false, std::uint32_t flags = 0) {
        return CodeSignatureReport::classify(SigningInformation{"TEAM", platform, flags, std::move(authority)});
    };
    EXPECT_EQ(CodeSignatureReport::classify(std::nullopt), CodeSignatureReport{});
    EXPECT_EQ(signedBy(std::nullopt).category, C::unsignedCode); // ad hoc: no certificates
    EXPECT_EQ(signedBy("Developer ID Application: Acme (TEAM)").category, C::developerId);
    EXPECT_EQ(signedBy("3rd Party Mac Developer Application: Acme").category, C::macAppStore);
    EXPECT_EQ(signedBy("My Own Cert").category, C::adHoc);
    EXPECT_TRUE(signedBy("x", false, 0x10000).isHardenedRuntime);
}

} // namespace
} // namespace unbulk
