#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>

#include "Platform/CodeSigning.hpp"
#include "Support/EnumTable.hpp"

namespace unbulk {

enum class CodeSignerCategory { applePlatform, developerId, macAppStore, adHoc, unsignedCode };

struct CodeSignerCategoryInfo {
    CodeSignerCategory value;
    std::string_view rawValue;
};

inline constexpr std::array<CodeSignerCategoryInfo, 5> codeSignerCategoryTable{{
    {CodeSignerCategory::applePlatform, "Apple Platform / OS"},
    {CodeSignerCategory::developerId, "Developer ID Application"},
    {CodeSignerCategory::macAppStore, "Mac App Store"},
    {CodeSignerCategory::adHoc, "Ad-Hoc / Self-Signed"},
    {CodeSignerCategory::unsignedCode, "Unsigned"},
}};

template <> struct EnumTable<CodeSignerCategory> {
    static constexpr std::string_view name = "CodeSignerCategory";
    static constexpr const auto& rows = codeSignerCategoryTable;
};

struct CodeSignatureReport {
    std::optional<std::string> authority;
    std::optional<std::string> teamIdentifier;
    CodeSignerCategory category = CodeSignerCategory::unsignedCode;
    bool isApplePlatformSigned = false;
    bool isHardenedRuntime = false;

    // What the signing information says, judged by the leaf certificate's
    // name alone (the chain is not checked). Nothing is the unsigned report.
    static CodeSignatureReport classify(const std::optional<SigningInformation>& signing);

    friend bool operator==(const CodeSignatureReport&, const CodeSignatureReport&) = default;
};

} // namespace unbulk
