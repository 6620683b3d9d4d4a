#pragma once

#include <functional>
#include <string_view>

namespace unbulk {

// Where a long text goes piece by piece as it is made, rather than whole at
// the end: each piece is whole characters, never a cut through one.
using TextSink = std::function<void(std::string_view piece)>;

} // namespace unbulk
