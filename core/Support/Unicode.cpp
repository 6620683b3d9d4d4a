#include "Support/Unicode.hpp"

#include <algorithm>

#include <cstdlib>

#include <utf8proc.h>

namespace unbulk::unicode {

namespace {

std::string asciiLowercased(std::string_view text) {
    std::string out(text);
    for (char& c : out) {
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
    }
    return out;
}

} // namespace

bool isAscii(std::string_view text) {
    for (char c : text) {
        if (static_cast<unsigned char>(c) >= 0x80) return false;
    }
    return true;
}

std::vector<std::string> graphemeClusters(std::string_view utf8) {
    std::vector<std::string> clusters;
    const auto* bytes = reinterpret_cast<const utf8proc_uint8_t*>(utf8.data());
    const auto size = static_cast<utf8proc_ssize_t>(utf8.size());

    utf8proc_ssize_t pos = 0;
    utf8proc_ssize_t clusterStart = 0;
    utf8proc_int32_t previous = -1; // no code point yet in the current cluster
    utf8proc_int32_t state = 0;

    auto closeCluster = [&](utf8proc_ssize_t end) {
        if (end > clusterStart) {
            clusters.emplace_back(
                utf8.substr(static_cast<std::size_t>(clusterStart), static_cast<std::size_t>(end - clusterStart)));
        }
        clusterStart = end;
    };

    while (pos < size) {
        utf8proc_int32_t codepoint = 0;
        utf8proc_ssize_t length = utf8proc_iterate(bytes + pos, size - pos, &codepoint);
        if (length <= 0) {
            // A stray byte: it stands alone, and the segmentation starts
            // afresh behind it.
            closeCluster(pos);
            closeCluster(pos + 1);
            pos += 1;
            previous = -1;
            state = 0;
            continue;
        }
        if (previous >= 0 && utf8proc_grapheme_break_stateful(previous, codepoint, &state)) {
            closeCluster(pos);
        }
        previous = codepoint;
        pos += length;
    }
    closeCluster(size);
    return clusters;
}

std::string nfc(std::string_view utf8) {
    // ASCII is its own NFC form; spare the library call and its allocation.
    if (isAscii(utf8)) return std::string(utf8);
    // The options of utf8proc_NFC, but with an explicit length, so that the
    // input needs no terminating copy and an embedded NUL does not cut it short.
    utf8proc_uint8_t* mapped = nullptr;
    utf8proc_ssize_t length =
        utf8proc_map(reinterpret_cast<const utf8proc_uint8_t*>(utf8.data()), static_cast<utf8proc_ssize_t>(utf8.size()),
                     &mapped, static_cast<utf8proc_option_t>(UTF8PROC_STABLE | UTF8PROC_COMPOSE));
    if (length < 0 || mapped == nullptr) {
        std::free(mapped);
        return std::string(utf8);
    }
    std::string out(reinterpret_cast<const char*>(mapped), static_cast<std::size_t>(length));
    std::free(mapped);
    return out;
}

bool canonicallyEquivalent(std::string_view a, std::string_view b) {
    if (a == b) return true;
    return nfc(a) == nfc(b);
}

std::optional<std::u32string> scalars(std::string_view utf8) {
    std::u32string out;
    out.reserve(utf8.size());
    const auto* data = reinterpret_cast<const utf8proc_uint8_t*>(utf8.data());
    std::size_t at = 0;
    while (at < utf8.size()) {
        utf8proc_int32_t value = -1;
        auto used = utf8proc_iterate(data + at, static_cast<utf8proc_ssize_t>(utf8.size() - at), &value);
        if (used <= 0 || value < 0) return std::nullopt;
        out.push_back(static_cast<char32_t>(value));
        at += static_cast<std::size_t>(used);
    }
    return out;
}

std::size_t validUtf8SequenceLength(std::string_view utf8) {
    if (utf8.empty()) return 0;
    utf8proc_int32_t value = -1;
    const auto used = utf8proc_iterate(reinterpret_cast<const utf8proc_uint8_t*>(utf8.data()),
                                       static_cast<utf8proc_ssize_t>(utf8.size()), &value);
    return used <= 0 || value < 0 ? 0 : static_cast<std::size_t>(used);
}

void appendUtf8(std::string& out, char32_t scalar) {
    utf8proc_uint8_t buffer[4];
    const auto length = utf8proc_encode_char(static_cast<utf8proc_int32_t>(scalar), buffer);
    out.append(reinterpret_cast<const char*>(buffer), static_cast<std::size_t>(length));
}

namespace {

// Maps each valid scalar through `map(scalar, previous)`, where `previous` is
// the scalar before it (0 at the start, and after a byte that is not UTF-8,
// which is kept as it is).
template <typename Map> std::string mapScalars(std::string_view text, Map map) {
    std::string out;
    out.reserve(text.size());
    char32_t previous = 0;
    std::size_t at = 0;
    while (at < text.size()) {
        const std::size_t length = validUtf8SequenceLength(text.substr(at));
        if (length == 0) {
            out += text[at++];
            previous = 0;
            continue;
        }
        utf8proc_int32_t value = 0;
        utf8proc_iterate(reinterpret_cast<const utf8proc_uint8_t*>(text.data() + at),
                         static_cast<utf8proc_ssize_t>(length), &value);
        const auto scalar = static_cast<char32_t>(value);
        appendUtf8(out, map(scalar, previous));
        previous = scalar;
        at += length;
    }
    return out;
}

char32_t lower(char32_t scalar) {
    return static_cast<char32_t>(utf8proc_tolower(static_cast<utf8proc_int32_t>(scalar)));
}

} // namespace

std::string lowercased(std::string_view text) {
    if (isAscii(text)) return asciiLowercased(text);
    return mapScalars(text, [](char32_t scalar, char32_t) { return lower(scalar); });
}

std::string uppercased(std::string_view text) {
    return mapScalars(text, [](char32_t scalar, char32_t) {
        return static_cast<char32_t>(utf8proc_toupper(static_cast<utf8proc_int32_t>(scalar)));
    });
}

std::string capitalized(std::string_view text) {
    return mapScalars(text, [](char32_t scalar, char32_t previous) {
        const bool wordStart = previous == 0 || isWhitespaceOrNewline(previous);
        if (!wordStart) return lower(scalar);
        return static_cast<char32_t>(utf8proc_totitle(static_cast<utf8proc_int32_t>(scalar)));
    });
}

std::string caseFolded(std::string_view text) {
    if (!isAscii(text) && !scalars(text)) return asciiLowercased(text);
    utf8proc_uint8_t* folded = nullptr;
    const auto length =
        utf8proc_map(reinterpret_cast<const utf8proc_uint8_t*>(text.data()), static_cast<utf8proc_ssize_t>(text.size()),
                     &folded, static_cast<utf8proc_option_t>(UTF8PROC_STABLE | UTF8PROC_COMPOSE | UTF8PROC_CASEFOLD));
    if (length < 0) return std::string(text);
    std::string out(reinterpret_cast<const char*>(folded), static_cast<std::size_t>(length));
    std::free(folded);
    return out;
}

std::string caseFoldedWithoutMarks(std::string_view text) {
    if (!isAscii(text) && !scalars(text)) return asciiLowercased(text);
    utf8proc_uint8_t* folded = nullptr;
    const auto length = utf8proc_map(
        reinterpret_cast<const utf8proc_uint8_t*>(text.data()), static_cast<utf8proc_ssize_t>(text.size()), &folded,
        static_cast<utf8proc_option_t>(UTF8PROC_STABLE | UTF8PROC_COMPOSE | UTF8PROC_CASEFOLD | UTF8PROC_STRIPMARK));
    if (length < 0) return caseFolded(text);
    std::string out(reinterpret_cast<const char*>(folded), static_cast<std::size_t>(length));
    std::free(folded);
    return out;
}

std::string nameSkeleton(std::string_view text) {
    if (!isAscii(text) && !scalars(text)) return caseFolded(text);
    utf8proc_uint8_t* mapped = nullptr;
    const auto length = utf8proc_map(
        reinterpret_cast<const utf8proc_uint8_t*>(text.data()), static_cast<utf8proc_ssize_t>(text.size()), &mapped,
        static_cast<utf8proc_option_t>(UTF8PROC_STABLE | UTF8PROC_COMPOSE | UTF8PROC_COMPAT | UTF8PROC_CASEFOLD |
                                       UTF8PROC_IGNORE));
    if (length < 0) return caseFolded(text);
    const std::string folded(reinterpret_cast<const char*>(mapped), static_cast<std::size_t>(length));
    std::free(mapped);

    // Letters of other scripts that are drawn like Latin ones (after folding,
    // so lower case only).
    static constexpr std::pair<char32_t, char> lookAlikes[] = {
        {U'\u0131', 'i'}, {U'\u0237', 'j'}, // dotless i and j
        {U'\u0430', 'a'}, {U'\u0435', 'e'}, {U'\u043E', 'o'}, {U'\u0440', 'p'}, {U'\u0441', 'c'},
        {U'\u0443', 'y'}, {U'\u0445', 'x'}, {U'\u0455', 's'}, {U'\u0456', 'i'}, {U'\u0458', 'j'},
        {U'\u04CF', 'l'}, {U'\u0501', 'd'}, {U'\u043A', 'k'}, // Cyrillic
        {U'\u03B1', 'a'}, {U'\u03B5', 'e'}, {U'\u03B9', 'i'}, {U'\u03BA', 'k'}, {U'\u03BD', 'v'},
        {U'\u03BF', 'o'}, {U'\u03C1', 'p'}, {U'\u03C5', 'u'}, // Greek
    };
    std::string out;
    out.reserve(folded.size());
    const std::u32string foldedScalars = scalars(folded).value_or(std::u32string());
    for (char32_t scalar : foldedScalars) {
        auto it = std::find_if(std::begin(lookAlikes), std::end(lookAlikes),
                               [&](const auto& entry) { return entry.first == scalar; });
        if (it != std::end(lookAlikes)) {
            out += it->second;
        } else {
            appendUtf8(out, scalar);
        }
    }
    return out;
}

bool isAlphanumeric(char32_t scalar) {
    switch (utf8proc_category(static_cast<utf8proc_int32_t>(scalar))) {
    case UTF8PROC_CATEGORY_LU:
    case UTF8PROC_CATEGORY_LL:
    case UTF8PROC_CATEGORY_LT:
    case UTF8PROC_CATEGORY_LM:
    case UTF8PROC_CATEGORY_LO:
    case UTF8PROC_CATEGORY_MN:
    case UTF8PROC_CATEGORY_MC:
    case UTF8PROC_CATEGORY_ME:
    case UTF8PROC_CATEGORY_ND:
    case UTF8PROC_CATEGORY_NL:
    case UTF8PROC_CATEGORY_NO: return true;
    default: return false;
    }
}

bool isNewline(char32_t scalar) {
    return (scalar >= 0x0A && scalar <= 0x0D) || scalar == 0x85 || scalar == 0x2028 || scalar == 0x2029;
}

bool isWhitespace(char32_t scalar) {
    return scalar == U'\t' || utf8proc_category(static_cast<utf8proc_int32_t>(scalar)) == UTF8PROC_CATEGORY_ZS;
}

bool isWhitespaceOrNewline(char32_t scalar) { return isWhitespace(scalar) || isNewline(scalar); }

std::string_view trimmingWhitespaceAndNewlines(std::string_view text) {
    std::size_t first = text.size();
    std::size_t end = 0;
    std::size_t offset = 0;
    const auto* data = reinterpret_cast<const utf8proc_uint8_t*>(text.data());
    while (offset < text.size()) {
        utf8proc_int32_t value = -1;
        auto used = utf8proc_iterate(data + offset, static_cast<utf8proc_ssize_t>(text.size() - offset), &value);
        std::size_t step = used > 0 ? static_cast<std::size_t>(used) : 1;
        if (used <= 0 || value < 0 || !isWhitespaceOrNewline(static_cast<char32_t>(value))) {
            first = std::min(first, offset);
            end = offset + step;
        }
        offset += step;
    }
    if (first >= end) return {};
    return text.substr(first, end - first);
}

} // namespace unbulk::unicode
