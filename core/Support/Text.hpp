#pragma once

#include <string>
#include <string_view>
#include <vector>

// Small text operations that several subsystems share, on bytes: no Unicode
// awareness is needed by any caller (see Support/Unicode for that).
namespace unbulk::text {

// Every occurrence of `what` replaced by `with`, left to right and without
// rescanning what was put in. An empty `what` leaves the text as it is.
std::string replacingAll(std::string text, std::string_view what, std::string_view with);

// The pieces between the separators, empty ones left out: "a..b." gives
// "a" and "b".
std::vector<std::string> splitNonEmpty(std::string_view text, char separator);

// The pieces joined with the separator between each two.
std::string joined(const std::vector<std::string>& pieces, std::string_view separator);

} // namespace unbulk::text
