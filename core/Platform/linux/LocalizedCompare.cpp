#include "Platform/LocalizedCompare.hpp"

#include <string>

#include "Support/Unicode.hpp"

namespace unbulk {

// For valid UTF-8, byte order is the order of the scalars.
std::weak_ordering localizedCaseInsensitiveCompare(std::string_view a, std::string_view b) {
    if (const auto letters = unicode::caseFoldedWithoutMarks(a) <=> unicode::caseFoldedWithoutMarks(b); letters != 0) {
        return letters;
    }
    return unicode::caseFolded(a) <=> unicode::caseFolded(b);
}

} // namespace unbulk
