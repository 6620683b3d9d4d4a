#include "Support/Uuid.hpp"

#include <uuid/uuid.h>

namespace unbulk {

Uuid Uuid::random() {
    Uuid out;
    uuid_t raw;
    uuid_generate_random(raw);
    for (std::size_t i = 0; i < 16; ++i) out.bytes_[i] = raw[i];
    return out;
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
    static constexpr char digits[] = "0123456789ABCDEF";
    std::string out;
    out.reserve(36);
    for (std::size_t i = 0; i < 16; ++i) {
        if (i == 4 || i == 6 || i == 8 || i == 10) out += '-';
        out += digits[bytes_[i] >> 4];
        out += digits[bytes_[i] & 0xF];
    }
    return out;
}

} // namespace unbulk
