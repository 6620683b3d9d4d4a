#include "Platform/posix/ParallelTreeMeasure.hpp"

#include <algorithm>
#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include <sys/resource.h>

#include <tbb/enumerable_thread_specific.h>
#include <tbb/task_arena.h>
#include <tbb/task_group.h>

#include "Platform/posix/Descriptors.hpp"
#include "Platform/posix/DirectoryStream.hpp"
#include "Platform/posix/EntryKinds.hpp"
#include "Platform/posix/PosixFileSystem.hpp"
#include "Platform/posix/TreeWalker.hpp"

namespace unbulk::posix {
namespace {

// Directories the serial fallback may hold open at once, per thread.
constexpr std::size_t serialWalkerDescriptors = 8;

// Descriptors the shared directories may hold at once: a quarter of the
// soft limit (macOS starts processes at 256), never more than 128, never
// fewer than 8; the serial fallbacks' few come on top.
int sharedDescriptorBudget() {
    struct rlimit limit {};
    rlim_t soft = 256;
    if (::getrlimit(RLIMIT_NOFILE, &limit) == 0 && limit.rlim_cur != RLIM_INFINITY) soft = limit.rlim_cur;
    return static_cast<int>(std::clamp<rlim_t>(soft / 4, 8, 128));
}

// An open directory whose subdirectories are still to be opened by tasks;
// closed when the last of them has let go of it.
class SharedDirectory {
public:
    SharedDirectory(DirectoryStream directory, std::atomic<int>& openCount)
        : directory_(std::move(directory)), openCount_(openCount) {
        ++openCount_;
    }
    ~SharedDirectory() { --openCount_; }
    SharedDirectory(const SharedDirectory&) = delete;
    SharedDirectory& operator=(const SharedDirectory&) = delete;
    int fd() const { return directory_.fd(); }

private:
    DirectoryStream directory_;
    std::atomic<int>& openCount_;
};

struct Subdirectory {
    std::size_t nameOffset;
    bool hasIdentity;
    dev_t device;
    ino_t inode;
};

class ParallelMeasure {
public:
    explicit ParallelMeasure(const TreeMeasureOptions& options)
        : options_(options), budget_(sharedDescriptorBudget()) {}

    TreeMeasure run(int rootFd) {
        group_.run([this, rootFd] { measureDirectory(rootFd, true); });
        group_.wait();
        TreeMeasure total;
        locals_.combine_each([&total](const TreeMeasure& part) { total.merge(part); });
        return total;
    }

private:
    // Reads the directory `fd` (taken over), adds its entries, and measures
    // its subdirectories: in new tasks while descriptors are to spare, here
    // otherwise.
    void measureDirectory(int fd, bool isRoot) {
        TreeMeasure& local = locals_.local();
        DirectoryStream directory(fd);
        std::string names; // every subdirectory's name, each ended by a NUL
        std::vector<Subdirectory> subdirectories;
        struct stat st {};
        const std::error_code error = directory.readAll([&](const char* name, unsigned char type) {
            if (options_.skipHiddenFiles && name[0] == '.') return;
            FileKind kind = kindFromDirent(type);
            bool examined = false;
            if (needsStatus(options_.status, type)) {
                if (::fstatat(directory.fd(), name, &st, AT_SYMLINK_NOFOLLOW) != 0) {
                    local.addFailure(WalkFailure::entry, lastError(), false);
                    return;
                }
                const FileStatus status = fileStatusOf(st);
                kind = status.kind;
                examined = true;
                local.add(status, options_.inodes);
            }
            if (kind != FileKind::directory) return;
            if (!options_.descendIntoPackages && isPackageExtension(extensionOf(name))) return;
            subdirectories.push_back(
                Subdirectory{names.size(), examined, examined ? st.st_dev : 0, examined ? st.st_ino : 0});
            names.append(name);
            names.push_back('\0');
        });
        if (error) local.addFailure(WalkFailure::directory, error, isRoot); // keep what was read
        if (subdirectories.empty()) return;
        if (openCount_.load(std::memory_order_relaxed) < budget_) {
            auto shared = std::make_shared<SharedDirectory>(std::move(directory), openCount_);
            auto sharedNames = std::make_shared<const std::string>(std::move(names));
            for (const Subdirectory& subdirectory : subdirectories) {
                group_.run([this, shared, sharedNames, subdirectory] {
                    const int child = openSubdirectory(shared->fd(), sharedNames->data(), subdirectory);
                    if (child >= 0) measureDirectory(child, false);
                });
            }
            return;
        }
        for (const Subdirectory& subdirectory : subdirectories) {
            const int child = openSubdirectory(directory.fd(), names.data(), subdirectory);
            if (child >= 0) measureSerially(child, local);
        }
    }

    // Opens a subdirectory without following a link; when it was examined,
    // what is opened must be what was examined.
    int openSubdirectory(int parentFd, const char* names, const Subdirectory& subdirectory) {
        const char* name = names + subdirectory.nameOffset;
        const int fd = ::openat(parentFd, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
        if (fd < 0) {
            locals_.local().addFailure(WalkFailure::directory, lastError(), false);
            return -1;
        }
        if (subdirectory.hasIdentity) {
            struct stat opened {};
            if (::fstat(fd, &opened) != 0 || opened.st_dev != subdirectory.device ||
                opened.st_ino != subdirectory.inode) {
                ::close(fd);
                locals_.local().addFailure(WalkFailure::directory, changedSinceCheckedError(), false);
                return -1;
            }
        }
        return fd;
    }

    // The whole tree below `fd` (taken over) on this thread.
    void measureSerially(int fd, TreeMeasure& local) {
        TreeWalker walker(TreeWalkerOptions{.status = options_.status,
                                            .skipHiddenFiles = options_.skipHiddenFiles,
                                            .descendIntoPackages = options_.descendIntoPackages,
                                            .maximumOpenDirectories = serialWalkerDescriptors});
        TreeWalkerHooks hooks;
        hooks.visit = [&](const TreeEntry& entry) {
            if (entry.status != nullptr) local.add(fileStatusOf(*entry.status), options_.inodes);
            return WalkAction::proceed;
        };
        hooks.onError = [&](const std::string&, std::error_code error, WalkFailure failure) {
            local.addFailure(failure, error, false);
        };
        walker.run(fd, std::string(), hooks);
    }

    const TreeMeasureOptions& options_;
    const int budget_;
    std::atomic<int> openCount_{0};
    tbb::enumerable_thread_specific<TreeMeasure> locals_;
    tbb::task_group group_;
};

} // namespace

TreeMeasure measureInParallel(int rootFd, const TreeMeasureOptions& options) {
    ParallelMeasure measure(options);
    return measure.run(rootFd);
}

} // namespace unbulk::posix
