#include "Scanner/RulePathResolver.hpp"

#include <algorithm>
#include <string>
#include <unordered_set>

#include "Rules/GlobMatcher.hpp"
#include "Support/Paths.hpp"

namespace unbulk::RulePathResolver {
namespace {

bool hasWildcard(std::string_view text) { return text.find_first_of("*?") != std::string_view::npos; }

void append(std::vector<FileURL>& to, std::vector<FileURL> more) {
    to.insert(to.end(), std::make_move_iterator(more.begin()), std::make_move_iterator(more.end()));
}

// The recursion of resolveSegments over an index into the segments. Every
// "**" makes each directory below it the anchor of the rest, so a pattern
// with several of them reaches the same directory at the same segment along
// many roads: "~/**/**/**/x" would list a home of D directories D^3 times.
// What a directory yields for a given segment does not depend on the road,
// and its paths were already given the first time, so a pair seen before
// yields nothing more. Only the order of first finding counts, and that is
// unchanged.
class SegmentResolver {
public:
    SegmentResolver(const std::vector<std::string>& segments, const FileSystem& fileSystem)
        : segments_(segments), fileSystem_(fileSystem) {}

    std::vector<FileURL> from(const FileURL& base, std::size_t index) {
        if (index == segments_.size()) return {base};
        if (!visited_.insert(std::to_string(index) + ':' + base.standardized().path()).second) return {};
        const std::string& segment = segments_[index];
        const bool last = index + 1 == segments_.size();

        if (segment == "**") {
            // Zero directories first, then every directory below as the
            // anchor of the rest.
            std::vector<FileURL> out = from(base, index + 1);
            WalkCallbacks callbacks;
            callbacks.visit = [&](const WalkEntry& entry) {
                if (entry.kind == FileKind::symbolicLink) return WalkAction::skipDescendants;
                if (entry.kind == FileKind::directory) append(out, from(FileURL(entry.path, true), index + 1));
                return WalkAction::proceed;
            };
            callbacks.onError = [](const std::string&, std::error_code, WalkFailure) {};
            fileSystem_.walk(base.path(), {.status = WalkStatus::none, .skipHiddenFiles = true}, callbacks);
            return out;
        }

        if (!hasWildcard(segment)) {
            const auto next = fileSystem_.existingURL(paths::appending(base.path(), segment));
            if (!next) return {};
            if (last) return {*next};
            return from(*next, index + 1);
        }

        PlatformError error;
        const auto entries = fileSystem_.contentsOfDirectory(base.path(), {.skipHiddenFiles = true}, error);
        if (error) return {};
        std::vector<FileURL> out;
        for (const auto& entry : entries) {
            if (entry.kind == FileKind::symbolicLink) continue;
            if (!GlobMatcher::matchWildcard(segment, entry.name)) continue;
            const FileURL url = base.appending(entry.name, entry.kind == FileKind::directory);
            if (last) {
                out.push_back(url); // the last segment takes files and directories alike
            } else if (entry.kind == FileKind::directory) {
                append(out, from(url, index + 1));
            }
        }
        return out;
    }

private:
    const std::vector<std::string>& segments_;
    const FileSystem& fileSystem_;
    std::unordered_set<std::string> visited_; // "index:standardised path"
};

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
    return SegmentResolver(remainingSegments, fileSystem).from(base, 0);
}

} // namespace unbulk::RulePathResolver
