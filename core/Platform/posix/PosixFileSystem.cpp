#include "Platform/posix/PosixFileSystem.hpp"

#include <array>
#include <cerrno>
#include <cstring>
#include <deque>
#include <random>

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fmt/format.h>

#include "Support/Paths.hpp"

namespace unbulk {
namespace {

std::error_code lastError() { return {errno, std::generic_category()}; }

// Closes a descriptor on every way out.
class FdGuard {
public:
    explicit FdGuard(int fd) : fd_(fd) {}
    ~FdGuard() {
        if (fd_ >= 0) ::close(fd_);
    }
    FdGuard(const FdGuard&) = delete;
    FdGuard& operator=(const FdGuard&) = delete;
    int get() const { return fd_; }
    int release() {
        int fd = fd_;
        fd_ = -1;
        return fd;
    }

private:
    int fd_;
};

class DirGuard {
public:
    explicit DirGuard(DIR* dir) : dir_(dir) {}
    ~DirGuard() {
        if (dir_) ::closedir(dir_);
    }
    DirGuard(const DirGuard&) = delete;
    DirGuard& operator=(const DirGuard&) = delete;
    DIR* get() const { return dir_; }

private:
    DIR* dir_;
};

Date toDate(const struct timespec& ts) {
    return Date{std::chrono::duration_cast<Date::duration>(std::chrono::seconds{ts.tv_sec} +
                                                           std::chrono::nanoseconds{ts.tv_nsec})};
}

FileKind kindFromMode(mode_t mode) {
    if (S_ISREG(mode)) return FileKind::regular;
    if (S_ISDIR(mode)) return FileKind::directory;
    if (S_ISLNK(mode)) return FileKind::symbolicLink;
    return FileKind::other;
}

FileStatus fromStat(const struct stat& st) {
    FileStatus out;
    out.kind = kindFromMode(st.st_mode);
    out.size = static_cast<std::int64_t>(st.st_size);
    out.allocatedSize = static_cast<std::int64_t>(st.st_blocks) * 512;
    out.device = static_cast<std::uint64_t>(st.st_dev);
    out.inode = static_cast<std::uint64_t>(st.st_ino);
    out.linkCount = static_cast<std::uint64_t>(st.st_nlink);
    out.permissions = static_cast<std::uint32_t>(st.st_mode & 07777);
    out.ownerId = static_cast<std::uint32_t>(st.st_uid);
#if defined(__APPLE__)
    out.accessDate = toDate(st.st_atimespec);
    out.modificationDate = toDate(st.st_mtimespec);
    out.statusChangeDate = toDate(st.st_ctimespec);
#else
    out.accessDate = toDate(st.st_atim);
    out.modificationDate = toDate(st.st_mtim);
    out.statusChangeDate = toDate(st.st_ctim);
#endif
    return out;
}

FileKind kindFromDirent(unsigned char type) {
    switch (type) {
    case DT_REG: return FileKind::regular;
    case DT_DIR: return FileKind::directory;
    case DT_LNK: return FileKind::symbolicLink;
    case DT_UNKNOWN: return FileKind::other;
    default: return FileKind::other;
    }
}

bool isDotOrDotDot(const char* name) {
    return name[0] == '.' && (name[1] == '\0' || (name[1] == '.' && name[2] == '\0'));
}

bool needsStatus(WalkStatus wanted, unsigned char type) {
    switch (wanted) {
    case WalkStatus::all: return true;
    case WalkStatus::regularFiles: return type == DT_REG || type == DT_UNKNOWN;
    case WalkStatus::none: return type == DT_UNKNOWN;
    }
    return true;
}

// Depth first, one descriptor per level: each directory is read through its
// own descriptor and its entries are examined relative to it, so no path is
// resolved twice. `path` is one buffer, grown and cut back as the walk moves.
struct Walker {
    const WalkOptions& options;
    const WalkCallbacks& callbacks;
    std::string path;
    bool stopped = false;

    void report(std::error_code error, WalkFailure failure) const {
        if (callbacks.onError) callbacks.onError(path, error, failure);
    }

    // Walks the open directory `fd` whose path is `path`; takes ownership of fd.
    void walkDirectory(int fd, int depth) {
        DIR* dir = ::fdopendir(fd);
        if (!dir) {
            report(lastError(), WalkFailure::directory);
            ::close(fd);
            return;
        }
        DirGuard guard(dir);
        const std::size_t baseLength = path.size();
        const bool needsSlash = path.empty() || path.back() != '/';
        struct stat st;
        while (!stopped) {
            errno = 0;
            struct dirent* entry = ::readdir(dir);
            if (!entry) {
                if (errno != 0) {
                    const int saved = errno;
                    path.resize(baseLength);
                    report({saved, std::generic_category()}, WalkFailure::directory);
                }
                break;
            }
            const char* name = entry->d_name;
            if (isDotOrDotDot(name)) continue;
            if (options.skipHiddenFiles && name[0] == '.') continue;

            path.resize(baseLength);
            if (needsSlash) path += '/';
            const std::size_t nameOffset = path.size();
            path += name;

            const unsigned char type = entry->d_type;
            FileKind kind = kindFromDirent(type);
            FileStatus status;
            const FileStatus* statusPointer = nullptr;
            if (needsStatus(options.status, type)) {
                if (::fstatat(dirfd(dir), name, &st, AT_SYMLINK_NOFOLLOW) != 0) {
                    report(lastError(), WalkFailure::entry);
                    continue;
                }
                status = fromStat(st);
                kind = status.kind;
                statusPointer = &status;
            }

            const WalkAction action =
                callbacks.visit(WalkEntry{path, std::string_view(path).substr(nameOffset), kind, statusPointer, depth});
            if (action == WalkAction::stop) {
                stopped = true;
                break;
            }
            if (kind != FileKind::directory || action == WalkAction::skipDescendants) continue;
            if (!options.descendIntoPackages && isPackageExtension(paths::pathExtension(name))) continue;

            int child = ::openat(dirfd(dir), name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
            if (child < 0) {
                report(lastError(), WalkFailure::directory);
                continue;
            }
            walkDirectory(child, depth + 1);
        }
        path.resize(baseLength);
    }
};

std::string temporarySibling(const std::string& path) {
    std::random_device device;
    std::uniform_int_distribution<unsigned long long> distribution;
    // A bare name lives in the working directory; "" would put the temporary in "/".
    std::string parent = paths::deletingLastComponent(path);
    if (parent.empty()) parent = ".";
    return fmt::format("{}/.{}.tmp-{:016x}", parent, paths::lastComponent(path), distribution(device));
}

bool writeAll(int fd, std::string_view contents, std::error_code& error) {
    while (!contents.empty()) {
        ssize_t written = ::write(fd, contents.data(), contents.size());
        if (written < 0) {
            if (errno == EINTR) continue;
            error = lastError();
            return false;
        }
        contents.remove_prefix(static_cast<std::size_t>(written));
    }
    return true;
}

// Removes `name` inside the directory `parentFd` without following links: a
// directory is opened with O_NOFOLLOW and emptied through its own descriptor.
bool removeAt(int parentFd, const char* name, std::error_code& error) {
    struct stat st;
    if (::fstatat(parentFd, name, &st, AT_SYMLINK_NOFOLLOW) != 0) {
        error = lastError();
        return false;
    }
    if (!S_ISDIR(st.st_mode)) {
        if (::unlinkat(parentFd, name, 0) != 0) {
            error = lastError();
            return false;
        }
        return true;
    }
    int fd = ::openat(parentFd, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
    if (fd < 0) {
        error = lastError();
        return false;
    }
    {
        DIR* dir = ::fdopendir(fd);
        if (!dir) {
            error = lastError();
            ::close(fd);
            return false;
        }
        DirGuard guard(dir);
        std::vector<std::string> names;
        while (struct dirent* entry = ::readdir(dir)) {
            if (!isDotOrDotDot(entry->d_name)) names.emplace_back(entry->d_name);
        }
        for (const auto& child : names) {
            if (!removeAt(dirfd(dir), child.c_str(), error)) return false;
        }
    }
    if (::unlinkat(parentFd, name, AT_REMOVEDIR) != 0) {
        error = lastError();
        return false;
    }
    return true;
}

constexpr std::array<std::string_view, 20> packageExtensions{
    "app",   "bundle", "framework", "plugin", "kext",    "xpc",         "appex",     "prefpane", "qlgenerator", "mdimporter",
    "saver", "wdgt",   "xcodeproj", "xcworkspace", "playground", "rtfd", "photoslibrary", "musiclibrary", "component", "pkg"};

} // namespace

std::optional<FileStatus> PosixFileSystem::status(const std::string& path, std::error_code& error) const {
    struct stat st;
    if (::stat(path.c_str(), &st) != 0) {
        error = lastError();
        return std::nullopt;
    }
    return fromStat(st);
}

std::optional<FileStatus> PosixFileSystem::linkStatus(const std::string& path, std::error_code& error) const {
    struct stat st;
    if (::lstat(path.c_str(), &st) != 0) {
        error = lastError();
        return std::nullopt;
    }
    return fromStat(st);
}

std::vector<DirectoryEntry> PosixFileSystem::contentsOfDirectory(const std::string& path, ListOptions options,
                                                                 std::error_code& error) const {
    std::vector<DirectoryEntry> entries;
    int fd = ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) {
        error = lastError();
        return entries;
    }
    DIR* dir = ::fdopendir(fd);
    if (!dir) {
        error = lastError();
        ::close(fd);
        return entries;
    }
    DirGuard guard(dir);
    while (true) {
        errno = 0;
        struct dirent* entry = ::readdir(dir);
        if (!entry) {
            if (errno != 0) error = lastError();
            break;
        }
        if (isDotOrDotDot(entry->d_name)) continue;
        if (options.skipHiddenFiles && entry->d_name[0] == '.') continue;
        FileKind kind = kindFromDirent(entry->d_type);
        if (entry->d_type == DT_UNKNOWN) {
            struct stat st;
            if (::fstatat(dirfd(dir), entry->d_name, &st, AT_SYMLINK_NOFOLLOW) == 0) kind = kindFromMode(st.st_mode);
        }
        entries.push_back(DirectoryEntry{entry->d_name, kind});
    }
    return entries;
}

void PosixFileSystem::walk(const std::string& root, const WalkOptions& options, const WalkCallbacks& callbacks) const {
    int fd = ::open(root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) {
        if (callbacks.onError) callbacks.onError(root, lastError(), WalkFailure::directory);
        return;
    }
    Walker walker{options, callbacks, root};
    walker.walkDirectory(fd, 1);
}

std::optional<std::string> PosixFileSystem::destinationOfSymbolicLink(const std::string& path,
                                                                      std::error_code& error) const {
    std::string buffer(256, '\0');
    while (true) {
        ssize_t length = ::readlink(path.c_str(), buffer.data(), buffer.size());
        if (length < 0) {
            error = lastError();
            return std::nullopt;
        }
        if (static_cast<std::size_t>(length) < buffer.size()) {
            buffer.resize(static_cast<std::size_t>(length));
            return buffer;
        }
        buffer.resize(buffer.size() * 2);
    }
}

std::string PosixFileSystem::resolvingSymlinks(const std::string& path) const {
    if (!paths::isAbsolute(path)) return paths::standardize(path);
    std::deque<std::string> pending;
    for (auto& part : paths::components(path)) pending.push_back(std::move(part));
    std::string resolved = "/";
    int linksFollowed = 0;
    while (!pending.empty()) {
        std::string part = std::move(pending.front());
        pending.pop_front();
        if (part == ".") continue;
        if (part == "..") {
            resolved = paths::deletingLastComponent(resolved);
            if (resolved.empty()) resolved = "/";
            continue;
        }
        std::string candidate = paths::appending(resolved, part);
        struct stat st;
        if (::lstat(candidate.c_str(), &st) != 0) {
            // What does not exist stays as written.
            resolved = candidate;
            for (const auto& rest : pending) resolved = paths::appending(resolved, rest);
            return paths::standardize(resolved);
        }
        if (!S_ISLNK(st.st_mode)) {
            resolved = std::move(candidate);
            continue;
        }
        std::error_code error;
        auto target = destinationOfSymbolicLink(candidate, error);
        if (!target || ++linksFollowed > 40) return paths::standardize(path);
        auto targetParts = paths::components(*target);
        if (paths::isAbsolute(*target)) resolved = "/";
        pending.insert(pending.begin(), targetParts.begin(), targetParts.end());
    }
#if defined(__APPLE__)
    // /tmp, /var and /etc are links into /private; the system's own
    // resolution reports them without the prefix, and so do we.
    for (std::string_view privateRoot : {"/private/tmp", "/private/var", "/private/etc"}) {
        if (paths::isSameOrBelow(resolved, privateRoot)) return resolved.substr(8);
    }
#endif
    return resolved;
}

std::optional<std::string> PosixFileSystem::readFile(const std::string& path, std::size_t maxBytes,
                                                     std::error_code& error) const {
    // Non-blocking open, then only a regular file is read: a FIFO would block
    // the scan and a device would never end. A directory answers EISDIR.
    FdGuard fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    if (fd.get() < 0) {
        error = lastError();
        return std::nullopt;
    }
    struct stat st;
    if (::fstat(fd.get(), &st) != 0) {
        error = lastError();
        return std::nullopt;
    }
    if (!S_ISREG(st.st_mode)) {
        error = std::make_error_code(S_ISDIR(st.st_mode) ? std::errc::is_a_directory : std::errc::invalid_argument);
        return std::nullopt;
    }
    ::fcntl(fd.get(), F_SETFL, ::fcntl(fd.get(), F_GETFL) & ~O_NONBLOCK);
    std::string contents;
    char buffer[65536];
    while (contents.size() < maxBytes) {
        std::size_t want = std::min(sizeof buffer, maxBytes - contents.size());
        ssize_t got = ::read(fd.get(), buffer, want);
        if (got < 0) {
            if (errno == EINTR) continue;
            error = lastError();
            return std::nullopt;
        }
        if (got == 0) break;
        contents.append(buffer, static_cast<std::size_t>(got));
    }
    return contents;
}

bool PosixFileSystem::writeFileAtomically(const std::string& path, std::string_view contents,
                                          std::uint32_t permissions, std::error_code& error) {
    const std::string temporary = temporarySibling(path);
    FdGuard fd(::open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, permissions));
    if (fd.get() < 0) {
        error = lastError();
        return false;
    }
    bool ok = writeAll(fd.get(), contents, error);
    if (ok && ::fchmod(fd.get(), static_cast<mode_t>(permissions)) != 0) {
        error = lastError();
        ok = false;
    }
    if (ok && ::fsync(fd.get()) != 0) {
        error = lastError();
        ok = false;
    }
    int raw = fd.release();
    if (::close(raw) != 0 && ok) {
        error = lastError();
        ok = false;
    }
    if (ok && ::rename(temporary.c_str(), path.c_str()) != 0) {
        error = lastError();
        ok = false;
    }
    if (!ok) ::unlink(temporary.c_str());
    return ok;
}

bool PosixFileSystem::appendToFile(const std::string& path, std::string_view contents, std::uint32_t permissions,
                                   std::error_code& error) {
    // Create exclusively first, so that a new file can be given its exact mode
    // (open's mode passes through the umask) and an existing one keeps its own.
    int raw = ::open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_EXCL | O_CLOEXEC, permissions);
    const bool created = raw >= 0;
    if (!created && errno == EEXIST) raw = ::open(path.c_str(), O_WRONLY | O_APPEND | O_CLOEXEC);
    FdGuard fd(raw);
    if (fd.get() < 0) {
        error = lastError();
        return false;
    }
    if (created && ::fchmod(fd.get(), static_cast<mode_t>(permissions)) != 0) {
        error = lastError();
        return false;
    }
    // A write that fails halfway (disk full, file size limit) must not leave
    // half a record behind: cut the file back to where it was.
    struct stat before;
    if (::fstat(fd.get(), &before) != 0) {
        error = lastError();
        return false;
    }
    if (!writeAll(fd.get(), contents, error) || (::fsync(fd.get()) != 0 && (error = lastError(), true))) {
        if (::ftruncate(fd.get(), before.st_size) == 0) ::fsync(fd.get());
        return false;
    }
    return true;
}

bool PosixFileSystem::createDirectory(const std::string& path, std::uint32_t permissions, bool withIntermediates,
                                      std::error_code& error) {
    auto makeOne = [&](const std::string& directory, bool mustBeNew) {
        if (::mkdir(directory.c_str(), static_cast<mode_t>(permissions)) == 0) {
            // mkdir's mode passes through the umask; set what was asked for.
            if (::chmod(directory.c_str(), static_cast<mode_t>(permissions)) != 0) {
                error = lastError();
                return false;
            }
            return true;
        }
        if (errno == EEXIST && !mustBeNew) {
            struct stat st;
            if (::stat(directory.c_str(), &st) == 0 && S_ISDIR(st.st_mode)) return true;
            error = std::make_error_code(std::errc::not_a_directory);
            return false;
        }
        error = lastError();
        return false;
    };
    if (!withIntermediates) return makeOne(path, true);
    std::string built = paths::isAbsolute(path) ? "" : ".";
    for (const auto& part : paths::components(path)) {
        built += '/';
        built += part;
        if (!makeOne(built, false)) return false;
    }
    return true;
}

bool PosixFileSystem::moveItem(const std::string& from, const std::string& to, std::error_code& error) {
    if (::rename(from.c_str(), to.c_str()) != 0) {
        error = lastError();
        return false;
    }
    return true;
}

bool PosixFileSystem::removeItem(const std::string& path, std::error_code& error) {
    std::string parent = paths::deletingLastComponent(path);
    std::string name = paths::lastComponent(path);
    if (parent.empty()) parent = ".";
    if (name == "/" || name == "." || name == "..") {
        error = std::make_error_code(std::errc::invalid_argument);
        return false;
    }
    FdGuard parentFd(::open(parent.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (parentFd.get() < 0) {
        error = lastError();
        return false;
    }
    return removeAt(parentFd.get(), name.c_str(), error);
}

bool PosixFileSystem::setPermissions(const std::string& path, std::uint32_t permissions, std::error_code& error) {
    if (::chmod(path.c_str(), static_cast<mode_t>(permissions)) != 0) {
        error = lastError();
        return false;
    }
    return true;
}

bool PosixFileSystem::isPackage(const std::string& path) const {
    std::string extension = paths::pathExtension(path);
    if (extension.empty() || !isPackageExtension(extension)) return false;
    std::error_code error;
    auto st = status(path, error);
    return st && st->kind == FileKind::directory;
}

bool isPackageExtension(std::string_view extension) {
    std::string lower(extension);
    for (auto& c : lower) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    for (auto known : packageExtensions) {
        if (known == lower) return true;
    }
    return false;
}

std::shared_ptr<FileSystem> makeDefaultFileSystem() { return std::make_shared<PosixFileSystem>(); }

} // namespace unbulk
