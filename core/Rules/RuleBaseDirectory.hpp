#pragma once

#include <array>
#include <optional>
#include <string_view>

#include <nlohmann/json.hpp>

namespace unbulk {

// The base directories a rule pattern could be read against. No rule field
// holds one: patterns are expanded from the home directory or taken as
// absolute paths.
enum class RuleBaseDirectory { home, userCaches, userApplicationSupport, userDeveloper, systemLibrary, absolute };

struct RuleBaseDirectoryInfo {
    RuleBaseDirectory directory;
    std::string_view rawValue; // the case name
};

// In declaration order, which is the order of allCases.
inline constexpr std::array<RuleBaseDirectoryInfo, 6> ruleBaseDirectoryTable{{
    {RuleBaseDirectory::home, "home"},
    {RuleBaseDirectory::userCaches, "userCaches"},
    {RuleBaseDirectory::userApplicationSupport, "userApplicationSupport"},
    {RuleBaseDirectory::userDeveloper, "userDeveloper"},
    {RuleBaseDirectory::systemLibrary, "systemLibrary"},
    {RuleBaseDirectory::absolute, "absolute"},
}};

std::string_view rawValue(RuleBaseDirectory directory);

// Exact reading; an unknown raw value gives nothing.
std::optional<RuleBaseDirectory> ruleBaseDirectoryFromRawValue(std::string_view raw);

// All six, in declaration order.
std::array<RuleBaseDirectory, 6> allRuleBaseDirectories();

void to_json(nlohmann::json& j, RuleBaseDirectory directory);
// Throws nlohmann::json::exception for a non-string or an unknown raw value.
void from_json(const nlohmann::json& j, RuleBaseDirectory& directory);

} // namespace unbulk
