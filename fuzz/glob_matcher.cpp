// Matching and home expansion of any pattern against any path: no crash, no
// hang, and a pattern without wildcards matches exactly its own expansion.
#include "Rules/GlobMatcher.hpp"
#include "FuzzSupport.hpp"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    using namespace unbulk;
    const std::string_view input = fuzz::text(data, size);
    const std::size_t split = input.find('\n');
    const std::string_view pattern = input.substr(0, split);
    const std::string_view path = split == std::string_view::npos ? std::string_view() : input.substr(split + 1);
    const FileURL home("/Users/fuzz", true);
    GlobMatcher::matches(pattern, path, home);
    GlobMatcher::matchWildcard(pattern, path);
    const std::string expanded = GlobMatcher::expandHome(pattern, home);
    GlobMatcher::normalizePath(path, home);
    if (expanded.find_first_of("*?[") == std::string::npos && !expanded.empty() && expanded.front() == '/') {
        fuzz::require(GlobMatcher::matches(pattern, GlobMatcher::normalizePath(expanded, home), home) ||
                      GlobMatcher::normalizePath(expanded, home) != expanded);
    }
    return 0;
}
