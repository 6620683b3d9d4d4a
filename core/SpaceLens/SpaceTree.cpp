#include "SpaceLens/SpaceTree.hpp"

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
// children array between its first key and the rest.
class PrettyWriter {
public:
    PrettyWriter(DateEncoding dates, const TextSink& write)
        : dates_(dates), write_(write) {}

    void run(const SpaceTree& tree) {
        path_ = tree.rootPath();
        const std::string rootName = tree.rootName();
        open(tree.root(), 0);
        std::vector<Frame> stack;
        if (!enterChildren(tree, tree.root(), 0, stack, rootName)) close(tree.root(), rootName, 0);
        while (!stack.empty()) {
            Frame& frame = stack.back();
            if (frame.next == frame.run->nodes.size()) {
                // The array ends; the rest of its owner follows.
                out_ += '\n';
                indent(4 * frame.level + 2);
                out_ += "],\n";
                path_.resize(frame.pathLength);
                const Frame finished = frame;
                stack.pop_back();
                close(*finished.owner, finished.ownerName, finished.level);
                continue;
            }
            const SpaceTree::Node& child = frame.run->nodes[frame.next];
            const std::string_view name = frame.run->name(child);
            out_ += frame.next == 0 ? "\n" : ",\n";
            ++frame.next;
            path_.resize(frame.pathLength);
            appendComponent(path_, name);
            const int level = frame.level + 1;
            indent(4 * level);
            open(child, level);
            if (!enterChildren(tree, child, level, stack, name)) close(child, name, level);
            flushIfFull();
        }
        write_(out_);
    }

private:
    struct Frame {
        const SpaceTree::Node* owner;
        std::string_view ownerName;
        const SpaceTree::Run* run;
        std::size_t next;
        std::size_t pathLength; // of the owner's path, which the children extend
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

    // Starts the children array; false when the node has none to open.
    bool enterChildren(const SpaceTree& tree, const SpaceTree::Node& node, int level, std::vector<Frame>& stack,
                       std::string_view name) {
        const SpaceTree::Run* run = tree.children(node);
        if (run == nullptr) return false;
        key(level, "children");
        if (run->nodes.empty()) {
            out_ += "[],\n";
            return false;
        }
        out_ += '[';
        stack.push_back(Frame{&node, name, run, 0, path_.size(), level});
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
        json::appendString(out_, node.id.string());
        out_ += ",\n";
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
        json::appendString(out_, path_);
        out_ += ",\n";
        key(level, "url");
        std::string url = "file://" + percentEncodePath(path_);
        if (node.isDirectory && path_ != "/") url += '/';
        json::appendString(out_, url);
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
        if (out_.size() < 1 << 16) return;
        write_(out_);
        out_.clear();
    }

    DateEncoding dates_;
    const TextSink& write_;
    std::string out_;
    std::string path_;
};

} // namespace

SpaceTree::SpaceTree(std::string rootPath, Node root, std::vector<Run> runs)
    : rootPath_(std::move(rootPath)), root_(root), runs_(std::move(runs)) {}

std::string SpaceTree::rootName() const { return paths::lastComponent(rootPath_); }

SpaceNode SpaceTree::toSpaceNode() const { return recordOf(*this, root_, rootPath_, rootName()); }

void writeJson(const SpaceTree& tree, DateEncoding dates, const TextSink& write) {
    PrettyWriter(dates, write).run(tree);
}

} // namespace unbulk
