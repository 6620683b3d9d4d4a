#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "Models/SpaceNode.hpp"
#include "SpaceLens/SpaceTree.hpp"
#include "Platform/FileSystem.hpp"
#include "Platform/FileTypes.hpp"
#include "Support/Cancellation.hpp"
#include "Support/NoSuchFileError.hpp"
#include "Support/ItemProgress.hpp"

namespace unbulk {

// What a space lens tree keeps of what it measures: the nodes down to
// `depth` levels below the root, and in each opened directory the `children`
// largest (the first finished among equals). Whatever is not kept is
// measured all the same and counts in the sizes above it; a kept directory
// whose children are not kept shows none.
struct SpaceLensRetention {
    std::int64_t depth = INT64_MAX;
    std::size_t children = SIZE_MAX;
};

// Measures a directory as a tree for disk-usage analysis: nodes down to a
// depth limit, sizes rolled up from the leaves, children largest first,
// every leaf classified. Below the limit it builds no nodes but still
// measures everything, so the sizes at the visible level are true. Each
// opened directory is read once, its files examined as they are read and
// its subdirectories and links built in parallel. Hard links count every
// time they are met. At the opened levels a symbolic link to a directory
// opens as that directory and a dangling one is left out; below them, in the
// recursive measure, links are not followed.
class SpaceLensEngine {
public:
    SpaceLensEngine(std::shared_ptr<FileSystem> fileSystem, std::shared_ptr<FileTypes> fileTypes);

    // The root at depth 0. Throws NoSuchFileError when nothing is at `url`, and
    // CancellationError when stop is requested. `progress` hears of every
    // leaf and every measured entry below the opened levels.
    SpaceNode scanDirectory(const FileURL& url, std::int64_t maxDepth, StopToken stop = {},
                            const ItemProgress& progress = {}) const;

    // The same tree in compact form, of which scanDirectory gives the record;
    // with a retention, only what it keeps.
    SpaceTree scanTree(const FileURL& url, std::int64_t maxDepth, StopToken stop = {},
                       const ItemProgress& progress = {}, SpaceLensRetention retention = {}) const;

    // Files, package leaves and directories cut off by depth (never an opened
    // directory) that are at least `minSize` (allocated or logical), whose
    // last access (else modification) is at least `minAgeSeconds` before
    // `now`, and of `category`; largest first.
    static std::vector<SpaceNode> filter(const SpaceNode& root, std::optional<std::int64_t> minSize,
                                         std::optional<double> minAgeSeconds, std::optional<FileCategory> category,
                                         Date now);

    struct Measure {
        std::int64_t allocated = 0;
        std::int64_t logical = 0;
        std::int64_t count = 0;
    };

    // Every regular file below `path`, package contents aside (a package
    // inside is skipped whole), hidden files included; the count at least 1.
    Measure recursiveMeasure(const std::string& path) const;

private:
    std::shared_ptr<FileSystem> fileSystem_;
    std::shared_ptr<FileTypes> fileTypes_;
};

} // namespace unbulk
