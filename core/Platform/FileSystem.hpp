#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "Platform/PlatformError.hpp"
#include "Support/Dates.hpp"
#include "Support/FileURL.hpp"

namespace unbulk {

enum class FileKind { regular, directory, symbolicLink, other };

// Which file a path named when it was looked at: removal checks that the
// name still holds the same file before it acts.
struct Identity {
    std::uint64_t device = 0;
    std::uint64_t inode = 0;

    friend bool operator==(const Identity&, const Identity&) = default;
};

// What lstat/stat tell about one path.
struct FileStatus {
    FileKind kind = FileKind::other;
    std::int64_t size = 0;          // logical length (st_size)
    std::int64_t allocatedSize = 0; // bytes on disk (st_blocks * 512)
    std::uint64_t device = 0;
    std::uint64_t inode = 0;
    std::uint64_t linkCount = 0;
    std::uint32_t permissions = 0; // the low 12 mode bits
    std::uint32_t ownerId = 0;
    std::uint32_t flags = 0; // st_flags where the system has them (SF_RESTRICTED, ...); 0 elsewhere
    Date accessDate{};
    Date modificationDate{};
    Date statusChangeDate{};

    Identity identity() const { return Identity{device, inode}; }
};

// The error of an item that is no longer what was checked: a directory on
// its path became a link, or its name now holds another file. Nothing was
// done to it.
std::error_code changedSinceCheckedError();

// One directory on the way to an item, from "/" down to the item's parent,
// or the item itself, as the open that follows no link met it.
struct AnchoredStep {
    std::string path;
    FileStatus status; // the directory's fstat, or the item's lstat
};

// Asked once before an item is removed or moved, after its way has been
// opened and its identity checked: the steps from "/" to the item's parent
// in order, the item itself last. An error refuses the item, and nothing is
// done to it. An empty check accepts every way.
using AnchorCheck = std::function<std::error_code(const std::vector<AnchoredStep>& steps)>;

// What a permanent removal did, also when it stopped halfway. Files are
// counted at every name, as the removal frees each name.
struct RemovalReport {
    std::int64_t filesRemoved = 0;
    std::int64_t allocatedBytesRemoved = 0;
    std::int64_t logicalBytesRemoved = 0;
    // Entries left alone because they lie on another file system than the
    // item (a mount inside it), as rm --one-file-system leaves them.
    std::vector<std::string> otherFileSystemPaths;
    // Where the error that stopped the removal happened, if one did.
    std::string failedPath;
};

struct DirectoryEntry {
    std::string name;
    FileKind kind = FileKind::other; // from the directory read; lstat only where it says "unknown"
};

struct ListOptions {
    bool skipHiddenFiles = false; // names that begin with "."
};

// One entry met during a walk. `path` is the full path; `status` is the
// entry's lstat, present when the walk was asked for it and the call worked.
// Both live only as long as the visit.
struct WalkEntry {
    const std::string& path;
    std::string_view name;
    FileKind kind;
    const FileStatus* status;
    int depth; // 1 for the root's direct children
};

enum class WalkAction { proceed, skipDescendants, stop };

// Which entries a walk lstats. The directory read already tells an entry's
// kind, so a walk that needs sizes only of files can leave directories and
// links alone and save a system call for each. An entry whose kind the read
// does not tell is examined whatever is asked.
enum class WalkStatus {
    none,
    regularFiles,
    allButDirectories, // a directory is described by its own reading (openedRoot)
    all,
};

struct WalkOptions {
    WalkStatus status = WalkStatus::all; // lstat relative to the entry's directory
    bool skipHiddenFiles = false;        // neither report nor descend into dot-entries
    bool descendIntoPackages = true;
};

enum class WalkFailure {
    directory, // a directory (the root included) could not be opened or read
    entry,     // an entry could not be examined; it is not visited
};

// Asked about each entry below an item that is being removed, before it is
// touched: setting `leaveInPlace` keeps a directory and all it holds; an
// error stops the removal there.
using RemovalCheck = std::function<std::error_code(const WalkEntry& entry, bool& leaveInPlace)>;

struct WalkCallbacks {
    std::function<WalkAction(const WalkEntry&)> visit;
    // Called for each failure; the walk goes on.
    std::function<void(const std::string& path, std::error_code error, WalkFailure failure)> onError;
    // When set, shown the status of the directory the walk opened as its
    // root (a link there followed), taken from its descriptor, before any
    // entry: the directory that is read, whatever its path names by then.
    std::function<void(const FileStatus& root)> openedRoot;
};

// One entry of a directory read one level deep. `status` is the entry's
// lstat, present when the reading was asked for it and the call worked.
// Both live only as long as the visit.
struct DirectoryItem {
    std::string_view name;
    FileKind kind;
    const FileStatus* status;
};

// A directory held open for reading one level at a time, folder by folder,
// as the space lens reads a tree. What it holds is opened relative to it:
// its path is not looked up again, so a deep tree costs no more to open than
// a shallow one, and a rename above it since does not lead elsewhere.
class OpenDirectory {
public:
    virtual ~OpenDirectory() = default;

    // What was opened, from its descriptor (a link there followed).
    virtual const FileStatus& status() const = 0;

    // Shows `visit` each entry once, examined as `wanted` asks; an entry that
    // cannot be examined is left out. A visit that answers false ends the
    // reading. Answers the error that ended it early, or none; what was read
    // before it has been shown.
    virtual std::error_code read(WalkStatus wanted, bool skipHiddenFiles,
                                 const std::function<bool(const DirectoryItem&)>& visit) = 0;

    // Opens the entry `name` of this directory, a link there followed, as
    // openDirectory opens a path; `path` is the entry's full path, for errors.
    virtual std::unique_ptr<OpenDirectory> openEntry(std::string_view name, const std::string& path,
                                                     PlatformError& error) const = 0;
};

struct TreeMeasure;
struct TreeMeasureOptions;

// A file held under lock, as appendUnderLock shows it to the caller who
// composes what to add: its size when the lock was taken, and any stretch
// of it read on demand, so that whoever needs only the end of a long file
// reads no more than that.
class LockedContents {
public:
    virtual ~LockedContents() = default;
    virtual std::uint64_t size() const = 0;
    // The bytes from `offset` on, `length` of them at most. Nothing when the
    // read fails; the append then fails with that error and adds nothing.
    virtual std::optional<std::string> read(std::uint64_t offset, std::size_t length) const = 0;
};

// What to add to a locked file, given what it holds; nothing adds nothing.
using AppendComposer = std::function<std::optional<std::string>(const LockedContents& contents)>;

// A file held under an exclusive advisory lock for as long as the object
// lives, or its process does (the lock goes with it, however it ends): a
// record of work in progress that must survive a crash, and that no one else
// may take up while its owner is alive.
class LockedFile {
public:
    virtual ~LockedFile() = default;
    // Appends the text; with `flush`, it is on the disk when this answers.
    virtual bool append(std::string_view text, bool flush, PlatformError& error) = 0;
    virtual std::optional<std::string> readAll(PlatformError& error) const = 0;
    // Unlinks the file while the lock is still held, so that whoever waited
    // for it finds nothing left to take up.
    virtual bool remove(PlatformError& error) = 0;
};

enum class LockedFileMode {
    createNew, // a new file; one that exists already fails with EEXIST
    takeUp,    // an existing file that no one holds: EWOULDBLOCK when someone
               // does, ENOENT when it went while we waited
};

// The file system as the core sees it. Every call that touches the disk goes
// through here, so that tests can wrap it and inject failures. Nothing follows
// a symbolic link unless its name says so. A failure names the system call
// and the path that failed (PlatformError).
class FileSystem {
public:
    virtual ~FileSystem() = default;

    // stat (follows links) and lstat (does not).
    virtual std::optional<FileStatus> status(const std::string& path, PlatformError& error) const = 0;
    virtual std::optional<FileStatus> linkStatus(const std::string& path, PlatformError& error) const = 0;

    virtual std::vector<DirectoryEntry> contentsOfDirectory(const std::string& path, ListOptions options,
                                                            PlatformError& error) const = 0;

    // Depth-first walk below root (root itself is not visited). Symbolic
    // links are reported, never followed.
    virtual void walk(const std::string& root, const WalkOptions& options, const WalkCallbacks& callbacks) const = 0;

    // Opens the directory at `path`, a link there followed (as the root of
    // a walk), for reading one level deep; nothing on failure, with `error`
    // set.
    virtual std::unique_ptr<OpenDirectory> openDirectory(const std::string& path, PlatformError& error) const = 0;

    // Everything below root summed up (Platform/TreeMeasure.hpp): exactly
    // what measureTreeSerially answers, reached however is fastest.
    virtual TreeMeasure measureTree(const std::string& root, const TreeMeasureOptions& options) const = 0;

    virtual std::optional<std::string> destinationOfSymbolicLink(const std::string& path,
                                                                 PlatformError& error) const = 0;

    // Resolves every symbolic link along the path. A path that does not
    // exist (links followed: a dangling link, a missing tail) comes back as
    // it is. The result is standardised.
    virtual std::string resolvingSymlinks(const std::string& path) const = 0;

    // Reads at most maxBytes from the start of a regular file.
    virtual std::optional<std::string> readFile(const std::string& path, std::size_t maxBytes,
                                                PlatformError& error) const = 0;

    // Writes a temporary file in the same directory, flushes it and renames
    // it over the target, so readers see the old or the new file, never half.
    virtual bool writeFileAtomically(const std::string& path, std::string_view contents, std::uint32_t permissions,
                                     PlatformError& error) = 0;

    virtual bool createDirectory(const std::string& path, std::uint32_t permissions, bool withIntermediates,
                                 PlatformError& error) = 0;

    // Removes a file, link or whole tree for good, anchored: `path` must be
    // absolute with no link in its directories (resolve them first), its
    // parent is opened component by component without following a link, and
    // what its name holds must still be `expected`, or nothing is done and
    // the error is changedSinceCheckedError(); then `anchorCheck` is asked
    // about the way there. Below the item nothing is
    // followed; `check` is asked about every entry first (with its lstat) and
    // may leave a directory in place or stop the removal with an error, and
    // a mount point the system can tell is left in place whatever it says.
    // True when all of it is gone; the report says what went, in every case.
    virtual bool removeItem(const std::string& path, const Identity& expected, const AnchorCheck& anchorCheck,
                            const RemovalCheck& check, RemovalReport& report, PlatformError& error) = 0;

    // Appends to a log that other processes may append to as well: opens or
    // creates the file (never replacing it), holds an exclusive advisory lock
    // on it, asks `compose` for the text to add (it reads what it needs of
    // what is there), starts a new line first when the file does not end
    // with one, writes and flushes to disk. A failed write is cut back.
    // The lock is waited for at most `lockTimeout`; then the call fails
    // with std::errc::timed_out and nothing is written.
    virtual bool appendUnderLock(const std::string& path, std::uint32_t permissions,
                                 std::chrono::milliseconds lockTimeout, const AppendComposer& compose,
                                 PlatformError& error) = 0;

    // Opens `path` as a LockedFile (a new file gets `permissions`); nothing
    // on failure, with `error` set. Links are never followed.
    virtual std::unique_ptr<LockedFile> openLocked(const std::string& path, LockedFileMode mode,
                                                   std::uint32_t permissions, PlatformError& error) = 0;

    // Renames a file, link or directory (nothing is followed) and never
    // replaces what is at the destination: that fails with EEXIST.
    virtual bool renameItem(const std::string& from, const std::string& to, PlatformError& error) = 0;

    // A directory the system shows as one file (an .app bundle and the like).
    virtual bool isPackage(const std::string& path) const = 0;

    // Conveniences over status(): they follow links, like fileExists(atPath:).
    bool fileExists(const std::string& path) const;
    bool isDirectory(const std::string& path) const;
    // A file URL whose directory flag matches the disk.
    FileURL fileURL(const std::string& path) const;
    // The same when something exists at the path (links followed, as an
    // existence test does), else nothing: one stat for both answers.
    std::optional<FileURL> existingURL(const std::string& path) const;
};

// The real file system of this machine.
std::shared_ptr<FileSystem> makeDefaultFileSystem();

} // namespace unbulk
