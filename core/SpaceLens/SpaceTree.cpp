#include "SpaceLens/SpaceTree.hpp"

#include <memory>

#include <tbb/parallel_pipeline.h>
#include <tbb/task_arena.h>

#include "SpaceLens/EscapedPath.hpp"
#include "Support/FileURL.hpp"
#include "Support/Json.hpp"
#include "Support/Paths.hpp"

namespace unbulk {
namespace {

// A child's path as paths::appending makes it, in place in `path`.
void appendComponent(std::string& path, std::string_view name) {
    if (path.empty() || path.back() != '/') path += '/';
    path += name;
}

SpaceNode recordOf(const SpaceTree& tree, const SpaceTree::Node& node, std::string path, std::string name) {
    SpaceNode out;
    out.id = node.id;
    out.url = FileURL(std::move(path), node.isDirectory);
    out.path = out.url.path();
    out.name = std::move(name);
    out.isDirectory = node.isDirectory;
    out.allocatedSizeBytes = node.allocatedSizeBytes;
    out.logicalSizeBytes = node.logicalSizeBytes;
    out.itemCount = node.itemCount;
    if (node.hasDates) {
        out.lastAccessedDate = node.lastAccessedDate;
        out.lastModifiedDate = node.lastModifiedDate;
    }
    out.fileCategory = node.fileCategory;
    if (const SpaceTree::Run* run = tree.children(node)) {
        std::vector<SpaceNode> children;
        children.reserve(run->nodes.size());
        for (const auto& child : run->nodes) {
            std::string childPath = out.path;
            appendComponent(childPath, run->name(child));
            children.push_back(recordOf(tree, child, std::move(childPath), std::string(run->name(child))));
        }
        out.children = std::move(children);
    }
    return out;
}

// Writes the pretty form of the tree, node by node, in the order and layout
// of the document writer: keys sorted, two spaces a level, an object's
// children array between its first key and the rest. A heavy run's children
// are written in batches on every thread and handed on in order.
class PrettyWriter {
public:
    // `parallelLevels`: how many nested runs may yet be shared among threads.
    PrettyWriter(const SpaceTree& tree, DateEncoding dates, const TextSink& write, const JsonSharing& sharing,
                 const std::vector<std::uint64_t>& weights, int parallelLevels)
        : tree_(tree), dates_(dates), write_(write), sharing_(sharing), weights_(weights),
          parallelLevels_(parallelLevels) {}

    void run() {
        path_.assign(tree_.rootPath());
        writeNode(tree_.root(), tree_.rootName(), 0);
        flush();
    }

private:
    // A node and everything below it, at `level`; path_ is its path.
    void writeNode(const SpaceTree::Node& node, std::string_view name, int level) {
        open(node, level);
        std::vector<Frame> stack;
        if (!enterChildren(node, level, stack, name)) close(node, name, level);
        while (!stack.empty()) {
            Frame& frame = stack.back();
            if (frame.next == frame.run->nodes.size()) {
                path_.restore(frame.path);
                endChildren(frame.level);
                const Frame finished = frame;
                stack.pop_back();
                close(*finished.owner, finished.ownerName, finished.level);
                continue;
            }
            const SpaceTree::Node& child = frame.run->nodes[frame.next];
            const std::string_view childName = frame.run->name(child);
            const int childLevel = frame.level + 1;
            startChild(frame.next++, childLevel);
            path_.restore(frame.path);
            path_.append(childName);
            open(child, childLevel);
            if (!enterChildren(child, childLevel, stack, childName)) close(child, childName, childLevel);
            flushIfFull();
        }
    }

    // What comes before a child of a children array, and after the last.
    void startChild(std::size_t index, int level) {
        out_ += index == 0 ? "\n" : ",\n";
        indent(4 * level);
    }
    void endChildren(int ownerLevel) {
        out_ += '\n';
        indent(4 * ownerLevel + 2);
        out_ += "],\n";
    }

    std::uint64_t weightOf(const SpaceTree::Node& node) const {
        return 1 + (node.children == SpaceTree::noChildren ? 0 : weights_[node.children]);
    }

    // Consecutive children of one run, written together: a batch of light
    // ones, written on any thread and held, or one heavy one, written as it
    // goes when its turn comes.
    struct Batch {
        std::size_t begin = 0;
        std::size_t end = 0;
        bool heavy = false;
        std::vector<std::string> pieces;
    };

    // The children of `run`, whose owner at `ownerLevel` has path_ for its
    // path and has opened its array; each batch is written by a writer of
    // its own and handed on in order.
    void writeChildrenShared(const SpaceTree::Run& run, int ownerLevel) {
        const EscapedPath::Mark ownerMark = path_.mark();
        const EscapedPath ownerPath = path_;
        flush();
        std::size_t next = 0;
        // In order: the next batch, light children up to about batchNodes
        // nodes, or one heavy child alone.
        const auto cut = [&](tbb::flow_control& control) -> std::shared_ptr<Batch> {
            if (next == run.nodes.size()) {
                control.stop();
                return nullptr;
            }
            auto batch = std::make_shared<Batch>();
            batch->begin = next;
            batch->heavy = weightOf(run.nodes[next]) > sharing_.bufferedUpTo;
            std::uint64_t weight = 0;
            do {
                weight += weightOf(run.nodes[next]);
                ++next;
            } while (!batch->heavy && next < run.nodes.size() && weight < sharing_.batchNodes &&
                     weightOf(run.nodes[next]) <= sharing_.bufferedUpTo);
            batch->end = next;
            return batch;
        };
        // On any thread: a light batch written by a writer of its own, held.
        const auto writeBatch = [&](std::shared_ptr<Batch> batch) {
            if (batch->heavy) return batch;
            const TextSink keep = [&](std::string_view piece) { batch->pieces.emplace_back(piece); };
            PrettyWriter writer(tree_, dates_, keep, sharing_, weights_, 0);
            writer.path_ = ownerPath;
            writer.writeChildren(run, batch->begin, batch->end, ownerLevel);
            writer.flush();
            return batch;
        };
        // In order: what a light batch holds handed on, a heavy one written
        // as it goes.
        const auto handOn = [&](std::shared_ptr<Batch> batch) {
            if (!batch->heavy) {
                for (const std::string& piece : batch->pieces)
                    write_(piece);
                return;
            }
            path_.restore(ownerMark);
            writeChildren(run, batch->begin, batch->end, ownerLevel);
            flush();
        };
        const auto tokens = static_cast<std::size_t>(2 * tbb::this_task_arena::max_concurrency());
        tbb::parallel_pipeline(
            tokens, tbb::make_filter<void, std::shared_ptr<Batch>>(tbb::filter_mode::serial_in_order, cut) &
                        tbb::make_filter<std::shared_ptr<Batch>, std::shared_ptr<Batch>>(tbb::filter_mode::parallel,
                                                                                         writeBatch) &
                        tbb::make_filter<std::shared_ptr<Batch>, void>(tbb::filter_mode::serial_in_order, handOn));
        path_.restore(ownerMark);
        endChildren(ownerLevel);
    }

    // Children [begin, end) of `run`, whole, after what comes before each.
    void writeChildren(const SpaceTree::Run& run, std::size_t begin, std::size_t end, int ownerLevel) {
        const EscapedPath::Mark ownerMark = path_.mark();
        for (std::size_t i = begin; i < end; ++i) {
            const SpaceTree::Node& child = run.nodes[i];
            startChild(i, ownerLevel + 1);
            path_.restore(ownerMark);
            path_.append(run.name(child));
            writeNode(child, run.name(child), ownerLevel + 1);
            flushIfFull();
        }
        path_.restore(ownerMark);
    }

    struct Frame {
        const SpaceTree::Node* owner;
        std::string_view ownerName;
        const SpaceTree::Run* run;
        std::size_t next;
        EscapedPath::Mark path; // the owner's, which the children extend
        int level;              // the owner's
    };

    void indent(int spaces) { out_.append(static_cast<std::size_t>(spaces), ' '); }

    void key(int level, std::string_view name) {
        indent(4 * level + 2);
        out_ += '"';
        out_ += name; // every key is plain ASCII
        out_ += "\": ";
    }

    void open(const SpaceTree::Node& node, int level) {
        out_ += "{\n";
        key(level, "allocatedSizeBytes");
        json::appendNumber(out_, node.allocatedSizeBytes);
        out_ += ",\n";
    }

    // Starts the children array; false when the node has none to open, or
    // when they are written already (shared among threads: a heavy run with
    // more than one child).
    bool enterChildren(const SpaceTree::Node& node, int level, std::vector<Frame>& stack, std::string_view name) {
        const SpaceTree::Run* run = tree_.children(node);
        if (run == nullptr) return false;
        key(level, "children");
        if (run->nodes.empty()) {
            out_ += "[],\n";
            return false;
        }
        out_ += '[';
        if (parallelLevels_ > 0 && run->nodes.size() > 1 && weights_[node.children] >= sharing_.parallelFrom) {
            --parallelLevels_;
            writeChildrenShared(*run, level);
            ++parallelLevels_;
            return false;
        }
        stack.push_back(Frame{&node, name, run, 0, path_.mark(), level});
        return true;
    }

    // Everything after the children, and the closing brace. The path is the
    // node's own.
    void close(const SpaceTree::Node& node, std::string_view name, int level) {
        if (node.fileCategory) {
            key(level, "fileCategory");
            json::appendString(out_, rawValue(*node.fileCategory));
            out_ += ",\n";
        }
        key(level, "id");
        out_ += '"'; // an id's text is plain
        node.id.appendString(out_);
        out_ += "\",\n";
        key(level, "isDirectory");
        out_ += node.isDirectory ? "true" : "false";
        out_ += ",\n";
        key(level, "itemCount");
        json::appendNumber(out_, node.itemCount);
        out_ += ",\n";
        if (node.hasDates) {
            key(level, "lastAccessedDate");
            date(node.lastAccessedDate);
            out_ += ",\n";
            key(level, "lastModifiedDate");
            date(node.lastModifiedDate);
            out_ += ",\n";
        }
        key(level, "logicalSizeBytes");
        json::appendNumber(out_, node.logicalSizeBytes);
        out_ += ",\n";
        key(level, "name");
        json::appendString(out_, name);
        out_ += ",\n";
        key(level, "path");
        out_ += '"';
        path_.appendJson(out_);
        out_ += "\",\n";
        key(level, "url");
        out_ += '"';
        path_.appendUrlJson(out_, node.isDirectory);
        out_ += '"';
        out_ += '\n';
        indent(4 * level);
        out_ += '}';
    }

    void date(Date value) {
        if (dates_ == DateEncoding::iso8601) {
            json::appendString(out_, dates::iso8601(value));
        } else {
            json::appendNumber(out_, dates::secondsSinceReferenceDate(value));
        }
    }

    // Whole tokens only are in the buffer, so any point between them is a
    // place to hand it on.
    void flushIfFull() {
        if (out_.size() >= 1 << 16) flush();
    }
    void flush() {
        if (out_.empty()) return;
        write_(out_);
        out_.clear();
    }

    const SpaceTree& tree_;
    DateEncoding dates_;
    const TextSink& write_;
    const JsonSharing& sharing_;
    const std::vector<std::uint64_t>& weights_;
    int parallelLevels_;
    std::string out_;
    EscapedPath path_;
};

// How many nodes each run holds, its descendants' included, by run index.
// Worked out bottom up without recursion, whatever the depth.
std::vector<std::uint64_t> runWeights(const SpaceTree& tree) {
    std::vector<std::uint64_t> weights(tree.runCount(), 0);
    std::vector<bool> done(tree.runCount(), false);
    if (tree.children(tree.root()) == nullptr) return weights;
    std::vector<std::pair<const SpaceTree::Node*, std::size_t>> stack{{&tree.root(), 0}};
    while (!stack.empty()) {
        auto& [owner, next] = stack.back();
        const SpaceTree::Run& run = *tree.children(*owner);
        while (next < run.nodes.size() &&
               (run.nodes[next].children == SpaceTree::noChildren || done[run.nodes[next].children]))
            ++next;
        if (next < run.nodes.size()) {
            stack.emplace_back(&run.nodes[next], 0);
            continue;
        }
        std::uint64_t weight = run.nodes.size();
        for (const SpaceTree::Node& node : run.nodes)
            if (node.children != SpaceTree::noChildren) weight += weights[node.children];
        weights[owner->children] = weight;
        done[owner->children] = true;
        stack.pop_back();
    }
    return weights;
}

} // namespace

SpaceTree::SpaceTree(std::string rootPath, Node root, std::vector<Run> runs)
    : rootPath_(std::move(rootPath)), root_(root), runs_(std::move(runs)) {}

std::string SpaceTree::rootName() const { return paths::lastComponent(rootPath_); }

SpaceNode SpaceTree::toSpaceNode() const { return recordOf(*this, root_, rootPath_, rootName()); }

void writeJson(const SpaceTree& tree, DateEncoding dates, const TextSink& write, JsonSharing sharing) {
    // Shared among threads at most this many runs deep: the writing recurses
    // only there, so the depth of a tree costs no stack.
    constexpr int parallelLevels = 4;
    const std::vector<std::uint64_t> weights = runWeights(tree);
    PrettyWriter(tree, dates, write, sharing, weights, parallelLevels).run();
}

} // namespace unbulk
