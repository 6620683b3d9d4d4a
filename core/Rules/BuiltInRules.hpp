#pragma once

#include <cstddef>
#include <vector>

#include "Models/RuleDefinition.hpp"
#include "Support/Dates.hpp"

namespace unbulk {

inline constexpr std::size_t builtInRuleCount = 24;

// The rules the system knows from the start, in their table order; a registry
// keys them by id. Each is built in and enabled, with no minimum age and no
// maker, created and updated at `now`.
std::vector<RuleDefinition> buildDefaultCatalog(Date now);

} // namespace unbulk
