#include "Support/Paths.hpp"

namespace unbulk::paths {

std::vector<std::string> components(std::string_view path) {
    std::vector<std::string> parts;
    std::size_t i = 0;
    while (i < path.size()) {
        while (i < path.size() && path[i] == '/') ++i;
        std::size_t start = i;
        while (i < path.size() && path[i] != '/') ++i;
        if (i > start) parts.emplace_back(path.substr(start, i - start));
    }
    return parts;
}

std::string standardize(std::string_view path) {
    if (path.empty()) return {};
    const bool absolute = path.front() == '/';
    std::vector<std::string> kept;
    for (auto& part : components(path)) {
        if (part == ".") continue;
        if (part == "..") {
            if (!kept.empty() && kept.back() != "..") {
                kept.pop_back();
            } else if (!absolute) {
                kept.push_back(part);
            }
            continue;
        }
        kept.push_back(std::move(part));
    }
    std::string out = absolute ? "/" : "";
    for (std::size_t i = 0; i < kept.size(); ++i) {
        if (i > 0) out += '/';
        out += kept[i];
    }
    if (out.empty()) out = absolute ? "/" : ".";
    return out;
}

std::string appending(std::string_view base, std::string_view component) {
    while (!component.empty() && component.front() == '/') component.remove_prefix(1);
    std::string out(base);
    if (component.empty()) return out;
    if (out.empty() || out.back() != '/') out += '/';
    out += component;
    return out;
}

std::string lastComponent(std::string_view path) {
    while (path.size() > 1 && path.back() == '/') path.remove_suffix(1);
    if (path == "/") return "/";
    auto slash = path.rfind('/');
    return std::string(slash == std::string_view::npos ? path : path.substr(slash + 1));
}

std::string deletingLastComponent(std::string_view path) {
    while (path.size() > 1 && path.back() == '/') path.remove_suffix(1);
    auto slash = path.rfind('/');
    if (slash == std::string_view::npos) return "";
    if (slash == 0) return "/";
    return std::string(path.substr(0, slash));
}

std::string pathExtension(std::string_view path) {
    std::string last = lastComponent(path);
    auto dot = last.rfind('.');
    if (dot == std::string::npos || dot == 0 || dot + 1 == last.size()) return "";
    return last.substr(dot + 1);
}

bool isSameOrBelow(std::string_view path, std::string_view root) {
    if (path == root) return true;
    return isStrictlyBelow(path, root);
}

bool isStrictlyBelow(std::string_view path, std::string_view root) {
    if (root == "/") return path.size() > 1 && path.front() == '/';
    if (path.size() <= root.size() || path.substr(0, root.size()) != root) return false;
    return path[root.size()] == '/';
}

bool isAbsolute(std::string_view path) { return !path.empty() && path.front() == '/'; }

bool isStandardizedPath(std::string_view path) {
    if (path.empty() || path == "/") return true;
    if (path.front() == '~' || path.back() == '/') return false;
    // One pass over the bytes: this runs on every path a rule is matched
    // against, so it stays a plain loop.
    const bool absolute = path.front() == '/';
    std::size_t segmentStart = absolute ? 1 : 0;
    for (std::size_t i = segmentStart; i <= path.size(); ++i) {
        if (i < path.size() && path[i] != '/') continue;
        const std::size_t length = i - segmentStart;
        if (length == 0) return false;
        if (path[segmentStart] == '.' &&
            (length == 1 || (absolute && length == 2 && path[segmentStart + 1] == '.'))) {
            return false;
        }
        segmentStart = i + 1;
    }
    return true;
}

std::string standardizingPath(std::string_view path, std::string_view homePath) {
    if (isStandardizedPath(path)) return std::string(path);

    std::string expanded;
    if (!homePath.empty() && !path.empty() && path.front() == '~' && (path.size() == 1 || path[1] == '/')) {
        expanded.reserve(homePath.size() + path.size());
        expanded.append(homePath);
        expanded.append(path.substr(1));
        path = expanded;
    }

    const bool absolute = !path.empty() && path.front() == '/';
    std::string out;
    out.reserve(path.size());
    if (absolute) out += '/';
    std::size_t i = 0;
    while (i < path.size()) {
        while (i < path.size() && path[i] == '/') ++i;
        std::size_t start = i;
        while (i < path.size() && path[i] != '/') ++i;
        std::string_view part = path.substr(start, i - start);
        if (part.empty() || part == ".") continue;
        if (absolute && part == "..") {
            std::size_t slash = out.rfind('/');
            out.resize(slash == 0 ? 1 : slash);
            continue;
        }
        if (!out.empty() && out.back() != '/') out += '/';
        out.append(part);
    }
    return out;
}

} // namespace unbulk::paths
