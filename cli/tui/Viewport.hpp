#pragma once

#include <algorithm>
#include <cstddef>

namespace unbulk::cli {

// Which part of a list taller than its window shows: the first row shown
// moves only as far as it must to keep the cursor in view, so the list does
// not jump while the cursor walks inside it.
struct Viewport {
    std::size_t first = 0;

    void follow(std::size_t cursor, std::size_t height, std::size_t count) {
        if (height == 0) return;
        if (cursor < first) first = cursor;
        if (cursor >= first + height) first = cursor + 1 - height;
        // After a resize or a shorter list: no empty rows below the end.
        first = std::min(first, count > height ? count - height : 0);
    }
};

} // namespace unbulk::cli
