#include "Support/Text.hpp"

namespace unbulk::text {

std::string replacingAll(std::string text, std::string_view what, std::string_view with) {
    if (what.empty()) return text;
    std::size_t at = 0;
    while ((at = text.find(what, at)) != std::string::npos) {
        text.replace(at, what.size(), with);
        at += with.size();
    }
    return text;
}

std::vector<std::string> splitNonEmpty(std::string_view text, char separator) {
    std::vector<std::string> pieces;
    std::size_t start = 0;
    while (start <= text.size()) {
        std::size_t end = text.find(separator, start);
        if (end == std::string_view::npos) end = text.size();
        if (end > start) pieces.emplace_back(text.substr(start, end - start));
        start = end + 1;
    }
    return pieces;
}

std::string joined(const std::vector<std::string>& pieces, std::string_view separator) {
    std::string out;
    for (std::size_t i = 0; i < pieces.size(); ++i) {
        if (i > 0) out += separator;
        out += pieces[i];
    }
    return out;
}

} // namespace unbulk::text
