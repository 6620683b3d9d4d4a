#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace unbulk::cli {

// The words behind the command word. Handlers ask this list what they need;
// there is no option table, and words nobody asks about are simply ignored.
using Arguments = std::vector<std::string>;

// Whether the exact word appears anywhere in the list.
bool hasFlag(const Arguments& args, std::string_view flag);

// The word right after the first exact occurrence of the option, if the
// option is there and not the last word. "--option=value" is not this
// option: it is just another unknown word.
std::optional<std::string> optionValue(const Arguments& args, std::string_view option);

// The word after every exact occurrence of the option, in order, for an
// option that may be given more than once.
std::vector<std::string> optionValues(const Arguments& args, std::string_view option);

} // namespace unbulk::cli
