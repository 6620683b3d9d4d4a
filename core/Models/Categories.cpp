#include "Models/Categories.hpp"

#include <algorithm>
#include <cctype>
#include <string>

namespace unbulk {
namespace {

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

std::optional<StorageCategory> parseStorageCategory(std::string_view text) {
    if (auto exact = fromRawValue<StorageCategory>(text)) return exact;
    if (auto upperCased = fromRawValue<StorageCategory>(upper(text))) return upperCased;
    const std::string wanted = normalised(text);
    for (const auto& row : storageCategoryTable) {
        if (normalised(row.rawValue) == wanted) return row.value;
    }
    return std::nullopt;
}

CategorySet allStorageCategorySet() {
    constexpr auto all = allCases<StorageCategory>();
    return CategorySet(all.begin(), all.end());
}

} // namespace unbulk
