#pragma once

#include <string>
#include <string_view>
#include <vector>

// Comparable forms of application and file names.
namespace unbulk::TokenNormalizer {

// Lower case with everything that is not a letter, mark or digit removed:
// "Visual Studio-Code" gives "visualstudiocode".
std::string normalize(std::string_view text);

// Without its trailing digits, unless that leaves nothing: "app2" gives
// "app", "1234" stays "1234".
std::string stripTrailingDigits(std::string_view text);

// The lower-cased pieces between non-alphanumerics, of two characters or more.
std::vector<std::string> tokenize(std::string_view text);

} // namespace unbulk::TokenNormalizer
