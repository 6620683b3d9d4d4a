#pragma once

#include <array>
#include <compare>
#include <cstdint>
#include <cstring>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace unbulk {

// A random (version 4) UUID. Its text is the canonical upper-case form,
// "E621E1F8-C36C-495A-93FC-0C247A3E6E5F".
class Uuid {
public:
    Uuid() = default;
    static Uuid random();
    // As many random UUIDs as `uuids` holds, from one read of the system's
    // random source rather than one each: for the million nodes of a tree.
    static void fillRandom(std::span<Uuid> uuids);
    static std::optional<Uuid> parse(std::string_view text); // either case

    std::string string() const;
    // The same text added to `out`, for a writer of many (no string of its own).
    void appendString(std::string& out) const;
    const std::array<std::uint8_t, 16>& bytes() const { return bytes_; }

    friend bool operator==(const Uuid&, const Uuid&) = default;
    // Byte order. Written out: libc++ 16 has no operator<=> for std::array.
    friend std::strong_ordering operator<=>(const Uuid& a, const Uuid& b) {
        return std::memcmp(a.bytes_.data(), b.bytes_.data(), a.bytes_.size()) <=> 0;
    }

private:
    std::array<std::uint8_t, 16> bytes_{};
};

} // namespace unbulk
