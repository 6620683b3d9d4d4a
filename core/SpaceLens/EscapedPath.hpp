#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace unbulk {

// A node's path as the space lens writes it, with the JSON string content
// of the path and of its file URL kept beside it. A child's are its
// parent's extended by its name, so the long part that every node below a
// folder shares is escaped once, not again for each of them. A path that is
// not plain ASCII is escaped whole, as json::appendStringContent has it.
class EscapedPath {
public:
    // Where a path stood, to cut it back to after a child's.
    struct Mark {
        std::size_t path = 0;
        std::size_t json = 0;
        std::size_t url = 0;
        bool plain = true;
    };

    void assign(std::string_view path);
    // The child `name` of the path, as paths::appending makes it.
    void append(std::string_view name);
    Mark mark() const { return {path_.size(), json_.size(), url_.size(), plain_}; }
    void restore(const Mark& mark);

    const std::string& path() const { return path_; }
    // The path's JSON string content, without its quotes.
    void appendJson(std::string& out) const;
    // The JSON string content of the path's file URL, a directory's ending
    // in a slash ("/" has one already).
    void appendUrlJson(std::string& out, bool isDirectory) const;

private:
    std::string path_;
    std::string json_; // kept while the path is plain
    std::string url_;  // "file://" and the path percent-encoded, escaped
    std::string scratch_;
    bool plain_ = true;
};

} // namespace unbulk
