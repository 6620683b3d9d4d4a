#pragma once

#include <compare>
#include <string_view>

namespace unbulk {

// Two texts in the order a person expects in a list of names, case ignored.
// On macOS, the system's localized case-insensitive comparison in the user's
// locale. Elsewhere an approximation of it: the texts are compared case
// folded and without their combining marks first ("Éclair" sorts with the
// E's, before "Zed"), then, where that ties, case folded with the marks, each
// by Unicode scalar value. Texts that differ only in case are equivalent.
std::weak_ordering localizedCaseInsensitiveCompare(std::string_view a, std::string_view b);

} // namespace unbulk
