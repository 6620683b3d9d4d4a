#include "Support/Uuid.hpp"

#include <algorithm>
#include <cstdlib>
#include <vector>

#include <uuid/uuid.h>

namespace unbulk {

Uuid Uuid::random() {
    Uuid out;
    uuid_t raw;
    uuid_generate_random(raw);
    for (std::size_t i = 0; i < 16; ++i) out.bytes_[i] = raw[i];
    return out;
}

void Uuid::fillRandom(std::span<Uuid> uuids) {
    std::vector<std::uint8_t> bytes(uuids.size() * 16);
    ::arc4random_buf(bytes.data(), bytes.size());
    for (std::size_t n = 0; n < uuids.size(); ++n) {
        std::array<std::uint8_t, 16>& out = uuids[n].bytes_;
        std::copy_n(bytes.begin() + static_cast<std::ptrdiff_t>(n * 16), 16, out.begin());
        out[6] = static_cast<std::uint8_t>((out[6] & 0x0F) | 0x40); // version 4
        out[8] = static_cast<std::uint8_t>((out[8] & 0x3F) | 0x80); // the variant of RFC 4122
    }
}

std::optional<Uuid> Uuid::parse(std::string_view text) {
    if (text.size() != 36) return std::nullopt;
    Uuid out;
    std::size_t byte = 0;
    for (std::size_t i = 0; i < text.size();) {
        if (i == 8 || i == 13 || i == 18 || i == 23) {
            if (text[i] != '-') return std::nullopt;
            ++i;
            continue;
        }
        auto nibble = [](char c) -> int {
            if (c >= '0' && c <= '9') return c - '0';
            if (c >= 'a' && c <= 'f') return c - 'a' + 10;
            if (c >= 'A' && c <= 'F') return c - 'A' + 10;
            return -1;
        };
        int hi = nibble(text[i]);
        int lo = nibble(text[i + 1]);
        if (hi < 0 || lo < 0) return std::nullopt;
        out.bytes_[byte++] = static_cast<std::uint8_t>(hi * 16 + lo);
        i += 2;
    }
    return out;
}

std::string Uuid::string() const {
    std::string out;
    appendString(out);
    return out;
}

void Uuid::appendString(std::string& out) const {
    static constexpr char digits[] = "0123456789ABCDEF";
    std::array<char, 36> text{};
    std::size_t at = 0;
    for (std::size_t i = 0; i < 16; ++i) {
        if (i == 4 || i == 6 || i == 8 || i == 10) text[at++] = '-';
        text[at++] = digits[bytes_[i] >> 4];
        text[at++] = digits[bytes_[i] & 0xF];
    }
    out.append(text.data(), text.size());
}

} // namespace unbulk
