#include "Rules/RuleBaseDirectory.hpp"

#include <string>

#include "Support/EnumTable.hpp"

namespace unbulk {
namespace {

static_assert(inDeclarationOrder(ruleBaseDirectoryTable, &RuleBaseDirectoryInfo::directory));

} // namespace

std::string_view rawValue(RuleBaseDirectory directory) {
    return ruleBaseDirectoryTable[static_cast<std::size_t>(directory)].rawValue;
}

std::optional<RuleBaseDirectory> ruleBaseDirectoryFromRawValue(std::string_view raw) {
    for (const auto& row : ruleBaseDirectoryTable) {
        if (row.rawValue == raw) return row.directory;
    }
    return std::nullopt;
}

std::array<RuleBaseDirectory, 6> allRuleBaseDirectories() {
    std::array<RuleBaseDirectory, 6> out{};
    for (std::size_t i = 0; i < out.size(); ++i) out[i] = ruleBaseDirectoryTable[i].directory;
    return out;
}

void to_json(nlohmann::json& j, RuleBaseDirectory directory) { j = std::string(rawValue(directory)); }

void from_json(const nlohmann::json& j, RuleBaseDirectory& directory) {
    const auto raw = j.get<std::string>();
    auto parsed = ruleBaseDirectoryFromRawValue(raw);
    if (!parsed) {
        throw nlohmann::json::other_error::create(
            501, "Cannot initialize RuleBaseDirectory from invalid raw value " + raw, nullptr);
    }
    directory = *parsed;
}

} // namespace unbulk
