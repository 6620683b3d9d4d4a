#pragma once

#include <array>
#include <string_view>

#include "Support/EnumTable.hpp"

namespace unbulk {

// The base directories a rule pattern could be read against. No rule field
// holds one: patterns are expanded from the home directory or taken as
// absolute paths.
enum class RuleBaseDirectory { home, userCaches, userApplicationSupport, userDeveloper, systemLibrary, absolute };

struct RuleBaseDirectoryInfo {
    RuleBaseDirectory value;
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

template <>
struct EnumTable<RuleBaseDirectory> {
    static constexpr std::string_view name = "RuleBaseDirectory";
    static constexpr const auto& rows = ruleBaseDirectoryTable;
};

} // namespace unbulk
