#include "Platform/posix/TreeWalker.hpp"

#include <fcntl.h>
#include <unistd.h>

#include "Platform/posix/Descriptors.hpp"
#include "Platform/posix/EntryKinds.hpp"
#include "Platform/posix/PosixFileSystem.hpp"
#include "Support/Paths.hpp"

namespace unbulk::posix {

void TreeWalker::report(const TreeWalkerHooks& hooks, std::error_code error, WalkFailure failure) const {
    if (hooks.onError) hooks.onError(path_, error, failure);
}

void TreeWalker::closeAll() {
    for (std::size_t i = 0; i <= top_ && i < frames_.size(); ++i) frames_[i].close();
    openCount_ = 0;
}

// Reads the whole directory into frame `top_` (already chosen) and keeps its
// descriptor open; false when nothing could be read. Every entry is read
// before any is visited, so that the descriptor can be given up later
// without losing the place.
bool TreeWalker::enter(int fd, int depth, std::size_t pathLength, const TreeWalkerHooks& hooks) {
    Frame& frame = frames_[top_];
    frame.names.clear();
    frame.items.clear();
    frame.next = 0;
    frame.pathLength = pathLength;
    frame.depth = depth;
    frame.directory = DirectoryStream(fd);
    ++openCount_;
    const std::error_code error = frame.directory.readAll([&](const char* name, unsigned char type) {
        if (options_.skipHiddenFiles && name[0] == '.') return;
        frame.items.push_back(Item{frame.names.size(), type});
        frame.names.append(name);
        frame.names.push_back('\0');
    });
    if (!error) return true;
    report(hooks, error, WalkFailure::directory);
    if (!frame.items.empty()) return true; // keep what was read
    // Nothing could be read: the directory is not entered, and not left.
    frame.close();
    --openCount_;
    return false;
}

// Keeps at most the configured number of directories open: the root always,
// then the deepest ones. What is given up is recorded by device and inode,
// to be checked when it is got back.
void TreeWalker::giveUpDescriptors() {
    while (openCount_ > options_.maximumOpenDirectories && firstOpen_ < top_) {
        Frame& frame = frames_[firstOpen_];
        struct stat st {};
        if (::fstat(frame.descriptor(), &st) == 0) {
            frame.device = st.st_dev;
            frame.inode = st.st_ino;
        } else {
            frame.device = 0;
            frame.inode = 0;
        }
        frame.close();
        --openCount_;
        ++firstOpen_;
    }
}

// Gets back the descriptor of frames_[index - 1] as ".." of frames_[index].
bool TreeWalker::reopenParentOf(std::size_t index, const TreeWalkerHooks& hooks) {
    Frame& parent = frames_[index - 1];
    if (parent.isOpen()) return true;
    const int fd = ::openat(frames_[index].descriptor(), "..", O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0) {
        path_.resize(parent.pathLength);
        report(hooks, lastError(), WalkFailure::directory);
        return false;
    }
    struct stat st {};
    if (::fstat(fd, &st) != 0 || st.st_dev != parent.device || st.st_ino != parent.inode) {
        ::close(fd);
        path_.resize(parent.pathLength);
        report(hooks, changedSinceCheckedError(), WalkFailure::directory);
        return false;
    }
    parent.directory = DirectoryStream(fd);
    ++openCount_;
    firstOpen_ = index - 1;
    return true;
}

bool TreeWalker::run(int rootFd, const std::string& rootPath, const TreeWalkerHooks& hooks) {
    path_.reserve(rootPath.size() + 64); // the entries' paths too, most of them
    path_ = rootPath;
    top_ = 0;
    firstOpen_ = 1;
    openCount_ = 0;
    if (frames_.empty()) frames_.resize(1);
    if (!enter(rootFd, 0, path_.size(), hooks)) return true;

    bool completed = true;
    while (completed) {
        const Frame& frame = frames_[top_];
        if (frame.next < frame.items.size()) {
            completed = visitNext(hooks);
        } else if (top_ == 0) {
            break;
        } else {
            completed = leaveDirectory(hooks);
        }
    }
    closeAll();
    path_.clear();
    return completed;
}

// The directory on top is done: it is closed, and its parent (whose
// descriptor it needs, got back if it was given up) hears of it.
bool TreeWalker::leaveDirectory(const TreeWalkerHooks& hooks) {
    if (!reopenParentOf(top_, hooks)) return false;
    Frame& frame = frames_[top_];
    frame.close();
    --openCount_;
    if (firstOpen_ > top_) firstOpen_ = top_;
    --top_;
    const Frame& parent = frames_[top_];
    const char* name = parent.names.data() + parent.items[parent.next - 1].nameOffset;
    path_.resize(frame.pathLength);
    return !hooks.leave || hooks.leave(parent.descriptor(), name, path_);
}

// The next entry of the directory on top: examined as the options ask,
// visited, and entered when it is a directory the visit goes into.
bool TreeWalker::visitNext(const TreeWalkerHooks& hooks) {
    Frame& frame = frames_[top_];
    const Item item = frame.items[frame.next++];
    const char* name = frame.names.data() + item.nameOffset;
    path_.resize(frame.pathLength);
    if (path_.empty() || path_.back() != '/') path_ += '/';
    path_ += name;

    const int directoryFd = frame.descriptor();
    FileKind kind = kindFromDirent(item.type);
    struct stat st {};
    const struct stat* status = nullptr;
    if (needsStatus(options_.status, item.type)) {
        if (::fstatat(directoryFd, name, &st, AT_SYMLINK_NOFOLLOW) != 0) {
            report(hooks, lastError(), WalkFailure::entry);
            return true;
        }
        kind = kindFromMode(st.st_mode);
        status = &st;
    }

    const int depth = frame.depth + 1;
    const WalkAction action = hooks.visit(TreeEntry{path_, name, kind, status, directoryFd, depth});
    if (action == WalkAction::stop) return false;
    if (kind != FileKind::directory || action == WalkAction::skipDescendants) return true;
    if (!options_.descendIntoPackages && isPackageExtension(extensionOf(name))) return true;

    const int child = ::openat(directoryFd, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (child < 0) {
        report(hooks, lastError(), WalkFailure::directory);
        return true;
    }
    if (status != nullptr) {
        // What was examined is what was opened, or the entry changed in
        // between (a directory swapped for another): leave it alone.
        struct stat opened {};
        if (::fstat(child, &opened) != 0 || opened.st_dev != status->st_dev || opened.st_ino != status->st_ino) {
            ::close(child);
            report(hooks, changedSinceCheckedError(), WalkFailure::directory);
            return true;
        }
    }
    ++top_;
    if (frames_.size() <= top_) frames_.resize(top_ + 1);
    if (!enter(child, depth, path_.size(), hooks)) {
        --top_;
        return true;
    }
    giveUpDescriptors();
    return true;
}

} // namespace unbulk::posix
