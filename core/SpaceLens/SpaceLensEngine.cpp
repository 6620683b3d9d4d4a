#include "SpaceLens/SpaceLensEngine.hpp"

#include <algorithm>
#include <chrono>
#include <mutex>

#include <tbb/task_group.h>

#include "SpaceLens/FileCategorizer.hpp"
#include "Support/CheckedMath.hpp"
#include "Support/Paths.hpp"
#include "Platform/TreeMeasure.hpp"

namespace unbulk {

SpaceLensEngine::SpaceLensEngine(std::shared_ptr<FileSystem> fileSystem, std::shared_ptr<FileTypes> fileTypes)
    : fileSystem_(std::move(fileSystem)), fileTypes_(std::move(fileTypes)) {}

SpaceNode SpaceLensEngine::scanDirectory(const FileURL& url, std::int64_t maxDepth, StopToken stop,
                                         const ItemProgress& progress) const {
    return buildNode(url, 0, maxDepth, stop, progress, nullptr);
}

SpaceLensEngine::Measure SpaceLensEngine::recursiveMeasure(const std::string& path) const {
    Measure measure;
    // Every name of a file counts, with its bytes (no inode set here).
    const ItemTree item = measureItemTree(*fileSystem_, path, LinkAtItem::asLink,
                                          {.status = WalkStatus::regularFiles, .descendIntoPackages = false});
    if (!item.exists()) return measure;
    if (!item.tree) {
        const bool regular = item.own->kind == FileKind::regular;
        measure.allocated = regular ? item.own->allocatedSize : 0;
        measure.logical = regular ? item.own->size : 0;
        measure.count = 1;
        return measure;
    }
    measure.count = std::max<std::int64_t>(item.tree->files.count, 1);
    measure.allocated = item.tree->files.allocatedBytes;
    measure.logical = item.tree->files.logicalBytes;
    return measure;
}

// The directories open above a node, innermost first, for telling a link
// that leads back into its own tree.
struct SpaceLensEngine::Ancestor {
    Identity identity;
    const Ancestor* parent = nullptr;

    bool contains(const Identity& other) const {
        for (const Ancestor* at = this; at != nullptr; at = at->parent) {
            if (at->identity == other) return true;
        }
        return false;
    }
};

SpaceNode SpaceLensEngine::buildNode(const FileURL& url, std::int64_t currentDepth, std::int64_t maxDepth,
                                     StopToken stop, const ItemProgress& progress, const Ancestor* ancestors) const {
    // Whether something is there, and whether it is a directory, is asked
    // following links, so a link to a directory opens as that directory and
    // a dangling link is nothing (and left out by its parent). What is read
    // about the entry itself (dates, a leaf's sizes, being a package) is the
    // link's own.
    PlatformError error;
    const auto followed = fileSystem_->status(url.path(), error);
    if (!followed) throw NoSuchFileError(url.path());
    const auto own = fileSystem_->linkStatus(url.path(), error);
    const bool isLink = own && own->kind == FileKind::symbolicLink;
    // A link back to a directory that is open above it would open the same
    // tree again at every level: it stays a leaf of its own size.
    const bool loops = isLink && ancestors != nullptr && ancestors->contains(followed->identity());
    const bool isDirectory = followed->kind == FileKind::directory && !loops;
    const bool isPackage = isDirectory && !isLink && fileSystem_->isPackage(url.path());

    SpaceNode node = SpaceNode::make(FileURL(url.path(), isDirectory), isDirectory);
    if (own) {
        node.lastAccessedDate = own->accessDate;
        node.lastModifiedDate = own->modificationDate;
    }

    if (!isDirectory || (isPackage && currentDepth > 0)) {
        if (isPackage) {
            const Measure measure = recursiveMeasure(url.path());
            node.allocatedSizeBytes = measure.allocated;
            node.logicalSizeBytes = measure.logical;
        } else if (own && (own->kind == FileKind::regular || own->kind == FileKind::symbolicLink)) {
            node.allocatedSizeBytes = own->allocatedSize;
            node.logicalSizeBytes = own->size;
        }
        node.itemCount = 1;
        node.fileCategory = FileCategorizer::categorize(node.url, *fileTypes_);
        if (progress) progress(url.path(), node.allocatedSizeBytes);
        return node;
    }
    const Ancestor here{followed->identity(), ancestors};

    const auto entries = fileSystem_->contentsOfDirectory(url.path(), {.skipHiddenFiles = true}, error);
    if (error) {
        node.children = std::vector<SpaceNode>{};
        return node;
    }

    std::int64_t allocated = 0, logical = 0, count = 0;
    if (currentDepth < maxDepth) {
        // One task per entry; children are gathered as they finish, and the
        // sort below keeps that order among equals.
        std::vector<SpaceNode> children;
        std::mutex gathered;
        bool cancelled = false;
        tbb::task_group group;
        for (const auto& entry : entries) {
            group.run([&, childURL = FileURL(paths::appending(url.path(), entry.name))] {
                if (stop.stopRequested()) {
                    std::lock_guard lock(gathered);
                    cancelled = true;
                    return;
                }
                try {
                    SpaceNode child = buildNode(childURL, currentDepth + 1, maxDepth, stop, progress, &here);
                    std::lock_guard lock(gathered);
                    children.push_back(std::move(child));
                } catch (const NoSuchFileError&) {
                    // Vanished since the listing, or a dangling link: left out.
                } catch (const CancellationError&) {
                    std::lock_guard lock(gathered);
                    cancelled = true;
                }
            });
        }
        group.wait();
        // The tasks are done; what they gathered is read under their lock all the same.
        std::lock_guard lock(gathered);
        if (cancelled) throw CancellationError{};
        std::stable_sort(children.begin(), children.end(), [](const SpaceNode& a, const SpaceNode& b) {
            return a.allocatedSizeBytes > b.allocatedSizeBytes;
        });
        for (const auto& child : children) {
            allocated = checkedAdd(allocated, child.allocatedSizeBytes);
            logical = checkedAdd(logical, child.logicalSizeBytes);
            count = checkedAdd(count, child.itemCount);
        }
        node.children = std::move(children);
    } else {
        for (const auto& entry : entries) {
            throwIfCancelled(stop);
            const std::string entryPath = paths::appending(url.path(), entry.name);
            const Measure measure = recursiveMeasure(entryPath);
            if (progress) progress(entryPath, measure.allocated);
            allocated = checkedAdd(allocated, measure.allocated);
            logical = checkedAdd(logical, measure.logical);
            count = checkedAdd(count, measure.count);
        }
    }
    node.allocatedSizeBytes = allocated;
    node.logicalSizeBytes = logical;
    node.itemCount = std::max<std::int64_t>(count, 1);
    return node;
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
