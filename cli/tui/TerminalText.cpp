#include "tui/TerminalText.hpp"

#include <algorithm>
#include <cmath>

#include <utf8proc.h>

#include "Support/Paths.hpp"
#include "Support/Unicode.hpp"

namespace unbulk::cli::terminalText {
namespace {

constexpr char32_t replacementCharacter = 0xFFFD;
constexpr std::string_view ellipsis = "\u2026";

bool isUnprintable(utf8proc_int32_t scalar) {
    const utf8proc_category_t category = utf8proc_category(scalar);
    return category == UTF8PROC_CATEGORY_CC || category == UTF8PROC_CATEGORY_ZL || category == UTF8PROC_CATEGORY_ZP;
}

bool isRegionalIndicator(utf8proc_int32_t scalar) { return scalar >= 0x1F1E6 && scalar <= 0x1F1FF; }

int clusterWidth(std::string_view cluster) {
    int width = 0;
    int regionalIndicators = 0; // a pair of them is a flag, drawn two cells wide
    const auto* bytes = reinterpret_cast<const utf8proc_uint8_t*>(cluster.data());
    const auto size = static_cast<utf8proc_ssize_t>(cluster.size());
    for (utf8proc_ssize_t pos = 0; pos < size;) {
        utf8proc_int32_t scalar = 0;
        const utf8proc_ssize_t length = utf8proc_iterate(bytes + pos, size - pos, &scalar);
        if (length <= 0) return std::max(width, 1); // shown as one replacement character
        width = std::max(width, utf8proc_charwidth(scalar));
        if (isRegionalIndicator(scalar)) ++regionalIndicators;
        pos += length;
    }
    if (regionalIndicators >= 2) width = 2;
    return std::min(width, 2);
}

} // namespace

std::string printable(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    const auto* bytes = reinterpret_cast<const utf8proc_uint8_t*>(text.data());
    const auto size = static_cast<utf8proc_ssize_t>(text.size());
    for (utf8proc_ssize_t pos = 0; pos < size;) {
        utf8proc_int32_t scalar = 0;
        const utf8proc_ssize_t length = utf8proc_iterate(bytes + pos, size - pos, &scalar);
        if (length <= 0) {
            unicode::appendUtf8(out, replacementCharacter);
            pos += 1;
            continue;
        }
        if (isUnprintable(scalar)) {
            unicode::appendUtf8(out, replacementCharacter);
        } else {
            out.append(text.substr(static_cast<std::size_t>(pos), static_cast<std::size_t>(length)));
        }
        pos += length;
    }
    return out;
}

int displayWidth(std::string_view text) {
    if (unicode::isAscii(text)) return static_cast<int>(text.size());
    int width = 0;
    for (const std::string& cluster : unicode::graphemeClusters(text))
        width += clusterWidth(cluster);
    return width;
}

std::string truncated(std::string_view text, int width) {
    if (width <= 0) return {};
    if (displayWidth(text) <= width) return std::string(text);
    std::string out;
    int used = 0;
    for (const std::string& cluster : unicode::graphemeClusters(text)) {
        const int cells = clusterWidth(cluster);
        if (used + cells > width - 1) break;
        out += cluster;
        used += cells;
    }
    return out + std::string(ellipsis);
}

std::string truncatedAtStart(std::string_view text, int width) {
    if (width <= 0) return {};
    if (displayWidth(text) <= width) return std::string(text);
    const std::vector<std::string> clusters = unicode::graphemeClusters(text);
    std::string tail;
    int used = 0;
    for (auto it = clusters.rbegin(); it != clusters.rend(); ++it) {
        const int cells = clusterWidth(*it);
        if (used + cells > width - 1) break;
        tail.insert(0, *it);
        used += cells;
    }
    return std::string(ellipsis) + tail;
}

std::string fitted(std::string_view text, int width) {
    std::string out = truncated(text, width);
    out.append(static_cast<std::size_t>(std::max(0, width - displayWidth(out))), ' ');
    return out;
}

std::string fittedRight(std::string_view text, int width) {
    std::string out = truncated(text, width);
    return std::string(static_cast<std::size_t>(std::max(0, width - displayWidth(out))), ' ') + out;
}

std::vector<std::string> wrapped(std::string_view text, int width) {
    std::vector<std::string> lines;
    if (width <= 0) return lines;
    std::string line;
    int used = 0;
    auto flush = [&] {
        lines.push_back(line);
        line.clear();
        used = 0;
    };
    std::size_t start = 0;
    while (start <= text.size()) {
        const std::size_t blank = text.find(' ', start);
        const std::string_view word =
            text.substr(start, blank == std::string_view::npos ? std::string_view::npos : blank - start);
        start = blank == std::string_view::npos ? text.size() + 1 : blank + 1;
        if (word.empty()) continue;
        const int cells = displayWidth(word);
        if (used > 0 && used + 1 + cells > width) flush();
        if (used > 0) {
            line += ' ';
            ++used;
        }
        if (cells <= width - used) {
            line += word;
            used += cells;
            continue;
        }
        // Longer than a line: cut it where each line ends.
        for (const std::string& cluster : unicode::graphemeClusters(word)) {
            const int clusterCells = clusterWidth(cluster);
            if (used + clusterCells > width && used > 0) flush();
            line += cluster;
            used += clusterCells;
        }
    }
    if (used > 0 || lines.empty()) flush();
    return lines;
}

std::string homeRelative(std::string_view path, std::string_view homePath) {
    if (!homePath.empty() && homePath != "/" && paths::isSameOrBelow(path, homePath)) {
        return printable("~" + std::string(path.substr(homePath.size())));
    }
    return printable(path);
}

std::string grouped(std::int64_t count) {
    std::string digits = std::to_string(count < 0 ? -count : count);
    for (auto at = static_cast<std::ptrdiff_t>(digits.size()) - 3; at > 0; at -= 3)
        digits.insert(static_cast<std::size_t>(at), ",");
    return count < 0 ? "-" + digits : digits;
}

std::string shareBar(double fraction, int width) {
    if (width <= 0) return {};
    const double clamped = std::clamp(std::isfinite(fraction) ? fraction : 0.0, 0.0, 1.0);
    const int filled = static_cast<int>(std::lround(clamped * width));
    return std::string(static_cast<std::size_t>(filled), '#') +
           std::string(static_cast<std::size_t>(width - filled), ' ');
}

} // namespace unbulk::cli::terminalText
