#include "Scanner/RulePathResolver.hpp"

#include <algorithm>
#include <unordered_set>

#include "Rules/GlobMatcher.hpp"
#include "Support/Paths.hpp"

namespace unbulk::RulePathResolver {
namespace {

bool hasWildcard(std::string_view text) { return text.find_first_of("*?") != std::string_view::npos; }

void append(std::vector<FileURL>& to, std::vector<FileURL> more) {
    to.insert(to.end(), std::make_move_iterator(more.begin()), std::make_move_iterator(more.end()));
}

} // namespace

std::vector<FileURL> resolveMatchingPaths(std::string_view pattern, const FileURL& homeURL,
                                          const FileSystem& fileSystem) {
    std::string expanded = GlobMatcher::expandHome(pattern, homeURL);
    if (expanded.ends_with("/**")) expanded.resize(expanded.size() - 3);

    if (!hasWildcard(expanded)) {
        if (auto url = fileSystem.existingURL(expanded)) return {*url};
        return {};
    }

    const std::vector<std::string> pieces = paths::components(expanded);
    if (pieces.empty()) return {};
    const auto firstWildcard =
        std::find_if(pieces.begin(), pieces.end(), [](const std::string& piece) { return hasWildcard(piece); });
    std::string base = "/";
    for (auto it = pieces.begin(); it != firstWildcard; ++it)
        base = paths::appending(base, *it);
    const auto baseURL = fileSystem.existingURL(base);
    if (!baseURL) return {};

    const std::vector<FileURL> resolved =
        resolveSegments(*baseURL, std::vector<std::string>(firstWildcard, pieces.end()), fileSystem);
    std::vector<FileURL> unique;
    std::unordered_set<std::string> seen;
    for (const auto& url : resolved) {
        if (seen.insert(url.standardized().path()).second) unique.push_back(url);
    }
    return unique;
}

std::vector<FileURL> resolveSegments(const FileURL& base, const std::vector<std::string>& remainingSegments,
                                     const FileSystem& fileSystem) {
    if (remainingSegments.empty()) return {base};
    const std::string& segment = remainingSegments.front();
    const std::vector<std::string> rest(remainingSegments.begin() + 1, remainingSegments.end());

    if (segment == "**") {
        // Zero directories first, then every directory below as the anchor of
        // the rest.
        std::vector<FileURL> out = resolveSegments(base, rest, fileSystem);
        WalkCallbacks callbacks;
        callbacks.visit = [&](const WalkEntry& entry) {
            if (entry.kind == FileKind::symbolicLink) return WalkAction::skipDescendants;
            if (entry.kind == FileKind::directory)
                append(out, resolveSegments(FileURL(entry.path, true), rest, fileSystem));
            return WalkAction::proceed;
        };
        callbacks.onError = [](const std::string&, std::error_code, WalkFailure) {};
        fileSystem.walk(base.path(), {.status = WalkStatus::none, .skipHiddenFiles = true}, callbacks);
        return out;
    }

    if (!hasWildcard(segment)) {
        const auto next = fileSystem.existingURL(paths::appending(base.path(), segment));
        if (!next) return {};
        if (rest.empty()) return {*next};
        return resolveSegments(*next, rest, fileSystem);
    }

    std::error_code error;
    const auto entries = fileSystem.contentsOfDirectory(base.path(), {.skipHiddenFiles = true}, error);
    if (error) return {};
    std::vector<FileURL> out;
    for (const auto& entry : entries) {
        if (entry.kind == FileKind::symbolicLink) continue;
        if (!GlobMatcher::matchWildcard(segment, entry.name)) continue;
        const FileURL url = base.appending(entry.name, entry.kind == FileKind::directory);
        if (rest.empty()) {
            out.push_back(url); // the last segment takes files and directories alike
        } else if (entry.kind == FileKind::directory) {
            append(out, resolveSegments(url, rest, fileSystem));
        }
    }
    return out;
}

} // namespace unbulk::RulePathResolver
