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

// Creates `path` as a directory of mode 0700 when it is missing. An existing
// entry is accepted as it is: whatever is wrong with it shows up as the error
// of the operation that uses it.
bool ensureDirectory(const std::string& path, std::error_code& error) {
    if (::mkdir(path.c_str(), 0700) == 0) {
        ::chmod(path.c_str(), 0700); // exactly 0700 whatever the umask took away
        return true;
    }
    if (errno == EEXIST) return true;
    error = lastError();
    return false;
}

// ensureDirectory for `path` and every missing directory above it.
bool ensureDirectoryWithParents(const std::string& path, std::error_code& error) {
    struct stat status {};
    if (::stat(path.c_str(), &status) == 0) return true;
    const std::string parent = paths::deletingLastComponent(path);
    if (!parent.empty() && parent != path && !ensureDirectoryWithParents(parent, error)) return false;
    return ensureDirectory(path, error);
}

// A trash directory of our own (.Trash/$uid or .Trash-$uid): created when
// missing; an existing one must be a real directory, not a link, owned by us.
bool ensureOwnDirectory(const std::string& path, uid_t uid, std::error_code& error) {
    if (::mkdir(path.c_str(), 0700) == 0) {
        ::chmod(path.c_str(), 0700);
        return true;
    }
    if (errno != EEXIST) {
        error = lastError();
        return false;
    }
    struct stat status {};
    if (::lstat(path.c_str(), &status) != 0) {
        error = lastError();
        return false;
    }
    if (!S_ISDIR(status.st_mode)) {
        error = errorOf(ENOTDIR);
        return false;
    }
    if (status.st_uid != uid) {
        error = errorOf(EACCES);
        return false;
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

std::optional<std::string> FreedesktopTrash::topdirTrashDirectory(const std::string& topdir, uid_t uid,
                                                                  std::error_code& error) {
    const std::string uidText = std::to_string(uid);
    // The administrator's shared .Trash counts only as a real directory (not
    // a link) with the sticky bit; when it fails, or our directory in it
    // cannot be had, the per-user .Trash-$uid takes over.
    const std::string shared = paths::appending(topdir, ".Trash");
    struct stat status {};
    if (::lstat(shared.c_str(), &status) == 0 && S_ISDIR(status.st_mode) && (status.st_mode & S_ISVTX)) {
        const std::string mine = paths::appending(shared, uidText);
        std::error_code ignored;
        if (ensureOwnDirectory(mine, uid, ignored)) return mine;
    }
    const std::string own = paths::appending(topdir, ".Trash-" + uidText);
    if (!ensureOwnDirectory(own, uid, error)) return std::nullopt;
    return own;
}

bool FreedesktopTrash::trashItem(const std::string& path, const Identity& expected,
                                 std::optional<std::string>& landedPath, std::error_code& error) {
    landedPath.reset();
    error.clear();
    const std::string item = paths::standardize(path);
    const std::string name = paths::lastComponent(item);
    if (!paths::isAbsolute(item) || name.empty() || item == "/") {
        error = errorOf(EINVAL);
        return false;
    }

    // The item's directory, opened without following a link: the rename
    // below acts in it whatever becomes of its path meanwhile.
    FdGuard parent = posix::openDirectoryWithoutLinks(paths::deletingLastComponent(item), error);
    if (parent.get() < 0) {
        if (error.value() == ELOOP || error.value() == ENOTDIR) error = changedSinceCheckedError();
        return false;
    }
    struct stat itemStatus {};
    if (::fstatat(parent.get(), name.c_str(), &itemStatus, AT_SYMLINK_NOFOLLOW) != 0) {
        error = lastError();
        return false;
    }
    if (Identity{static_cast<std::uint64_t>(itemStatus.st_dev), static_cast<std::uint64_t>(itemStatus.st_ino)} !=
        expected) {
        error = changedSinceCheckedError();
        return false;
    }

    // Which trash, and what its Path key says.
    std::string trash;
    std::string originalPath;
    if (deviceOfNearestExisting(homeTrash_) == itemStatus.st_dev) {
        if (!ensureDirectoryWithParents(homeTrash_, error)) return false;
        trash = homeTrash_;
        originalPath = item;
    } else {
        const auto volume = volumeOf(item, itemStatus.st_dev, error);
        if (!volume) return false;
        auto directory = topdirTrashDirectory(volume->topdir, ::getuid(), error);
        if (!directory) return false;
        trash = std::move(*directory);
        originalPath = volume->topdir == "/" ? volume->realItemPath.substr(1)
                                             : volume->realItemPath.substr(volume->topdir.size() + 1);
    }
    const std::string filesDirectory = paths::appending(trash, "files");
    const std::string infoDirectory = paths::appending(trash, "info");
    if (!ensureDirectory(filesDirectory, error) || !ensureDirectory(infoDirectory, error)) return false;
    FdGuard files(::open(filesDirectory.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (files.get() < 0) {
        error = lastError();
        return false;
    }

    // Reserve a name: whoever creates info/<name>.trashinfo first owns it.
    for (int attempt = 1;; ++attempt) {
        if (attempt > kMaximumNameAttempts) {
            error = errorOf(EEXIST);
            return false;
        }
        const std::string trashName = candidateName(name, attempt);
        const std::string infoPath = paths::appending(infoDirectory, trashName + std::string(kInfoExtension));
        const int fd = ::open(infoPath.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600);
        if (fd < 0) {
            if (errno == EEXIST) continue;
            error = lastError();
            return false;
        }
        // A leftover in files/ without its info file still holds the name.
        struct stat existing {};
        if (::fstatat(files.get(), trashName.c_str(), &existing, AT_SYMLINK_NOFOLLOW) == 0) {
            ::close(fd);
            ::unlink(infoPath.c_str());
            continue;
        }
        const bool written = writeAndSync(fd, trashInfoContents(originalPath, clock_()), error);
        if (::close(fd) != 0 && written) error = lastError();
        if (error) {
            ::unlink(infoPath.c_str());
            return false;
        }

        // The move never replaces: a name taken in files/ since the look
        // above (by another process) sends us on to the next name.
        if (posix::renameWithoutReplacing(parent.get(), name.c_str(), files.get(), trashName.c_str()) == 0) {
            landedPath = paths::appending(filesDirectory, trashName);
            return true;
        }
        const int failure = errno;
        ::unlink(infoPath.c_str());
        if (failure == EEXIST) continue;
        error = errorOf(failure);
        return false;
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
