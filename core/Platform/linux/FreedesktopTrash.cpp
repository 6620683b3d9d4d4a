#include "Platform/linux/FreedesktopTrash.hpp"

#include <cerrno>
#include <climits>
#include <cstdlib>
#include <ctime>
#include <memory>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <stdio.h> // renameat2
#include <sys/stat.h>
#include <unistd.h>

#include "Platform/Home.hpp"
#include "Platform/posix/AnchoredDirectory.hpp"
#include "Platform/posix/Descriptors.hpp"
#include "Platform/posix/PosixFileSystem.hpp"
#include "Support/FileURL.hpp"
#include "Support/Paths.hpp"

namespace unbulk {
namespace {

constexpr std::string_view kInfoExtension = ".trashinfo";
// The longest name a directory entry may have on the file systems that matter
// (NAME_MAX); the info file's name is the trash name plus ".trashinfo".
constexpr std::size_t kMaximumEntryName = 255;
// Far beyond any real pile of equal names; only a broken trash gets here.
constexpr int kMaximumNameAttempts = 1'000'000;

using posix::errorOf;
using posix::FdGuard;
using posix::lastError;

// The trash name for the n-th attempt: the item's name, then "name.2",
// "name.3"... A name too long to carry ".trashinfo" (and the suffix) is cut at
// a UTF-8 character boundary; the Path key keeps the full original.
std::string candidateName(const std::string& name, int attempt) {
    const std::string suffix = attempt == 1 ? std::string() : "." + std::to_string(attempt);
    const std::size_t limit = kMaximumEntryName - kInfoExtension.size() - suffix.size();
    if (name.size() <= limit) return name + suffix;
    std::size_t cut = limit;
    while (cut > 0 && (static_cast<unsigned char>(name[cut]) & 0xC0) == 0x80) --cut;
    return name.substr(0, cut) + suffix;
}

// Creates `path` and every missing directory above it, each of mode 0700.
// What exists already is taken as it is: the folder that holds the Trash is
// the user's own configuration, links and all.
bool ensureDirectoryWithParents(const std::string& path, std::error_code& error) {
    struct stat status {};
    if (::stat(path.c_str(), &status) == 0) return true;
    const std::string parent = paths::deletingLastComponent(path);
    if (!parent.empty() && parent != path && !ensureDirectoryWithParents(parent, error)) return false;
    if (::mkdir(path.c_str(), 0700) == 0) {
        ::chmod(path.c_str(), 0700); // exactly 0700 whatever the umask took away
        return true;
    }
    if (errno == EEXIST) return true;
    error = lastError();
    return false;
}

// A Trash directory (the trash itself, its files/ or info/) inside the
// directory `parent`: created with mode 0700 when missing, and opened
// without following a link. It must be a real directory owned by `uid`;
// anything else (a link to elsewhere, a file, another user's directory)
// fails, so that nothing is ever written or moved where it could not be
// found again.
FdGuard openOwnDirectory(int parent, const std::string& name, uid_t uid, std::error_code& error) {
    const bool created = ::mkdirat(parent, name.c_str(), 0700) == 0;
    if (!created && errno != EEXIST) {
        error = lastError();
        return FdGuard();
    }
    FdGuard directory(::openat(parent, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (directory.get() < 0) {
        error = lastError(); // ELOOP or ENOTDIR for a link, ENOTDIR for a file
        return FdGuard();
    }
    struct stat status {};
    if (::fstat(directory.get(), &status) != 0) {
        error = lastError();
        return FdGuard();
    }
    if (status.st_uid != uid) {
        error = errorOf(EACCES);
        return FdGuard();
    }
    if (created) ::fchmod(directory.get(), 0700);
    return directory;
}

// A trash ready to take an item: its files/ and info/ open, and its path.
struct OpenTrash {
    std::string path;
    FdGuard files;
    FdGuard info;
};

// files/ and info/ in the trash directory `trash` (open as `trashFd`).
bool openTrashContents(OpenTrash& open, FdGuard trashFd, uid_t uid, TrashMove& move) {
    for (auto [name, into] : {std::pair{"files", &open.files}, std::pair{"info", &open.info}}) {
        *into = openOwnDirectory(trashFd.get(), name, uid, move.error.code);
        if (into->get() < 0) {
            move.unusableTrashDirectory = paths::appending(open.path, name);
            return false;
        }
    }
    return true;
}

// The device that a path would be on: that of the path itself, or of its
// nearest existing ancestor. Links are followed, as the trash is used through
// them.
std::optional<dev_t> deviceOfNearestExisting(std::string path) {
    for (;;) {
        struct stat status {};
        if (::stat(path.c_str(), &status) == 0) return status.st_dev;
        const std::string parent = paths::deletingLastComponent(path);
        if (parent.empty() || parent == path) return std::nullopt;
        path = parent;
    }
}

// Where the item lies with its parent's links resolved, and the mount point
// above it: the highest directory still on the item's device.
struct Volume {
    std::string realItemPath;
    std::string topdir;
};

std::optional<Volume> volumeOf(const std::string& item, dev_t device, std::error_code& error) {
    const std::string parent = paths::deletingLastComponent(item);
    std::unique_ptr<char, decltype(&std::free)> resolved(::realpath(parent.c_str(), nullptr), &std::free);
    if (!resolved) {
        error = lastError();
        return std::nullopt;
    }
    std::string directory = resolved.get();
    struct stat status {};
    if (::stat(directory.c_str(), &status) != 0) {
        error = lastError();
        return std::nullopt;
    }
    if (status.st_dev != device) {
        // The item is itself a mount point: nothing can move it.
        error = errorOf(EBUSY);
        return std::nullopt;
    }
    Volume volume{paths::appending(directory, paths::lastComponent(item)), directory};
    while (volume.topdir != "/") {
        const std::string up = paths::deletingLastComponent(volume.topdir);
        if (::stat(up.c_str(), &status) != 0 || status.st_dev != device) break;
        volume.topdir = up;
    }
    return volume;
}

// Writes all of `contents` and makes it durable.
bool writeAndSync(int fd, std::string_view contents, std::error_code& error) {
    if (!posix::writeAll(fd, contents, error)) return false;
    if (::fsync(fd) != 0) {
        error = lastError();
        return false;
    }
    return true;
}

// The home trash at `homeTrash`, with files/ and info/ open; false with
// `move` saying why.
bool openHomeTrash(const std::string& homeTrash, OpenTrash& open, uid_t uid, TrashMove& move) {
    open.path = homeTrash;
    const std::string dataHome = paths::deletingLastComponent(homeTrash);
    FdGuard data;
    if (ensureDirectoryWithParents(dataHome, move.error.code)) {
        data = FdGuard(::open(dataHome.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        if (data.get() < 0) move.error.code = lastError();
    }
    if (data.get() < 0) {
        move.unusableTrashDirectory = homeTrash;
        return false;
    }
    FdGuard trash = openOwnDirectory(data.get(), paths::lastComponent(homeTrash), uid, move.error.code);
    if (trash.get() < 0) {
        move.unusableTrashDirectory = homeTrash;
        return false;
    }
    return openTrashContents(open, std::move(trash), uid, move);
}

// The administrator's shared $topdir/.Trash counts only as a real directory
// (not a link) with the sticky bit, and then our $uid in it; when that fails,
// the per-user $topdir/.Trash-$uid takes over.
bool openTopdirTrash(const std::string& topdir, OpenTrash& open, uid_t uid, TrashMove& move) {
    const std::string uidText = std::to_string(uid);
    FdGuard top(::open(topdir.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (top.get() < 0) {
        move.error.code = lastError();
        return false;
    }
    struct stat status {};
    if (::fstatat(top.get(), ".Trash", &status, AT_SYMLINK_NOFOLLOW) == 0 && S_ISDIR(status.st_mode) &&
        (status.st_mode & S_ISVTX)) {
        FdGuard shared(::openat(top.get(), ".Trash", O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
        std::error_code ignored;
        FdGuard mine = shared.get() < 0 ? FdGuard() : openOwnDirectory(shared.get(), uidText, uid, ignored);
        if (mine.get() >= 0) {
            open.path = paths::appending(topdir, ".Trash/" + uidText);
            return openTrashContents(open, std::move(mine), uid, move);
        }
    }
    open.path = paths::appending(topdir, ".Trash-" + uidText);
    FdGuard own = openOwnDirectory(top.get(), ".Trash-" + uidText, uid, move.error.code);
    if (own.get() < 0) {
        move.unusableTrashDirectory = open.path;
        return false;
    }
    return openTrashContents(open, std::move(own), uid, move);
}

} // namespace

FreedesktopTrash::FreedesktopTrash(std::string dataHome, Clock clock)
    : homeTrash_(paths::appending(paths::standardize(dataHome), "Trash")), clock_(std::move(clock)) {
    if (!clock_) clock_ = [] { return std::chrono::system_clock::now(); };
}

std::string FreedesktopTrash::defaultDataHome() {
    if (const char* value = std::getenv("XDG_DATA_HOME"); value && paths::isAbsolute(value)) {
        return paths::standardize(value);
    }
    return paths::appending(homeDirectory(), ".local/share");
}

std::string FreedesktopTrash::localDeletionDate(Date date) {
    const auto seconds = std::chrono::floor<std::chrono::seconds>(date.time_since_epoch()).count();
    const std::time_t time = static_cast<std::time_t>(seconds);
    // localtime_r need not look at TZ again by itself; tzset makes it.
    ::tzset();
    struct tm local {};
    if (!::localtime_r(&time, &local)) return {};
    char text[32];
    const std::size_t length = std::strftime(text, sizeof text, "%Y-%m-%dT%H:%M:%S", &local);
    return std::string(text, length);
}

std::string FreedesktopTrash::trashInfoContents(std::string_view path, Date deletionDate) {
    return "[Trash Info]\nPath=" + percentEncodePath(path) + "\nDeletionDate=" + localDeletionDate(deletionDate) +
           "\n";
}

TrashMove FreedesktopTrash::trashItem(const std::string& path, const Identity& expected,
                                      const AnchorCheck& anchorCheck) {
    TrashMove move;
    const std::string item = paths::standardize(path);
    const std::string name = paths::lastComponent(item);
    if (!paths::isAbsolute(item) || name.empty() || item == "/" || posix::containsNul(path)) {
        move.error.code = errorOf(EINVAL);
        return move;
    }

    // The item's directory, opened without following a link: the rename
    // below acts in it whatever becomes of its path meanwhile.
    std::vector<AnchoredStep> steps;
    FdGuard parent = posix::openDirectoryWithoutLinks(paths::deletingLastComponent(item), move.error.code,
                                                      anchorCheck ? &steps : nullptr);
    if (parent.get() < 0) {
        const int reason = move.error.code.value();
        if (reason == ELOOP || reason == ENOTDIR) move.error.code = changedSinceCheckedError();
        return move;
    }
    struct stat itemStatus {};
    if (::fstatat(parent.get(), name.c_str(), &itemStatus, AT_SYMLINK_NOFOLLOW) != 0) {
        move.error.code = lastError();
        return move;
    }
    if (Identity{static_cast<std::uint64_t>(itemStatus.st_dev), static_cast<std::uint64_t>(itemStatus.st_ino)} !=
        expected) {
        move.error.code = changedSinceCheckedError();
        return move;
    }
    if (anchorCheck) {
        steps.push_back(AnchoredStep{item, posix::fileStatusOf(itemStatus)});
        if (const std::error_code refused = anchorCheck(steps)) {
            move.error.code = refused;
            return move;
        }
    }

    // Which trash, and what its Path key says.
    OpenTrash trash;
    std::string originalPath;
    const uid_t uid = ::getuid();
    if (deviceOfNearestExisting(homeTrash_) == itemStatus.st_dev) {
        if (!openHomeTrash(homeTrash_, trash, uid, move)) return move;
        originalPath = item;
    } else {
        const auto volume = volumeOf(item, itemStatus.st_dev, move.error.code);
        if (!volume) return move;
        if (!openTopdirTrash(volume->topdir, trash, uid, move)) return move;
        originalPath = volume->topdir == "/" ? volume->realItemPath.substr(1)
                                             : volume->realItemPath.substr(volume->topdir.size() + 1);
    }

    // Reserve a name: whoever creates info/<name>.trashinfo first owns it.
    for (int attempt = 1;; ++attempt) {
        if (attempt > kMaximumNameAttempts) {
            move.error.code = errorOf(EEXIST);
            return move;
        }
        const std::string trashName = candidateName(name, attempt);
        const std::string infoName = trashName + std::string(kInfoExtension);
        const int fd =
            ::openat(trash.info.get(), infoName.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
        if (fd < 0) {
            if (errno == EEXIST) continue;
            move.error.code = lastError();
            return move;
        }
        // A leftover in files/ without its info file still holds the name.
        struct stat existing {};
        if (::fstatat(trash.files.get(), trashName.c_str(), &existing, AT_SYMLINK_NOFOLLOW) == 0) {
            ::close(fd);
            ::unlinkat(trash.info.get(), infoName.c_str(), 0);
            continue;
        }
        const bool written = writeAndSync(fd, trashInfoContents(originalPath, clock_()), move.error.code);
        if (::close(fd) != 0 && written) move.error.code = lastError();
        if (move.error.code) {
            ::unlinkat(trash.info.get(), infoName.c_str(), 0);
            return move;
        }

        // The move never replaces: a name taken in files/ since the look
        // above (by another process) sends us on to the next name.
        if (posix::renameWithoutReplacing(parent.get(), name.c_str(), trash.files.get(), trashName.c_str()) == 0) {
            move.landedPath = paths::appending(paths::appending(trash.path, "files"), trashName);
            return move;
        }
        const int failure = errno;
        ::unlinkat(trash.info.get(), infoName.c_str(), 0);
        if (failure == EEXIST) continue;
        move.error.code = errorOf(failure);
        return move;
    }
}

std::vector<std::string> homeTrashDirectories(const std::string& homePath) {
    std::vector<std::string> directories{paths::appending(homePath, ".local/share/Trash")};
    if (const char* value = std::getenv("XDG_DATA_HOME"); value && paths::isAbsolute(value)) {
        std::string configured = paths::appending(paths::standardize(value), "Trash");
        if (configured != directories.front()) directories.push_back(std::move(configured));
    }
    return directories;
}

std::shared_ptr<Trash> makeDefaultTrash() {
    return std::make_shared<FreedesktopTrash>(FreedesktopTrash::defaultDataHome());
}

} // namespace unbulk
