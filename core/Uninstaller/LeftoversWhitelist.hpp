#pragma once

#include <array>
#include <optional>
#include <set>
#include <string>
#include <string_view>

// Names that are never reported as leftovers: the system's own, developer
// tools whose data outlives any one application, and shared helpers.
namespace unbulk::Whitelist {

inline constexpr std::array<std::string_view, 2> appleBundlePrefixes{"com.apple.", "group.com.apple."};
const std::set<std::string>& systemComponents();
const std::set<std::string>& developerTools();
const std::set<std::string>& sharedInfrastructure();

// Whole names only, without regard to case.
bool isProtected(const std::string& name, const std::optional<std::string>& bundleId);

} // namespace unbulk::Whitelist
