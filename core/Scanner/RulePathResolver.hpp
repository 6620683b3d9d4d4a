#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "Platform/FileSystem.hpp"
#include "Support/FileURL.hpp"

// Turns the glob of a rule into the paths that exist on disk now. The literal
// prefix of a pattern is walked without listing anything; below it a
// wildcard never passes through a symbolic link and never sees a hidden entry
// (only a literal segment can name one). What cannot be read yields nothing
// and is not reported.
namespace unbulk::RulePathResolver {

// "~" expanded; a trailing "/**" stands for the directory itself, once. The
// result holds each standardised path once, in the order first found.
std::vector<FileURL> resolveMatchingPaths(std::string_view pattern, const FileURL& homeURL,
                                          const FileSystem& fileSystem);

// The paths below `base` that the remaining segments match: "**" for zero or
// more directories, a segment with "*" or "?" against each entry's name, any
// other segment as a literal name.
std::vector<FileURL> resolveSegments(const FileURL& base, const std::vector<std::string>& remainingSegments,
                                     const FileSystem& fileSystem);

} // namespace unbulk::RulePathResolver
