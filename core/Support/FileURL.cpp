#include "Support/FileURL.hpp"

#include "Support/Paths.hpp"

namespace unbulk {
namespace {

bool isAllowedInPath(unsigned char c) {
    if ((c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9')) return true;
    switch (c) {
    case '-': case '.': case '_': case '~': case '!': case '$': case '&': case '\'':
    case '(': case ')': case '*': case '+': case ',': case ';': case '=': case ':':
    case '@': case '/':
        return true;
    default:
        return false;
    }
}

int hexValue(char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
}

} // namespace

FileURL::FileURL(std::string path, bool isDirectory) : path_(std::move(path)), isDirectory_(isDirectory) {
    // A URL's path never carries the trailing slash; the flag does.
    while (path_.size() > 1 && path_.back() == '/') path_.pop_back();
}

std::string FileURL::absoluteString() const {
    std::string out = "file://" + percentEncodePath(path_);
    if (isDirectory_ && path_ != "/") out += '/';
    return out;
}

FileURL FileURL::standardized() const { return FileURL(paths::standardize(path_), isDirectory_); }

FileURL FileURL::appending(std::string_view component, bool isDirectory) const {
    return FileURL(paths::appending(path_, component), isDirectory);
}

FileURL FileURL::deletingLastComponent() const { return FileURL(paths::deletingLastComponent(path_), true); }

std::string FileURL::lastComponent() const { return paths::lastComponent(path_); }

std::optional<FileURL> FileURL::parse(std::string_view text) {
    constexpr std::string_view scheme = "file://";
    if (text.size() < scheme.size()) return std::nullopt;
    for (std::size_t i = 0; i < scheme.size(); ++i) {
        char c = text[i];
        if (c >= 'A' && c <= 'Z') c = static_cast<char>(c - 'A' + 'a');
        if (c != scheme[i]) return std::nullopt;
    }
    text.remove_prefix(scheme.size());
    auto slash = text.find('/');
    if (slash == std::string_view::npos) return std::nullopt;
    std::string_view host = text.substr(0, slash);
    if (!host.empty() && host != "localhost") return std::nullopt;
    auto decoded = percentDecode(text.substr(slash));
    if (!decoded) return std::nullopt;
    // Decided before the path is moved into the URL: the order in which
    // arguments are evaluated is the compiler's choice.
    const bool directory = *decoded == "/" || decoded->back() == '/';
    return FileURL(std::move(*decoded), directory);
}

std::string percentEncodePath(std::string_view path) {
    std::string out;
    appendPercentEncodedPath(out, path);
    return out;
}

void appendPercentEncodedPath(std::string& out, std::string_view path) {
    static constexpr char digits[] = "0123456789ABCDEF";
    out.reserve(out.size() + path.size());
    for (char ch : path) {
        auto c = static_cast<unsigned char>(ch);
        if (isAllowedInPath(c)) {
            out += ch;
        } else {
            out += '%';
            out += digits[c >> 4];
            out += digits[c & 0xF];
        }
    }
}

std::optional<std::string> percentDecode(std::string_view text) {
    std::string out;
    out.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        if (text[i] != '%') {
            out += text[i];
            continue;
        }
        if (i + 2 >= text.size()) return std::nullopt;
        int hi = hexValue(text[i + 1]);
        int lo = hexValue(text[i + 2]);
        if (hi < 0 || lo < 0) return std::nullopt;
        out += static_cast<char>(hi * 16 + lo);
        i += 2;
    }
    return out;
}

} // namespace unbulk
