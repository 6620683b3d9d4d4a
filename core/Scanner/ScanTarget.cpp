#include "Scanner/ScanTarget.hpp"

#include <string>

#include "Support/EnumTable.hpp"

namespace unbulk {
namespace {

static_assert(inDeclarationOrder(scanTargetTable, &ScanTargetInfo::target));

} // namespace

const ScanTargetInfo& info(ScanTarget target) { return scanTargetTable[static_cast<std::size_t>(target)]; }

std::string_view rawValue(ScanTarget target) { return info(target).rawValue; }

std::optional<ScanTarget> scanTargetFromRawValue(std::string_view raw) {
    for (const auto& row : scanTargetTable) {
        if (row.rawValue == raw) return row.target;
    }
    return std::nullopt;
}

std::array<ScanTarget, 9> allScanTargets() {
    std::array<ScanTarget, 9> out{};
    for (std::size_t i = 0; i < out.size(); ++i) out[i] = scanTargetTable[i].target;
    return out;
}

void to_json(nlohmann::json& j, ScanTarget target) { j = std::string(rawValue(target)); }

void from_json(const nlohmann::json& j, ScanTarget& target) {
    auto raw = j.get<std::string>();
    auto parsed = scanTargetFromRawValue(raw);
    if (!parsed) {
        throw nlohmann::json::other_error::create(
            501, "Cannot initialize ScanTarget from invalid raw value " + raw, nullptr);
    }
    target = *parsed;
}

} // namespace unbulk
