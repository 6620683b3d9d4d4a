#pragma once

#include <array>
#include <cstddef>
#include <initializer_list>
#include <optional>
#include <set>
#include <span>
#include <string_view>

#include "Models/Categories.hpp"

namespace unbulk {

// A kind of cleanup that a host may switch off as a whole. Coarser than a
// category in places (systemCaches owns three) and finer in others (cargo owns
// no category, only its rules and its folder inside developerCache).
enum class ScanTarget { uvPython, dockerVM, xcode, aiModels, npmBun, cargo, homebrew, systemCaches, browserCaches };

using ScanTargetSet = std::set<ScanTarget>;

namespace scan_target_detail {

// A list of at most Capacity values that fits in a constexpr table row.
template <typename T, std::size_t Capacity>
class ShortList {
public:
    constexpr ShortList() = default;
    constexpr ShortList(std::initializer_list<T> values) {
        // Too many values make this a non-constant expression: the table
        // then fails to compile rather than lose an entry.
        if (values.size() > Capacity) throw "ShortList capacity exceeded";
        for (const T& value : values) values_[count_++] = value;
    }

    constexpr std::span<const T> view() const { return {values_.data(), count_}; }
    constexpr const T* begin() const { return values_.data(); }
    constexpr const T* end() const { return values_.data() + count_; }
    constexpr std::size_t size() const { return count_; }
    constexpr bool empty() const { return count_ == 0; }

private:
    std::array<T, Capacity> values_{};
    std::size_t count_ = 0;
};

} // namespace scan_target_detail

struct ScanTargetInfo {
    ScanTarget value;
    std::string_view rawValue; // the case name
    scan_target_detail::ShortList<StorageCategory, 3> ownedCategories;
    // Plain string prefixes of rule ids.
    scan_target_detail::ShortList<std::string_view, 3> ruleIdPrefixes;
    // Relative to the home directory.
    scan_target_detail::ShortList<std::string_view, 7> homeRelativePaths;
};

// In declaration order, which is the order of allCases.
inline constexpr std::array<ScanTargetInfo, 9> scanTargetTable{{
    {ScanTarget::uvPython, "uvPython", {}, {"dev.uv.", "dev.pip."},
     {".cache/uv", "Library/Caches/uv", ".cache/pip", "Library/Caches/pip"}},
    {ScanTarget::dockerVM, "dockerVM", {StorageCategory::dockerVM}, {"dev.docker."},
     {"Library/Containers/com.docker.docker"}},
    {ScanTarget::xcode, "xcode", {StorageCategory::xcodeArtifacts}, {"dev.xcode."},
     {"Library/Developer/Xcode", "Library/Developer/CoreSimulator/Caches"}},
    {ScanTarget::aiModels, "aiModels", {StorageCategory::aiModelWeights}, {"ai."},
     {".cache/huggingface", ".cache/whisper", ".ollama", ".cache/lm-studio", ".lmstudio", ".cache/vllm", ".vllm"}},
    {ScanTarget::npmBun, "npmBun", {}, {"dev.npm.", "dev.bun.", "dev.pnpm."},
     {".npm", ".bun", ".pnpm-store", ".local/share/pnpm", "Library/pnpm"}},
    {ScanTarget::cargo, "cargo", {}, {"dev.cargo."}, {".cargo"}},
    {ScanTarget::homebrew, "homebrew", {}, {"dev.homebrew."}, {"Library/Caches/Homebrew"}},
    {ScanTarget::systemCaches, "systemCaches",
     {StorageCategory::systemCaches, StorageCategory::systemLogs, StorageCategory::crashReports},
     {"sys.user.caches", "sys.user.logs", "sys.crash."}, {}},
    {ScanTarget::browserCaches, "browserCaches", {StorageCategory::browserCaches}, {"sys.browser."}, {}},
}};

template <>
struct EnumTable<ScanTarget> {
    static constexpr std::string_view name = "ScanTarget";
    static constexpr const auto& rows = scanTargetTable;
};

} // namespace unbulk
