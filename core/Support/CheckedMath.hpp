#pragma once

#include <cstdint>
#include <cstdlib>

namespace unbulk {

// Sums of byte counts and item counts. Overflowing 64 signed bits means an
// invariant broke somewhere, never a number worth reporting: stop at once.
inline std::int64_t checkedAdd(std::int64_t a, std::int64_t b) {
    std::int64_t sum = 0;
    if (__builtin_add_overflow(a, b, &sum)) std::abort();
    return sum;
}

} // namespace unbulk
