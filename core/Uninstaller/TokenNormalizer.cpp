#include "Uninstaller/TokenNormalizer.hpp"

#include <utf8proc.h>

#include "Support/Unicode.hpp"

namespace unbulk::TokenNormalizer {
namespace {

// The pieces of the lower-cased text between characters that are not
// letters, marks or digits, empty ones left out.
std::vector<std::u32string> pieces(std::string_view text) {
    std::vector<std::u32string> out;
    const auto scalars = unicode::scalars(unicode::lowercased(text));
    if (!scalars) return out;
    std::u32string piece;
    for (char32_t scalar : *scalars) {
        if (unicode::isAlphanumeric(scalar)) {
            piece += scalar;
        } else if (!piece.empty()) {
            out.push_back(std::move(piece));
            piece.clear();
        }
    }
    if (!piece.empty()) out.push_back(std::move(piece));
    return out;
}

std::string utf8(const std::u32string& scalars) {
    std::string out;
    for (char32_t scalar : scalars)
        unicode::appendUtf8(out, scalar);
    return out;
}

bool isNumber(char32_t scalar) {
    const auto category = utf8proc_category(static_cast<utf8proc_int32_t>(scalar));
    return category == UTF8PROC_CATEGORY_ND || category == UTF8PROC_CATEGORY_NL || category == UTF8PROC_CATEGORY_NO;
}

} // namespace

std::string normalize(std::string_view text) {
    std::u32string joined;
    for (const auto& piece : pieces(text))
        joined += piece;
    return utf8(joined);
}

std::string stripTrailingDigits(std::string_view text) {
    auto scalars = unicode::scalars(text);
    if (!scalars) return std::string(text);
    std::u32string stripped = *scalars;
    while (!stripped.empty() && isNumber(stripped.back()))
        stripped.pop_back();
    return stripped.empty() ? std::string(text) : utf8(stripped);
}

std::vector<std::string> tokenize(std::string_view text) {
    std::vector<std::string> tokens;
    for (const auto& piece : pieces(text)) {
        if (piece.size() >= 2) tokens.push_back(utf8(piece));
    }
    return tokens;
}

} // namespace unbulk::TokenNormalizer
