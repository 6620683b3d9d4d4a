#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include <sys/stat.h>

#include "Platform/FileSystem.hpp"
#include "Platform/posix/DirectoryStream.hpp"

namespace unbulk::posix {

// One entry as the walker meets it. `status` is the entry's lstat when it
// was asked for and the call worked; `directoryFd` is the open directory
// that holds the entry, for calls relative to it. All of it lives only as
// long as the visit.
struct TreeEntry {
    const std::string& path;
    const char* name;
    FileKind kind;
    const struct stat* status;
    int directoryFd;
    int depth; // 1 for the root's own entries
};

struct TreeWalkerOptions {
    WalkStatus status = WalkStatus::all;
    bool skipHiddenFiles = false;
    bool descendIntoPackages = true;
    // Open directories the walk may hold at once, the root's included. Deeper
    // than that, an ancestor's descriptor is given up, and got back through
    // ".." of its child when the walk returns to it.
    std::size_t maximumOpenDirectories = 48;
};

struct TreeWalkerHooks {
    std::function<WalkAction(const TreeEntry&)> visit;
    // After the last entry of a directory below the root, with its parent's
    // descriptor and its own name there (the purge removes it here). False
    // stops the walk.
    std::function<bool(int parentFd, const char* name, const std::string& path)> leave;
    // A directory that could not be opened or read, or an entry that could
    // not be examined; the walk goes on.
    std::function<void(const std::string& path, std::error_code error, WalkFailure failure)> onError;
};

// A depth-first walk that never recurses and never follows a link: an
// explicit stack of directories, each read whole when it is entered, and a
// bounded number of open descriptors whatever the depth. A directory whose
// descriptor was given up is reopened as ".." of its open child and must
// then be the same directory (device and inode) as before, so that nothing
// moved or swapped in the meantime leads the walk elsewhere; if it is not,
// the walk reports the failure and stops there.
class TreeWalker {
public:
    explicit TreeWalker(TreeWalkerOptions options) : options_(options) {}

    // Walks below the open directory `rootFd` (taken over) whose path is
    // `rootPath`. Answers false when the walk stopped early, by a visit, a
    // leave or a directory it could not get back.
    bool run(int rootFd, const std::string& rootPath, const TreeWalkerHooks& hooks);

private:
    struct Item {
        std::size_t nameOffset;
        unsigned char type;
    };
    struct Frame {
        DirectoryStream directory; // read when entered; or got back through ".."
        std::string names;         // every entry's name, each ended by a NUL
        std::vector<Item> items;
        std::size_t next = 0;
        std::size_t pathLength = 0;
        dev_t device = 0;
        ino_t inode = 0;
        int depth = 0;

        int descriptor() const { return directory.fd(); }
        bool isOpen() const { return directory.isOpen(); }
        void close() { directory.close(); }
    };

    bool enter(int fd, int depth, std::size_t pathLength, const TreeWalkerHooks& hooks);
    // Each answers false when the walk must stop.
    bool visitNext(const TreeWalkerHooks& hooks);
    bool leaveDirectory(const TreeWalkerHooks& hooks);
    void giveUpDescriptors();
    bool reopenParentOf(std::size_t index, const TreeWalkerHooks& hooks);
    void report(const TreeWalkerHooks& hooks, std::error_code error, WalkFailure failure) const;
    void closeAll();

    TreeWalkerOptions options_;
    std::vector<Frame> frames_; // frames_[0, top_] are the current path; the rest are kept for reuse
    std::size_t top_ = 0;
    std::size_t firstOpen_ = 1; // frames below the root and before this one have no descriptor
    std::size_t openCount_ = 0;
    std::string path_;
};

} // namespace unbulk::posix
