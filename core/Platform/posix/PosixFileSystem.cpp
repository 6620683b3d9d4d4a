#include "Platform/posix/PosixFileSystem.hpp"

#include <array>
#include <cerrno>
#include <cstring>
#include <deque>
#include <functional>
#include <random>
#include <thread>

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fmt/format.h>

#include "Platform/TreeMeasure.hpp"
#include "Platform/posix/AnchoredDirectory.hpp"
#include "Platform/posix/Descriptors.hpp"
#include "Platform/posix/DirectoryStream.hpp"
#include "Platform/posix/EntryKinds.hpp"
#include "Platform/posix/ParallelTreeMeasure.hpp"
#include "Platform/posix/PosixOpenDirectory.hpp"
#include "Platform/posix/TreeRemoval.hpp"
#include "Platform/posix/TreeWalker.hpp"
#include "Support/Paths.hpp"

namespace unbulk {

using posix::containsNul;
using posix::FdGuard;
using posix::isDotOrDotDot;
using posix::kindFromDirent;
using posix::kindFromMode;
using posix::lastError;
using posix::writeAll;

namespace {

Date toDate(const struct timespec& ts) {
    return Date{std::chrono::duration_cast<Date::duration>(std::chrono::seconds{ts.tv_sec} +
                                                           std::chrono::nanoseconds{ts.tv_nsec})};
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
    out.flags = static_cast<std::uint32_t>(st.st_flags);
#endif
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

std::string temporarySibling(const std::string& path) {
    std::random_device device;
    std::uniform_int_distribution<unsigned long long> distribution;
    // A bare name lives in the working directory; "" would put the temporary in "/".
    std::string parent = paths::deletingLastComponent(path);
    if (parent.empty()) parent = ".";
    return fmt::format("{}/.{}.tmp-{:016x}", parent, paths::lastComponent(path), distribution(device));
}

// The directory types the Mac shows as one item, among those a developer's
// disk holds, in lower case (the test ignores case, so "dSYM" is "dsym").
constexpr std::array packageExtensions = std::to_array<std::string_view>({
    // applications, plug-ins and extensions
    "app", "appex", "bundle", "component", "dext", "framework", "kext", "mdimporter", "plugin", "prefpane",
    "qlgenerator", "saver", "systemextension", "wdgt", "xpc", "xctest",
    // Xcode's documents and products
    "doccarchive", "dsym", "playground", "swiftpm", "xcarchive", "xcodeproj", "xcresult", "xcworkspace",
    // disk images, installers, virtual machines and downloads in progress
    "sparsebundle", "mpkg", "pkg", "pvm", "utm", "vmwarevm", "download",
    // documents, libraries and scripts kept as folders
    "band", "fcpbundle", "imovielibrary", "key", "logicx", "musiclibrary", "numbers", "pages", "photoslibrary",
    "rtfd", "action", "scptd", "workflow",
});

} // namespace

FileStatus posix::fileStatusOf(const struct stat& st) { return fromStat(st); }

std::optional<FileStatus> PosixFileSystem::status(const std::string& path, PlatformError& error) const {
    if (containsNul(path)) {
        error = posix::failedWith(EINVAL, "stat", path);
        return std::nullopt;
    }
    struct stat st;
    if (::stat(path.c_str(), &st) != 0) {
        error = posix::failed("stat", path);
        return std::nullopt;
    }
    return fromStat(st);
}

std::optional<FileStatus> PosixFileSystem::linkStatus(const std::string& path, PlatformError& error) const {
    if (containsNul(path)) {
        error = posix::failedWith(EINVAL, "lstat", path);
        return std::nullopt;
    }
    struct stat st;
    if (::lstat(path.c_str(), &st) != 0) {
        error = posix::failed("lstat", path);
        return std::nullopt;
    }
    return fromStat(st);
}

std::vector<DirectoryEntry> PosixFileSystem::contentsOfDirectory(const std::string& path, ListOptions options,
                                                                 PlatformError& error) const {
    std::vector<DirectoryEntry> entries;
    if (containsNul(path)) {
        error = posix::failedWith(EINVAL, "open", path);
        return entries;
    }
    int fd = ::open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) {
        error = posix::failed("open", path);
        return entries;
    }
    posix::DirectoryStream directory(fd);
    const std::error_code readError = directory.readAll([&](const char* name, unsigned char type) {
        if (options.skipHiddenFiles && name[0] == '.') return;
        FileKind kind = kindFromDirent(type);
        if (type == DT_UNKNOWN) {
            struct stat st;
            if (::fstatat(directory.fd(), name, &st, AT_SYMLINK_NOFOLLOW) == 0) kind = kindFromMode(st.st_mode);
        }
        entries.push_back(DirectoryEntry{name, kind});
    });
    if (readError) error = posix::failedWith(readError.value(), posix::readDirectoryCall, path);
    return entries;
}

void PosixFileSystem::walk(const std::string& root, const WalkOptions& options, const WalkCallbacks& callbacks) const {
    // The root is the one place a link is followed: a walk of a link to a
    // directory walks the directory.
    int fd = containsNul(root) ? (errno = EINVAL, -1) : ::open(root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) {
        if (callbacks.onError) callbacks.onError(root, lastError(), WalkFailure::directory);
        return;
    }
    if (callbacks.openedRoot) {
        struct stat st {};
        if (::fstat(fd, &st) != 0) {
            if (callbacks.onError) callbacks.onError(root, lastError(), WalkFailure::directory);
            ::close(fd);
            return;
        }
        callbacks.openedRoot(fromStat(st));
    }
    posix::TreeWalker walker(posix::TreeWalkerOptions{
        .status = options.status,
        .skipHiddenFiles = options.skipHiddenFiles,
        .descendIntoPackages = options.descendIntoPackages,
    });
    posix::TreeWalkerHooks hooks;
    hooks.visit = [&](const posix::TreeEntry& entry) {
        FileStatus status;
        if (entry.status != nullptr) status = fromStat(*entry.status);
        const std::string_view name(entry.name);
        return callbacks.visit(
            WalkEntry{entry.path, name, entry.kind, entry.status != nullptr ? &status : nullptr, entry.depth});
    };
    hooks.onError = callbacks.onError;
    walker.run(fd, root, hooks);
}

std::unique_ptr<OpenDirectory> PosixFileSystem::openDirectory(const std::string& path, PlatformError& error) const {
    return posix::openDirectoryAt(AT_FDCWD, path, "open", path, error);
}

TreeMeasure PosixFileSystem::measureTree(const std::string& root, const TreeMeasureOptions& options) const {
    // As in walk, the root is the one place a link is followed.
    const int fd = containsNul(root) ? (errno = EINVAL, -1) : ::open(root.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
    if (fd < 0) {
        TreeMeasure measure;
        measure.addFailure(WalkFailure::directory, lastError(), true);
        return measure;
    }
    return posix::measureInParallel(fd, options);
}

std::optional<std::string> PosixFileSystem::destinationOfSymbolicLink(const std::string& path,
                                                                      PlatformError& error) const {
    if (containsNul(path)) {
        error = posix::failedWith(EINVAL, "readlink", path);
        return std::nullopt;
    }
    std::string buffer(256, '\0');
    while (true) {
        ssize_t length = ::readlink(path.c_str(), buffer.data(), buffer.size());
        if (length < 0) {
            error = posix::failed("readlink", path);
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
    if (!paths::isAbsolute(path) || containsNul(path)) return paths::standardize(path);
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
            // A path that does not exist, links followed, stays as it is,
            // as the system's own resolution leaves it.
            return paths::standardize(path);
        }
        if (!S_ISLNK(st.st_mode)) {
            resolved = std::move(candidate);
            continue;
        }
        PlatformError error;
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
                                                     PlatformError& error) const {
    // Non-blocking open, then only a regular file is read: a FIFO would block
    // the scan and a device would never end. A directory answers EISDIR.
    if (containsNul(path)) {
        error = posix::failedWith(EINVAL, "open", path);
        return std::nullopt;
    }
    FdGuard fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK | O_NOCTTY));
    if (fd.get() < 0) {
        error = posix::failed("open", path);
        return std::nullopt;
    }
    struct stat st;
    if (::fstat(fd.get(), &st) != 0) {
        error = posix::failed("fstat", path);
        return std::nullopt;
    }
    if (!S_ISREG(st.st_mode)) {
        // What read() would answer for a directory; anything else that is no
        // regular file is refused before it can block.
        error = posix::failedWith(S_ISDIR(st.st_mode) ? EISDIR : EINVAL, "read", path);
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
            error = posix::failed("read", path);
            return std::nullopt;
        }
        if (got == 0) break;
        contents.append(buffer, static_cast<std::size_t>(got));
    }
    return contents;
}

bool PosixFileSystem::writeFileAtomically(const std::string& path, std::string_view contents,
                                          std::uint32_t permissions, PlatformError& error) {
    if (containsNul(path)) {
        error = posix::failedWith(EINVAL, "open", path);
        return false;
    }
    const std::string temporary = temporarySibling(path);
    FdGuard fd(::open(temporary.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, permissions));
    if (fd.get() < 0) {
        error = posix::failed("open", temporary);
        return false;
    }
    bool ok = writeAll(fd.get(), contents, temporary, error);
    if (ok && ::fchmod(fd.get(), static_cast<mode_t>(permissions)) != 0) {
        error = posix::failed("fchmod", temporary);
        ok = false;
    }
    if (ok && ::fsync(fd.get()) != 0) {
        error = posix::failed("fsync", temporary);
        ok = false;
    }
    int raw = fd.release();
    if (::close(raw) != 0 && ok) {
        error = posix::failed("close", temporary);
        ok = false;
    }
    if (ok && ::rename(temporary.c_str(), path.c_str()) != 0) {
        error = posix::failed("rename", temporary, path);
        ok = false;
    }
    if (!ok) ::unlink(temporary.c_str());
    return ok;
}

bool PosixFileSystem::renameItem(const std::string& from, const std::string& to, PlatformError& error) {
    if (containsNul(from) || containsNul(to)) {
        error = PlatformError::systemCall(posix::renameWithoutReplacingCall, EINVAL, from, to);
        return false;
    }
    if (posix::renameWithoutReplacing(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str()) == 0) return true;
    error = posix::failed(posix::renameWithoutReplacingCall, from, to);
    return false;
}

bool PosixFileSystem::createDirectory(const std::string& path, std::uint32_t permissions, bool withIntermediates,
                                      PlatformError& error) {
    if (containsNul(path)) {
        error = posix::failedWith(EINVAL, "mkdir", path);
        return false;
    }
    auto makeOne = [&](const std::string& directory, bool mustBeNew) {
        if (::mkdir(directory.c_str(), static_cast<mode_t>(permissions)) == 0) {
            // mkdir's mode passes through the umask; set what was asked for.
            if (::chmod(directory.c_str(), static_cast<mode_t>(permissions)) != 0) {
                error = posix::failed("chmod", directory);
                return false;
            }
            return true;
        }
        if (errno == EEXIST && !mustBeNew) {
            struct stat st;
            if (::stat(directory.c_str(), &st) == 0 && S_ISDIR(st.st_mode)) return true;
            // Something that is no directory holds the name.
            error = posix::failedWith(ENOTDIR, "mkdir", directory);
            return false;
        }
        error = posix::failed("mkdir", directory);
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

namespace {

// Takes the exclusive lock on `fd`, waiting at most `timeout` for another
// holder to let go: a process that holds it forever must not hold us too.
bool lockWithin(int fd, const std::string& path, std::chrono::milliseconds timeout, PlatformError& error) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    auto pause = std::chrono::milliseconds(1);
    while (::flock(fd, LOCK_EX | LOCK_NB) != 0) {
        if (errno == EINTR) continue;
        if (errno != EWOULDBLOCK) {
            error = posix::failed("flock", path);
            return false;
        }
        const auto now = std::chrono::steady_clock::now();
        if (now >= deadline) {
            error = posix::failedWith(ETIMEDOUT, "flock", path);
            return false;
        }
        std::this_thread::sleep_for(std::min<std::chrono::steady_clock::duration>(pause, deadline - now));
        pause = std::min(pause * 2, std::chrono::milliseconds(50));
    }
    return true;
}

// Makes a new directory entry durable: the file could otherwise vanish with
// a power cut although its contents were flushed.
void syncParentDirectory(const std::string& path) {
    std::string parent = paths::deletingLastComponent(path);
    if (parent.empty()) parent = ".";
    FdGuard directory(::open(parent.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
    if (directory.get() >= 0) ::fsync(directory.get());
}

class PosixLockedFile final : public LockedFile {
public:
    PosixLockedFile(FdGuard fd, std::string path) : fd_(std::move(fd)), path_(std::move(path)) {}

    bool append(std::string_view text, bool flush, PlatformError& error) override {
        if (!writeAll(fd_.get(), text, path_, error)) return false;
        if (flush && ::fsync(fd_.get()) != 0) {
            error = posix::failed("fsync", path_);
            return false;
        }
        return true;
    }

    std::optional<std::string> readAll(PlatformError& error) const override {
        std::string contents;
        char buffer[65536];
        for (off_t offset = 0;;) {
            const ssize_t got = ::pread(fd_.get(), buffer, sizeof buffer, offset);
            if (got < 0 && errno == EINTR) continue;
            if (got < 0) {
                error = posix::failed("pread", path_);
                return std::nullopt;
            }
            if (got == 0) return contents;
            contents.append(buffer, static_cast<std::size_t>(got));
            offset += got;
        }
    }

    bool remove(PlatformError& error) override {
        // Only the file we hold: a name that holds another by now is left.
        struct stat held {}, named {};
        if (::fstat(fd_.get(), &held) != 0 || ::lstat(path_.c_str(), &named) != 0 || held.st_dev != named.st_dev ||
            held.st_ino != named.st_ino) {
            error = posix::failedWith(ENOENT, "unlink", path_);
            return false;
        }
        if (::unlink(path_.c_str()) != 0) {
            error = posix::failed("unlink", path_);
            return false;
        }
        return true;
    }

private:
    FdGuard fd_;
    std::string path_;
};

} // namespace

bool PosixFileSystem::removeItem(const std::string& path, const Identity& expected, const AnchorCheck& anchorCheck,
                                 const RemovalCheck& check, RemovalReport& report, PlatformError& error) {
    error.clear();
    const auto item = posix::openAnchoredItem(path, expected, anchorCheck, "unlinkat", error);
    return item && posix::removeAnchoredItem(*item, path, check, report, error);
}

namespace {

// The locked file's contents, read with pread as they are asked for. The
// first failure is kept, for the append to fail with.
class DescriptorContents final : public LockedContents {
public:
    DescriptorContents(int fd, std::uint64_t size, const std::string& path) : fd_(fd), size_(size), path_(path) {}

    std::uint64_t size() const override { return size_; }

    std::optional<std::string> read(std::uint64_t offset, std::size_t length) const override {
        std::string bytes(std::min<std::uint64_t>(length, size_ - std::min(offset, size_)), '\0');
        std::size_t have = 0;
        while (have < bytes.size()) {
            const ssize_t got = ::pread(fd_, bytes.data() + have, bytes.size() - have, static_cast<off_t>(offset + have));
            if (got < 0 && errno == EINTR) continue;
            if (got < 0) {
                if (!failure_) failure_ = posix::failed("pread", path_);
                return std::nullopt;
            }
            if (got == 0) break;
            have += static_cast<std::size_t>(got);
        }
        bytes.resize(have);
        return bytes;
    }

    const PlatformError& failure() const { return failure_; }

private:
    int fd_;
    std::uint64_t size_;
    const std::string& path_;
    mutable PlatformError failure_;
};

} // namespace

bool PosixFileSystem::appendUnderLock(const std::string& path, std::uint32_t permissions,
                                      std::chrono::milliseconds lockTimeout, const AppendComposer& compose,
                                      PlatformError& error) {
    error.clear();
    if (containsNul(path)) {
        error = posix::failedWith(EINVAL, "open", path);
        return false;
    }
    // Created exclusively or opened as it is, never replaced: a log that
    // another process has just made is appended to, not overwritten.
    int raw = ::open(path.c_str(), O_RDWR | O_APPEND | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, permissions);
    const bool created = raw >= 0;
    if (!created && errno == EEXIST) raw = ::open(path.c_str(), O_RDWR | O_APPEND | O_NOFOLLOW | O_CLOEXEC);
    FdGuard fd(raw);
    if (fd.get() < 0) {
        error = posix::failed("open", path);
        return false;
    }
    // open's mode passes through the umask; a new file gets exactly its mode.
    if (created && ::fchmod(fd.get(), static_cast<mode_t>(permissions)) != 0) {
        error = posix::failed("fchmod", path);
        return false;
    }
    if (!lockWithin(fd.get(), path, lockTimeout, error)) return false;
    // The lock goes with the descriptor when it is closed.
    struct stat st {};
    if (::fstat(fd.get(), &st) != 0) {
        error = posix::failed("fstat", path);
        return false;
    }
    const DescriptorContents contents(fd.get(), static_cast<std::uint64_t>(st.st_size), path);
    std::optional<std::string> addition = compose(contents);
    // A last line that lost its line feed (a crash mid-write, an editor)
    // keeps its own line; the new text starts on the next.
    const std::optional<std::string> lastByte =
        contents.size() > 0 ? contents.read(contents.size() - 1, 1) : std::optional<std::string>("\n");
    if (contents.failure()) {
        error = contents.failure();
        return false;
    }
    if (!addition || addition->empty()) return true;
    if (lastByte && *lastByte != "\n") addition->insert(addition->begin(), '\n');
    if (!writeAll(fd.get(), *addition, path, error) ||
        (::fsync(fd.get()) != 0 && (error = posix::failed("fsync", path), true))) {
        // Half a record would break every record after it: cut back.
        if (::ftruncate(fd.get(), static_cast<off_t>(st.st_size)) == 0) ::fsync(fd.get());
        return false;
    }
    return true;
}

std::unique_ptr<LockedFile> PosixFileSystem::openLocked(const std::string& path, LockedFileMode mode,
                                                        std::uint32_t permissions, PlatformError& error) {
    error.clear();
    if (containsNul(path)) {
        error = posix::failedWith(EINVAL, "open", path);
        return nullptr;
    }
    const bool create = mode == LockedFileMode::createNew;
    const int flags = O_RDWR | O_APPEND | O_NOFOLLOW | O_CLOEXEC | (create ? O_CREAT | O_EXCL : 0);
    FdGuard fd(::open(path.c_str(), flags, static_cast<mode_t>(permissions)));
    if (fd.get() < 0) {
        error = posix::failed("open", path);
        return nullptr;
    }
    struct stat held {};
    if (::fstat(fd.get(), &held) != 0) {
        error = posix::failed("fstat", path);
        return nullptr;
    }
    if (!S_ISREG(held.st_mode)) {
        error = posix::failedWith(EINVAL, "open", path);
        return nullptr;
    }
    if (create && ::fchmod(fd.get(), static_cast<mode_t>(permissions)) != 0) {
        error = posix::failed("fchmod", path);
        return nullptr;
    }
    while (::flock(fd.get(), LOCK_EX | LOCK_NB) != 0) {
        if (errno == EINTR) continue;
        error = posix::failed("flock", path);
        return nullptr;
    }
    if (create) {
        syncParentDirectory(path);
    } else {
        // Whoever held it before may have removed it once done: then the
        // name is gone, or holds another file, and there is nothing to take.
        struct stat named {};
        if (::lstat(path.c_str(), &named) != 0 || named.st_dev != held.st_dev || named.st_ino != held.st_ino) {
            error = posix::failedWith(ENOENT, "lstat", path);
            return nullptr;
        }
    }
    return std::make_unique<PosixLockedFile>(std::move(fd), path);
}

bool PosixFileSystem::isPackage(const std::string& path) const {
    std::string extension = paths::pathExtension(path);
    if (extension.empty() || !isPackageExtension(extension)) return false;
    PlatformError error;
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
