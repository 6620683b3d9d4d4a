#include "Models/Categories.hpp"

#include "Models/RecordCoding.hpp"
#include "Support/EnumTable.hpp"

#include <algorithm>
#include <cctype>
#include <stdexcept>
#include <string>

namespace unbulk {
namespace {

template <typename Table, typename Key>
const auto& lookup(const Table& table, Key key) {
    return table[static_cast<std::size_t>(key)];
}

static_assert(inDeclarationOrder(riskTierTable, &RiskTierInfo::tier));
static_assert(inDeclarationOrder(categoryGroupTable, &CategoryGroupInfo::group));
static_assert(inDeclarationOrder(storageCategoryTable, &StorageCategoryInfo::category));

std::string upper(std::string_view text) {
    std::string out(text);
    for (auto& c : out) c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
    return out;
}

std::string normalised(std::string_view text) {
    std::string out;
    for (char c : text) {
        if (c == '_') continue;
        out += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    }
    return out;
}


} // namespace

const RiskTierInfo& info(RiskTier tier) { return lookup(riskTierTable, tier); }
const CategoryGroupInfo& info(CategoryGroup group) { return lookup(categoryGroupTable, group); }
const StorageCategoryInfo& info(StorageCategory category) { return lookup(storageCategoryTable, category); }

std::string_view rawValue(RiskTier tier) { return info(tier).rawValue; }
std::string_view rawValue(CategoryGroup group) { return info(group).rawValue; }
std::string_view rawValue(StorageCategory category) { return info(category).rawValue; }
std::string_view displayName(RiskTier tier) { return info(tier).displayName; }
std::string_view displayName(CategoryGroup group) { return info(group).displayName; }
std::string_view displayName(StorageCategory category) { return info(category).displayName; }
RiskTier defaultRiskTier(StorageCategory category) { return info(category).defaultRiskTier; }

std::optional<RiskTier> riskTierFromRawValue(std::string_view raw) {
    for (const auto& row : riskTierTable) {
        if (row.rawValue == raw) return row.tier;
    }
    return std::nullopt;
}

std::optional<CategoryGroup> categoryGroupFromRawValue(std::string_view raw) {
    for (const auto& row : categoryGroupTable) {
        if (row.rawValue == raw) return row.group;
    }
    return std::nullopt;
}

std::optional<StorageCategory> storageCategoryFromRawValue(std::string_view raw) {
    for (const auto& row : storageCategoryTable) {
        if (row.rawValue == raw) return row.category;
    }
    return std::nullopt;
}

std::optional<StorageCategory> parseStorageCategory(std::string_view text) {
    if (auto exact = storageCategoryFromRawValue(text)) return exact;
    if (auto upperCased = storageCategoryFromRawValue(upper(text))) return upperCased;
    const std::string wanted = normalised(text);
    for (const auto& row : storageCategoryTable) {
        if (normalised(row.rawValue) == wanted) return row.category;
    }
    return std::nullopt;
}

std::array<StorageCategory, 16> allStorageCategories() {
    std::array<StorageCategory, 16> out{};
    for (std::size_t i = 0; i < out.size(); ++i) out[i] = storageCategoryTable[i].category;
    return out;
}

CategorySet allStorageCategorySet() {
    auto all = allStorageCategories();
    return CategorySet(all.begin(), all.end());
}

void to_json(nlohmann::json& j, RiskTier tier) { j = std::string(rawValue(tier)); }
void from_json(const nlohmann::json& j, RiskTier& tier) {
    auto raw = j.get<std::string>();
    auto parsed = riskTierFromRawValue(raw);
    if (!parsed) coding::badRawValue("RiskTier", raw);
    tier = *parsed;
}

void to_json(nlohmann::json& j, CategoryGroup group) { j = std::string(rawValue(group)); }
void from_json(const nlohmann::json& j, CategoryGroup& group) {
    auto raw = j.get<std::string>();
    auto parsed = categoryGroupFromRawValue(raw);
    if (!parsed) coding::badRawValue("CategoryGroup", raw);
    group = *parsed;
}

void to_json(nlohmann::json& j, StorageCategory category) { j = std::string(rawValue(category)); }
void from_json(const nlohmann::json& j, StorageCategory& category) {
    auto raw = j.get<std::string>();
    auto parsed = storageCategoryFromRawValue(raw);
    if (!parsed) coding::badRawValue("StorageCategory", raw);
    category = *parsed;
}

} // namespace unbulk
