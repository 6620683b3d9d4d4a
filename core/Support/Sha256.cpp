#include "Support/Sha256.hpp"

#include <algorithm>
#include <array>
#include <cstdint>
#include <stdexcept>

#if defined(__APPLE__)
#include <CommonCrypto/CommonDigest.h>
#else
#include <openssl/evp.h>
#endif

namespace unbulk {
namespace {

constexpr std::size_t digestLength = 32;

std::string hex(const std::array<unsigned char, digestLength>& digest) {
    static constexpr char digits[] = "0123456789abcdef";
    std::string out;
    out.reserve(digestLength * 2);
    for (unsigned char byte : digest) {
        out += digits[byte >> 4];
        out += digits[byte & 0x0F];
    }
    return out;
}

} // namespace

std::string sha256Hex(std::string_view bytes) {
    std::array<unsigned char, digestLength> digest{};
#if defined(__APPLE__)
    // CC_LONG is 32 bits; feed larger inputs in pieces.
    CC_SHA256_CTX context;
    CC_SHA256_Init(&context);
    while (!bytes.empty()) {
        std::size_t piece = std::min<std::size_t>(bytes.size(), 1u << 30);
        CC_SHA256_Update(&context, bytes.data(), static_cast<CC_LONG>(piece));
        bytes.remove_prefix(piece);
    }
    CC_SHA256_Final(digest.data(), &context);
#else
    unsigned int length = 0;
    if (EVP_Digest(bytes.data(), bytes.size(), digest.data(), &length, EVP_sha256(), nullptr) != 1 ||
        length != digestLength) {
        // Only an allocation failure inside libcrypto gets here.
        throw std::runtime_error("SHA-256 digest failed");
    }
#endif
    return hex(digest);
}

} // namespace unbulk
