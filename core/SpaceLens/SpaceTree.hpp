#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "Models/SpaceNode.hpp"
#include "Support/Dates.hpp"
#include "Support/TextSink.hpp"
#include "Support/Uuid.hpp"

namespace unbulk {

// A space lens tree in compact form: each opened directory's children in one
// contiguous run of fixed-size nodes, in their final order, and their names
// in one buffer beside them. A node holds its own name only; paths and URLs
// are made from the names on the way down, when they are written. A folder
// of a million files is a million small nodes and their names, nothing more.
//
// It says everything a SpaceNode tree says (toSpaceNode() gives that record),
// and writeJson() streams the record's JSON from it without building either.
class SpaceTree {
public:
    static constexpr std::uint32_t noChildren = UINT32_MAX;

    struct Node {
        Uuid id;
        std::int64_t allocatedSizeBytes = 0;
        std::int64_t logicalSizeBytes = 0;
        std::int64_t itemCount = 0;
        Date lastAccessedDate{};
        Date lastModifiedDate{};
        std::uint64_t nameOffset = 0; // in the names of the run that holds the node
        std::uint32_t nameLength = 0;
        std::uint32_t children = noChildren; // the run of an opened directory
        bool isDirectory = false;
        bool hasDates = false; // both dates or neither: they come from one lstat
        std::optional<FileCategory> fileCategory;
    };

    // The children of one opened directory, in order.
    struct Run {
        std::vector<Node> nodes;
        std::string names;

        std::string_view name(const Node& node) const {
            return std::string_view(names).substr(node.nameOffset, node.nameLength);
        }
    };

    SpaceTree() = default;
    // `root` has its name set aside: it is the last component of `rootPath`.
    SpaceTree(std::string rootPath, Node root, std::vector<Run> runs);

    const Node& root() const { return root_; }
    const std::string& rootPath() const { return rootPath_; }
    std::string rootName() const;

    // The run of an opened directory; nothing for a leaf or a directory cut
    // off by depth (an unreadable opened directory has an empty run).
    const Run* children(const Node& node) const {
        return node.children == noChildren ? nullptr : &runs_[node.children];
    }

    // The record, with every node's path and URL spelled out.
    SpaceNode toSpaceNode() const;

    std::size_t runCount() const { return runs_.size(); }

private:
    std::string rootPath_;
    Node root_;
    std::vector<Run> runs_;
};

// How writeJson shares the writing among threads; the text is the same
// whatever it says. The children of a run that holds at least `parallelFrom`
// nodes (its descendants' included) are written in batches of about
// `batchNodes` nodes on as many threads as there are, and handed on in
// order; a child heavier than `bufferedUpTo` nodes is written as it goes,
// never held, so that no more than a few batches are ever held at once.
struct JsonSharing {
    std::uint64_t parallelFrom = 2048;
    std::uint64_t batchNodes = 256;
    std::uint64_t bufferedUpTo = 16384;
};

// Exactly the bytes of json::pretty(toJson(tree.toSpaceNode(), dates)),
// handed to `write` in pieces of whole characters, in order and one at a
// time (from any thread), as they are made: no document and no whole text
// is ever held.
void writeJson(const SpaceTree& tree, DateEncoding dates, const TextSink& write, JsonSharing sharing = {});

} // namespace unbulk
