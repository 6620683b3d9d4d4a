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

using posix::failed;
using posix::failedWith;
using posix::FdGuard;

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
bool ensureDirectoryWithParents(const std::string& path, PlatformError& error) {
    struct stat status {};
    if (::stat(path.c_str(), &status) == 0) return true;
    const std::string parent = paths::deletingLastComponent(path);
    if (!parent.empty() && parent != path && !ensureDirectoryWithParents(parent, error)) return false;
    if (::mkdir(path.c_str(), 0700) == 0) {
        ::chmod(path.c_str(), 0700); // exactly 0700 whatever the umask took away
        return true;
    }
    if (errno == EEXIST) return true;
    error = failed("mkdir", path);
    return false;
}

// A Trash directory (the trash itself, its files/ or info/) at `path`,
// named `name` in the directory `parent`: created with mode 0700 when
// missing, and opened without following a link. It must be a real directory
// owned by `uid`; anything else (a link to elsewhere, a file, another user's
// directory) fails, so that nothing is ever written or moved where it could
// not be found again.
FdGuard openOwnDirectory(int parent, const std::string& path, uid_t uid, PlatformError& error) {
    const std::string name = paths::lastComponent(path);
    const bool created = ::mkdirat(parent, name.c_str(), 0700) == 0;
    if (!created && errno != EEXIST) {
        error = failed("mkdirat", path);
        return FdGuard();
    }
    FdGuard directory(::openat(parent, name.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
    if (directory.get() < 0) {
        error = failed("openat", path); // ELOOP or ENOTDIR for a link, ENOTDIR for a file
        return FdGuard();
    }
    struct stat status {};
    if (::fstat(directory.get(), &status) != 0) {
        error = failed("fstat", path);
        return FdGuard();
    }
    if (status.st_uid != uid) {
        // Not ours: refused as the system refuses what it does not let us have.
        error = failedWith(EACCES, "fstat", path);
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
        *into = openOwnDirectory(trashFd.get(), paths::appending(open.path, name), uid, move.error);
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

std::optional<Volume> volumeOf(const std::string& item, dev_t device, PlatformError& error) {
    const std::string parent = paths::deletingLastComponent(item);
    std::unique_ptr<char, decltype(&std::free)> resolved(::realpath(parent.c_str(), nullptr), &std::free);
    if (!resolved) {
        error = failed("realpath", parent);
        return std::nullopt;
    }
    std::string directory = resolved.get();
    struct stat status {};
    if (::stat(directory.c_str(), &status) != 0) {
        error = failed("stat", directory);
        return std::nullopt;
    }
    if (status.st_dev != device) {
        // The item is itself a mount point: nothing can move it, as a
        // rename of it would say.
        error = failedWith(EBUSY, "rename", item);
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

// Writes all of `contents` to the file at `path` and makes it durable.
bool writeAndSync(int fd, std::string_view contents, const std::string& path, PlatformError& error) {
    if (!posix::writeAll(fd, contents, path, error)) return false;
    if (::fsync(fd) != 0) {
        error = failed("fsync", path);
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
    if (ensureDirectoryWithParents(dataHome, move.error)) {
        data = FdGuard(::open(dataHome.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        if (data.get() < 0) move.error = failed("open", dataHome);
    }
    if (data.get() < 0) {
        move.unusableTrashDirectory = homeTrash;
        return false;
    }
    FdGuard trash = openOwnDirectory(data.get(), homeTrash, uid, move.error);
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
        move.error = failed("open", topdir);
        return false;
    }
    struct stat status {};
    if (::fstatat(top.get(), ".Trash", &status, AT_SYMLINK_NOFOLLOW) == 0 && S_ISDIR(status.st_mode) &&
        (status.st_mode & S_ISVTX)) {
        FdGuard shared(::openat(top.get(), ".Trash", O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
        PlatformError ignored;
        FdGuard mine = shared.get() < 0 ? FdGuard()
                                        : openOwnDirectory(shared.get(), paths::appending(topdir, ".Trash/" + uidText),
                                                           uid, ignored);
        if (mine.get() >= 0) {
            open.path = paths::appending(topdir, ".Trash/" + uidText);
            return openTrashContents(open, std::move(mine), uid, move);
        }
    }
    open.path = paths::appending(topdir, ".Trash-" + uidText);
    FdGuard own = openOwnDirectory(top.get(), open.path, uid, move.error);
    if (own.get() < 0) {
        move.unusableTrashDirectory = open.path;
        return false;
    }
    return openTrashContents(open, std::move(own), uid, move);
}

} // namespace

FreedesktopTrash::FreedesktopTrash(std::string dataHome, Clock clock)
    : homeTrash_(paths::appending(paths::standardize(dataHome), "Trash")), clock_(std::move(clock)) {}

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

namespace {

// The trash that takes an item of `device`: the home trash on its own file
// system, else the one at the top of the item's. `originalPath` is what the
// Path key of the item's info file holds.
bool openTrashFor(const std::string& item, dev_t device, const std::string& homeTrash, OpenTrash& trash,
                  std::string& originalPath, TrashMove& move) {
    const uid_t uid = ::getuid();
    if (deviceOfNearestExisting(homeTrash) == device) {
        originalPath = item;
        return openHomeTrash(homeTrash, trash, uid, move);
    }
    const auto volume = volumeOf(item, device, move.error);
    if (!volume) return false;
    originalPath = volume->topdir == "/" ? volume->realItemPath.substr(1)
                                         : volume->realItemPath.substr(volume->topdir.size() + 1);
    return openTopdirTrash(volume->topdir, trash, uid, move);
}

// Moves the item `name` of `parent` into the open trash under the first free
// trash name, its info file written first: whoever creates
// info/<name>.trashinfo first owns the name.
void moveIntoTrash(int parent, const std::string& item, const std::string& name, const OpenTrash& trash,
                   const std::string& infoContents, TrashMove& move) {
    const std::string infoDirectory = paths::appending(trash.path, "info");
    const std::string filesDirectory = paths::appending(trash.path, "files");
    for (int attempt = 1;; ++attempt) {
        const std::string trashName = candidateName(name, attempt);
        const std::string infoName = trashName + std::string(kInfoExtension);
        const std::string infoPath = paths::appending(infoDirectory, infoName);
        if (attempt > kMaximumNameAttempts) {
            move.error = failedWith(EEXIST, "openat", infoPath);
            return;
        }
        const int fd =
            ::openat(trash.info.get(), infoName.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
        if (fd < 0) {
            if (errno == EEXIST) continue;
            move.error = failed("openat", infoPath);
            return;
        }
        // A leftover in files/ without its info file still holds the name.
        struct stat existing {};
        if (::fstatat(trash.files.get(), trashName.c_str(), &existing, AT_SYMLINK_NOFOLLOW) == 0) {
            ::close(fd);
            ::unlinkat(trash.info.get(), infoName.c_str(), 0);
            continue;
        }
        const bool written = writeAndSync(fd, infoContents, infoPath, move.error);
        if (::close(fd) != 0 && written) move.error = failed("close", infoPath);
        if (move.error) {
            ::unlinkat(trash.info.get(), infoName.c_str(), 0);
            return;
        }

        // The move never replaces: a name taken in files/ since the look
        // above (by another process) sends us on to the next name.
        const std::string landed = paths::appending(filesDirectory, trashName);
        if (posix::renameWithoutReplacing(parent, name.c_str(), trash.files.get(), trashName.c_str()) == 0) {
            move.landedPath = landed;
            return;
        }
        const int failure = errno;
        ::unlinkat(trash.info.get(), infoName.c_str(), 0);
        if (failure == EEXIST) continue;
        move.error = PlatformError::systemCall(posix::renameWithoutReplacingCall, failure, item, landed);
        return;
    }
}

} // namespace

TrashMove FreedesktopTrash::trashItem(const std::string& path, const Identity& expected,
                                      const AnchorCheck& anchorCheck) {
    TrashMove move;
    // The rename acts in the item's parent as opened here, whatever becomes
    // of its path meanwhile.
    const std::string item = paths::standardize(path);
    auto anchored = posix::openAnchoredItem(item, expected, anchorCheck, posix::renameWithoutReplacingCall, move.error);
    if (!anchored) return move;

    OpenTrash trash;
    std::string originalPath;
    if (!openTrashFor(item, anchored->status.st_dev, homeTrash_, trash, originalPath, move)) return move;
    moveIntoTrash(anchored->parent.get(), item, anchored->name, trash, trashInfoContents(originalPath, clock_()),
                  move);
    return move;
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
