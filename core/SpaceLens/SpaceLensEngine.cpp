#include "SpaceLens/SpaceLensEngine.hpp"

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <functional>
#include <mutex>
#include <span>

#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>

#include "Platform/TreeMeasure.hpp"
#include "SpaceLens/FileCategorizer.hpp"
#include "Support/CheckedMath.hpp"
#include "Support/Paths.hpp"

namespace unbulk {

SpaceLensEngine::SpaceLensEngine(std::shared_ptr<FileSystem> fileSystem, std::shared_ptr<FileTypes> fileTypes)
    : fileSystem_(std::move(fileSystem)), fileTypes_(std::move(fileTypes)) {}

namespace {

// What a file that is not a directory weighs: its own bytes when it is a
// regular file (whose status is then at hand), nothing otherwise, and one
// item either way.
SpaceLensEngine::Measure entryMeasure(FileKind kind, const FileStatus* status) {
    if (kind != FileKind::regular || status == nullptr) return {0, 0, 1};
    return {status->allocatedSize, status->size, 1};
}

} // namespace

SpaceLensEngine::Measure SpaceLensEngine::recursiveMeasure(const std::string& path) const {
    // Every name of a file counts, with its bytes (no inode set here).
    const ItemTree item = measureItemTree(*fileSystem_, path, LinkAtItem::asLink,
                                          {.status = WalkStatus::regularFiles, .descendIntoPackages = false});
    if (!item.exists()) return {};
    if (!item.tree) return entryMeasure(item.own->kind, &*item.own);
    const TreeMeasure& tree = *item.tree;
    return {tree.files.allocatedBytes, tree.files.logicalBytes, std::max<std::int64_t>(tree.files.count, 1)};
}

namespace {

using Node = SpaceTree::Node;
using Run = SpaceTree::Run;

// The directories open above a node, innermost first, for telling a link
// that leads back into its own tree.
struct Ancestor {
    Identity identity;
    const Ancestor* parent = nullptr;

    bool contains(const Identity& other) const {
        for (const Ancestor* at = this; at != nullptr; at = at->parent) {
            if (at->identity == other) return true;
        }
        return false;
    }
};

struct Totals {
    std::int64_t allocated = 0;
    std::int64_t logical = 0;
    std::int64_t count = 0;

    void add(std::int64_t moreAllocated, std::int64_t moreLogical, std::int64_t moreCount) {
        allocated = checkedAdd(allocated, moreAllocated);
        logical = checkedAdd(logical, moreLogical);
        count = checkedAdd(count, moreCount);
    }
    void add(const Node& node) { add(node.allocatedSizeBytes, node.logicalSizeBytes, node.itemCount); }
};

// A node dated by its own lstat (a link's own, never its target's).
Node datedNode(const FileStatus& own) {
    Node node;
    node.hasDates = true;
    node.lastAccessedDate = own.accessDate;
    node.lastModifiedDate = own.modificationDate;
    return node;
}

// A leaf as its own lstat describes it: a file's bytes, a link's own.
Node leafOf(const FileStatus& own) {
    Node node = datedNode(own);
    if (own.kind == FileKind::regular || own.kind == FileKind::symbolicLink) {
        node.allocatedSizeBytes = own.allocatedSize;
        node.logicalSizeBytes = own.size;
    }
    node.itemCount = 1;
    return node;
}

// The children a directory keeps, as they finish, each with the ticket of
// its finishing. In the end: largest first, the first finished first among
// equals. Keeping a few keeps only the best so far.
class Children {
public:
    explicit Children(std::size_t limit) : limit_(limit) {}

    void add(const Node& child, std::uint32_t ticket) {
        if (limit_ == 0) return;
        const Rank rank{child.allocatedSizeBytes, ticket};
        if (limit_ != SIZE_MAX) {
            if (kept_.size() == limit_ && !(rank < ranks_.back())) return;
            const auto at = std::upper_bound(ranks_.begin(), ranks_.end(), rank);
            kept_.insert(kept_.begin() + (at - ranks_.begin()), child);
            ranks_.insert(at, rank);
            if (kept_.size() > limit_) {
                kept_.pop_back();
                ranks_.pop_back();
            }
            return;
        }
        kept_.push_back(child);
        ranks_.push_back(rank);
    }

    std::vector<Node>& nodes() { return kept_; }

    // Puts the nodes in their final order. A folder of a million files is
    // sorted through a permutation applied in place, cycle by cycle, so
    // that its nodes are held once, not twice.
    void sort() {
        std::vector<std::uint32_t> order(kept_.size());
        for (std::uint32_t i = 0; i < order.size(); ++i) order[i] = i;
        std::sort(order.begin(), order.end(), [&](std::uint32_t a, std::uint32_t b) { return ranks_[a] < ranks_[b]; });
        ranks_.clear();
        ranks_.shrink_to_fit();
        for (std::size_t start = 0; start < order.size(); ++start) {
            if (order[start] == start) continue;
            const Node held = kept_[start];
            std::size_t at = start;
            for (;;) {
                const std::size_t from = order[at];
                order[at] = static_cast<std::uint32_t>(at);
                if (from == start) {
                    kept_[at] = held;
                    break;
                }
                kept_[at] = kept_[from];
                at = from;
            }
        }
    }

private:
    struct Rank {
        std::int64_t allocated;
        std::uint32_t ticket;
        bool operator<(const Rank& other) const {
            return allocated != other.allocated ? allocated > other.allocated : ticket < other.ticket;
        }
    };

    std::size_t limit_;
    std::vector<Node> kept_;
    std::vector<Rank> ranks_;
};

// One scan: the nodes as they are measured, and the runs of children that
// the kept directories hand in as they finish.
class TreeBuilder {
public:
    TreeBuilder(const SpaceLensEngine& engine, const FileSystem& fileSystem, const FileTypes& fileTypes,
                std::int64_t maxDepth, SpaceLensRetention retention, StopToken stop, const ItemProgress& progress)
        : engine_(engine), fileSystem_(fileSystem), fileTypes_(fileTypes), maxDepth_(maxDepth),
          retention_(retention), stop_(std::move(stop)), progress_(progress) {}

    // The node of `path` at `depth`; nothing when nothing is there (a
    // dangling link among them). `parent` is the directory that holds it,
    // when that is held open. `own` is its lstat when the listing that
    // found it has made one already.
    std::optional<Node> build(const std::string& path, const OpenDirectory* parent, std::int64_t depth,
                              const Ancestor* ancestors, std::optional<FileStatus> own = std::nullopt);
    // The same for a directory a listing found, which made no lstat of it:
    // the reading of the directory describes it.
    std::optional<Node> buildListedDirectory(const std::string& path, const OpenDirectory* parent, std::int64_t depth,
                                             const Ancestor* ancestors);

    std::vector<Run> takeRuns() { return std::move(runs_); }

private:
    // An opened directory's entries: its files are leaves already, its
    // directories and links wait to be built.
    struct Listing {
        struct Pending {
            std::uint64_t nameOffset;
            std::uint32_t nameLength;
            std::optional<FileStatus> own; // a link's lstat; none for a directory
        };
        explicit Listing(std::size_t kept) : children(kept) {}
        Children children;
        Totals totals;
        std::string names; // every name listed, in the order listed
        std::vector<Pending> pending;
        std::uint32_t finished = 0;
    };

    // A directory kept open while its entries are built, so that each is
    // opened relative to it rather than by its whole path again. Each level
    // of a deep tree holds its own while the levels below are built, so at
    // most maximumHeld are held at once across all builds; past that the
    // entries are opened by path.
    class Hold {
    public:
        Hold(std::atomic<int>& count, bool wanted) : count_(count), held_(wanted && count.fetch_add(1) < maximumHeld) {
            if (wanted && !held_) count_.fetch_sub(1);
        }
        ~Hold() {
            if (held_) count_.fetch_sub(1);
        }
        Hold(const Hold&) = delete;
        Hold& operator=(const Hold&) = delete;
        bool held() const { return held_; }

    private:
        static constexpr int maximumHeld = 32;
        std::atomic<int>& count_;
        bool held_;
    };

    bool readDirectory(const std::string& path, const OpenDirectory* parent, std::int64_t depth,
                       const Ancestor* ancestors, Node& node, FileStatus& opened);
    bool openChildren(const std::string& path, const OpenDirectory* parent, std::int64_t depth,
                      const Ancestor* ancestors, Node& node, FileStatus& opened);
    void buildPending(const std::string& path, const OpenDirectory* directory, std::int64_t depth, const Ancestor& here,
                      Listing& listing);
    Run keptRun(Listing& listing) const;
    bool measureCutOff(const std::string& path, const OpenDirectory* parent, Node& node, FileStatus& opened);
    std::unique_ptr<OpenDirectory> readOneLevel(const std::string& path, const OpenDirectory* parent, WalkStatus status,
                                                const std::function<void(const DirectoryItem&)>& visit);
    std::uint32_t keep(Run run) {
        std::lock_guard lock(runsMutex_);
        runs_.push_back(std::move(run));
        return static_cast<std::uint32_t>(runs_.size() - 1);
    }
    void assignIds(std::vector<Node>& nodes) const;
    void markUnreadable(Node& node, std::int64_t depth);

    const SpaceLensEngine& engine_;
    const FileSystem& fileSystem_;
    const FileTypes& fileTypes_;
    const std::int64_t maxDepth_;
    const SpaceLensRetention retention_;
    const StopToken stop_;
    const ItemProgress& progress_;
    std::mutex runsMutex_;
    std::vector<Run> runs_;
    std::atomic<int> heldDirectories_{0};
};

std::optional<Node> TreeBuilder::build(const std::string& path, const OpenDirectory* parent, std::int64_t depth,
                                       const Ancestor* ancestors, std::optional<FileStatus> own) {
    // What is read about the entry itself (dates, a leaf's sizes, being a
    // package) is its own lstat. Whether it is a directory is asked following
    // links, so a link to a directory opens as that directory and a dangling
    // link is nothing (and left out by its parent); for anything but a link
    // the two answers are one.
    PlatformError error;
    if (!own) own = fileSystem_.linkStatus(path, error);
    if (!own) return std::nullopt;
    const bool isLink = own->kind == FileKind::symbolicLink;
    const auto followed = isLink ? fileSystem_.status(path, error) : own;
    if (!followed) return std::nullopt;
    // A link back to a directory that is open above it would open the same
    // tree again at every level: it stays a leaf of its own size.
    const bool loops = isLink && ancestors != nullptr && ancestors->contains(followed->identity());
    const bool isDirectory = followed->kind == FileKind::directory && !loops;
    const bool isPackage = isDirectory && !isLink && fileSystem_.isPackage(path);

    if (!isDirectory || (isPackage && depth > 0)) {
        Node node = leafOf(*own);
        node.isDirectory = isDirectory;
        if (isPackage) {
            const SpaceLensEngine::Measure measure = engine_.recursiveMeasure(path);
            node.allocatedSizeBytes = measure.allocated;
            node.logicalSizeBytes = measure.logical;
        }
        node.fileCategory = FileCategorizer::categorize(paths::lastComponent(path), fileTypes_);
        if (progress_) progress_(path, node.allocatedSizeBytes);
        return node;
    }

    Node node = datedNode(*own);
    node.isDirectory = true;
    FileStatus opened;
    if (!readDirectory(path, parent, depth, ancestors, node, opened)) markUnreadable(node, depth);
    return node;
}

// Unreadable: no sizes, no items, and an empty children array whatever the
// depth.
void TreeBuilder::markUnreadable(Node& node, std::int64_t depth) {
    node.allocatedSizeBytes = 0;
    node.logicalSizeBytes = 0;
    node.itemCount = 0;
    if (depth < retention_.depth) node.children = keep(Run{});
}

std::optional<Node> TreeBuilder::buildListedDirectory(const std::string& path, const OpenDirectory* parent,
                                                      std::int64_t depth, const Ancestor* ancestors) {
    // A package below the top stays shut: its lstat dates it.
    if (depth > 0 && fileSystem_.isPackage(path)) return build(path, parent, depth, ancestors);
    Node node;
    node.isDirectory = true;
    FileStatus opened;
    if (!readDirectory(path, parent, depth, ancestors, node, opened)) {
        // Gone, no longer a directory, or unreadable: what is there now
        // decides, and a directory is not read a second time.
        PlatformError error;
        const std::optional<FileStatus> own = fileSystem_.linkStatus(path, error);
        if (!own) return std::nullopt;
        if (own->kind != FileKind::directory) return build(path, parent, depth, ancestors, own);
        node = datedNode(*own);
        node.isDirectory = true;
        markUnreadable(node, depth);
        return node;
    }
    node.hasDates = true;
    node.lastAccessedDate = opened.accessDate;
    node.lastModifiedDate = opened.modificationDate;
    return node;
}

// Reads the directory into `node`: its entries opened above the depth
// limit, measured whole at it. `opened` is what the reading opened. False
// when the directory cannot be read.
bool TreeBuilder::readDirectory(const std::string& path, const OpenDirectory* parent, std::int64_t depth,
                                const Ancestor* ancestors, Node& node, FileStatus& opened) {
    const bool read = depth < maxDepth_ ? openChildren(path, parent, depth, ancestors, node, opened)
                                        : measureCutOff(path, parent, node, opened);
    if (read) node.itemCount = std::max<std::int64_t>(node.itemCount, 1);
    return read;
}

// The directory is read once, each entry examined relative to it as it is
// read: a file is a leaf there and then, and only directories and links are
// built further, in parallel, each first looking for a stop. False when the
// directory cannot be read.
bool TreeBuilder::openChildren(const std::string& path, const OpenDirectory* parent, std::int64_t depth,
                               const Ancestor* ancestors, Node& node, FileStatus& opened) {
    const bool keepsChildren = depth < retention_.depth;
    Listing listing(keepsChildren ? retention_.children : 0);
    // Each file a leaf, each directory or link pending. A directory needs no
    // lstat here: its own reading dates it.
    std::unique_ptr<OpenDirectory> directory =
        readOneLevel(path, parent, WalkStatus::allButDirectories, [&](const DirectoryItem& entry) {
            const std::uint64_t offset = listing.names.size();
            listing.names += entry.name;
            const auto length = static_cast<std::uint32_t>(entry.name.size());
            if (entry.kind == FileKind::directory || entry.kind == FileKind::symbolicLink) {
                std::optional<FileStatus> own;
                if (entry.status != nullptr) own = *entry.status;
                listing.pending.push_back({offset, length, own});
                return;
            }
            Node leaf = leafOf(*entry.status);
            leaf.nameOffset = offset;
            leaf.nameLength = length;
            listing.totals.add(leaf);
            listing.children.add(leaf, ++listing.finished);
            if (progress_) progress_(paths::appending(path, entry.name), leaf.allocatedSizeBytes);
        });
    if (!directory) return false;
    opened = directory->status();
    const Ancestor here{opened.identity(), ancestors};
    const Hold hold(heldDirectories_, !listing.pending.empty());
    if (!hold.held()) directory.reset();
    buildPending(path, directory.get(), depth, here, listing);

    node.allocatedSizeBytes = listing.totals.allocated;
    node.logicalSizeBytes = listing.totals.logical;
    node.itemCount = listing.totals.count;
    if (keepsChildren) node.children = keep(keptRun(listing));
    return true;
}

// Opens the directory (relative to `parent`, whose entry it is, when that
// is held open) and shows `visit` each of its entries (examined as `status`
// asks), none of their descendants, looking for a stop before each. Answers
// the directory, still open, or nothing when it cannot be opened or read.
std::unique_ptr<OpenDirectory> TreeBuilder::readOneLevel(const std::string& path, const OpenDirectory* parent,
                                                         WalkStatus status,
                                                         const std::function<void(const DirectoryItem&)>& visit) {
    PlatformError error;
    // An entry's path is its parent's and its name (paths::appending).
    const std::string_view name = std::string_view(path).substr(path.rfind('/') + 1);
    std::unique_ptr<OpenDirectory> directory =
        parent != nullptr ? parent->openEntry(name, path, error) : fileSystem_.openDirectory(path, error);
    if (!directory) return nullptr;
    bool cancelled = false;
    const std::error_code failure = directory->read(status, true, [&](const DirectoryItem& entry) {
        if (stop_.stopRequested()) {
            cancelled = true;
            return false;
        }
        visit(entry);
        return true;
    });
    if (cancelled) throw CancellationError{};
    if (failure) return nullptr;
    return directory;
}

// Builds the pending directories and links in parallel; each adds to the
// totals and offers itself to the children as it finishes.
void TreeBuilder::buildPending(const std::string& path, const OpenDirectory* directory, std::int64_t depth,
                               const Ancestor& here, Listing& listing) {
    std::mutex mutex; // for what the parallel builds hand in
    std::atomic<bool> stopped{false};
    const auto& pending = listing.pending;
    // One pending entry: built, then added; false when a stop was asked for.
    const auto buildOne = [&](const Listing::Pending& entry) {
        if (stop_.stopRequested()) return false;
        const std::string childPath =
            paths::appending(path, std::string_view(listing.names).substr(entry.nameOffset, entry.nameLength));
        std::optional<Node> child;
        try {
            child = entry.own ? build(childPath, directory, depth + 1, &here, entry.own)
                              : buildListedDirectory(childPath, directory, depth + 1, &here);
        } catch (const CancellationError&) {
            return false;
        }
        if (!child) return true; // vanished since the listing, or a dangling link
        child->nameOffset = entry.nameOffset;
        child->nameLength = entry.nameLength;
        std::lock_guard lock(mutex);
        listing.totals.add(*child);
        listing.children.add(*child, ++listing.finished);
        return true;
    };
    tbb::parallel_for(tbb::blocked_range<std::size_t>(0, pending.size()),
                      [&](const tbb::blocked_range<std::size_t>& range) {
                          for (std::size_t i = range.begin(); i != range.end(); ++i) {
                              if (!buildOne(pending[i])) {
                                  stopped = true;
                                  return;
                              }
                          }
                      });
    if (stopped) throw CancellationError{};
}

// The children kept, in their order, with their names, classes and ids.
Run TreeBuilder::keptRun(Listing& listing) const {
    Run run;
    listing.children.sort();
    run.nodes = std::move(listing.children.nodes());
    if (retention_.children == SIZE_MAX) {
        run.names = std::move(listing.names);
    } else {
        // A few kept of many: their names alone.
        for (Node& child : run.nodes) {
            const std::uint64_t offset = run.names.size();
            run.names.append(listing.names, child.nameOffset, child.nameLength);
            child.nameOffset = offset;
        }
    }
    // Files got no class as they were listed: only those kept need one.
    tbb::parallel_for(tbb::blocked_range<std::size_t>(0, run.nodes.size()), [&](const tbb::blocked_range<std::size_t>& range) {
        for (std::size_t i = range.begin(); i != range.end(); ++i) {
            Node& child = run.nodes[i];
            if (!child.isDirectory && !child.fileCategory) {
                child.fileCategory = FileCategorizer::categorize(run.name(child), fileTypes_);
            }
        }
    });
    assignIds(run.nodes);
    return run;
}

// At the depth limit: no nodes, every entry measured whole. False when the
// directory cannot be read.
bool TreeBuilder::measureCutOff(const std::string& path, const OpenDirectory* parent, Node& node, FileStatus& opened) {
    Totals totals;
    std::vector<std::string> directories;
    const auto directory = readOneLevel(path, parent, WalkStatus::regularFiles, [&](const DirectoryItem& entry) {
        if (entry.kind == FileKind::directory) {
            directories.push_back(paths::appending(path, entry.name));
            return;
        }
        const SpaceLensEngine::Measure measure = entryMeasure(entry.kind, entry.status);
        totals.add(measure.allocated, measure.logical, measure.count);
        if (progress_) progress_(paths::appending(path, entry.name), measure.allocated);
    });
    if (!directory) return false;
    opened = directory->status();
    for (const std::string& below : directories) {
        throwIfCancelled(stop_);
        const SpaceLensEngine::Measure measure = engine_.recursiveMeasure(below);
        totals.add(measure.allocated, measure.logical, measure.count);
        if (progress_) progress_(below, measure.allocated);
    }
    node.allocatedSizeBytes = totals.allocated;
    node.logicalSizeBytes = totals.logical;
    node.itemCount = totals.count;
    return true;
}

// Ids come in batches: one read of the system's random source per node
// would cost more than the rest of a scan of a folder of small files.
void TreeBuilder::assignIds(std::vector<Node>& nodes) const {
    std::array<Uuid, 512> batch;
    for (std::size_t start = 0; start < nodes.size(); start += batch.size()) {
        const std::size_t count = std::min(batch.size(), nodes.size() - start);
        Uuid::fillRandom(std::span(batch.data(), count));
        for (std::size_t i = 0; i < count; ++i) nodes[start + i].id = batch[i];
    }
}

} // namespace

SpaceNode SpaceLensEngine::scanDirectory(const FileURL& url, std::int64_t maxDepth, StopToken stop,
                                         const ItemProgress& progress) const {
    return scanTree(url, maxDepth, std::move(stop), progress).toSpaceNode();
}

SpaceTree SpaceLensEngine::scanTree(const FileURL& url, std::int64_t maxDepth, StopToken stop,
                                    const ItemProgress& progress, SpaceLensRetention retention) const {
    TreeBuilder builder(*this, *fileSystem_, *fileTypes_, maxDepth, retention, std::move(stop), progress);
    std::optional<Node> root = builder.build(url.path(), nullptr, 0, nullptr);
    if (!root) throw NoSuchFileError(url.path());
    root->id = Uuid::random();
    return SpaceTree(url.path(), *root, builder.takeRuns());
}

std::vector<SpaceNode> SpaceLensEngine::filter(const SpaceNode& root, std::optional<std::int64_t> minSize,
                                               std::optional<double> minAgeSeconds,
                                               std::optional<FileCategory> category, Date now) {
    std::vector<SpaceNode> result;
    std::vector<const SpaceNode*> pending{&root};
    while (!pending.empty()) {
        const SpaceNode* node = pending.back();
        pending.pop_back();
        bool passes = !minSize || node->allocatedSizeBytes >= *minSize || node->logicalSizeBytes >= *minSize;
        if (passes && minAgeSeconds) {
            const auto date = node->lastAccessedDate ? node->lastAccessedDate : node->lastModifiedDate;
            passes = date && std::chrono::duration<double>(now - *date).count() >= *minAgeSeconds;
        }
        if (passes && category) passes = node->fileCategory == category;
        const bool opened = node->isDirectory && node->children;
        if (passes && !opened) {
            SpaceNode found = *node;
            result.push_back(std::move(found));
        }
        // Depth first, each node before its children, in their order.
        if (node->children) {
            for (auto it = node->children->rbegin(); it != node->children->rend(); ++it)
                pending.push_back(&*it);
        }
    }
    std::stable_sort(result.begin(), result.end(), [](const SpaceNode& a, const SpaceNode& b) {
        return a.allocatedSizeBytes > b.allocatedSizeBytes;
    });
    return result;
}

} // namespace unbulk
