#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <map>
#include <set>
#include <tuple>

#include <gtest/gtest.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include "Platform/Home.hpp"
#include "Platform/TreeMeasure.hpp"
#include "Platform/posix/PosixFileSystem.hpp"
#include "Support/Paths.hpp"
#include "support/DeepTree.hpp"
#include "support/Files.hpp"
#include "support/TempHome.hpp"

namespace unbulk {
namespace {

namespace stdfs = std::filesystem;

std::error_code errnoCode(int value) { return {value, std::generic_category()}; }

stdfs::perms modeOf(const std::string& path) { return stdfs::symlink_status(path).permissions(); }

using testing::identityOf;

class PosixFileSystemTest : public ::testing::Test {
protected:
    ~PosixFileSystemTest() override { ::umask(savedUmask); }

    testing::TempHome home;
    PosixFileSystem fs;
    const mode_t savedUmask = ::umask(077); // a mask that would trim every mode the tests ask for
};

// ---- walk

// Paths are relative to the root of the walk; the root itself is "".
struct Visit { std::string path; FileKind kind; int depth; std::optional<FileStatus> status; };
using Failures = std::multiset<std::tuple<std::string, std::error_code, WalkFailure>>;
struct Walked { std::vector<Visit> visits; std::multiset<std::string> paths; Failures failures; };
using Decide = std::function<WalkAction(const WalkEntry&)>;

Walked walk(const FileSystem& fs, const std::string& root, WalkOptions options = {}, Decide decide = nullptr) {
    Walked out;
    auto relative = [&](const std::string& path) { return path.substr(std::min(path.size(), root.size() + 1)); };
    auto visit = [&](const WalkEntry& e) {
        out.visits.push_back({relative(e.path), e.kind, e.depth, e.status ? std::optional(*e.status) : std::nullopt});
        out.paths.insert(out.visits.back().path);
        return decide ? decide(e) : WalkAction::proceed;
    };
    fs.walk(root, options, {visit, [&](const auto& p, auto c, auto f) { out.failures.emplace(relative(p), c, f); }});
    return out;
}

class WalkTest : public PosixFileSystemTest {
protected:
    using enum FileKind;
    using enum WalkAction;

    void SetUp() override {
        // Each file holds its own path, so that its size tells it apart.
        for (const auto& [path, kind] : tree) if (kind == regular) home.writeFile("tree/" + path, path);
        home.makeSymlink("tree/link", "a");
    }
    std::multiset<std::string> allBut(const std::set<std::string>& removed) const {
        std::multiset<std::string> out;
        for (const auto& entry : tree) if (!removed.contains(entry.first)) out.insert(entry.first);
        return out;
    }

    const std::string root = home.at("tree");
    const std::map<std::string, FileKind> tree{
        {"a", directory}, {"a/a1.txt", regular}, {"a/b", directory}, {"a/b/b1.txt", regular},
        {"c.txt", regular}, {"link", symbolicLink}, {".hidden", directory}, {".hidden/h.txt", regular},
        {"X.app", directory}, {"X.app/Info.plist", regular}};
};

TEST_F(WalkTest, VisitsEveryEntryOnceInPreOrderObeysOptionsAndActionsAndReportsFailures) {
    for (WalkStatus mode :
         {WalkStatus::all, WalkStatus::none, WalkStatus::regularFiles, WalkStatus::allButDirectories}) {
        const Walked walked = walk(fs, root, {.status = mode});
        ASSERT_EQ(walked.paths, allBut({})) << "each entry once, nothing behind a link";
        for (std::size_t i = 0; i < walked.visits.size(); ++i) {
            const Visit& v = walked.visits[i];
            // Pre-order: an entry comes right after its parent or after something inside its parent.
            const std::string parent = paths::deletingLastComponent(v.path);
            EXPECT_TRUE(parent.empty() || (i > 0 && paths::isSameOrBelow(walked.visits[i - 1].path, parent))) << v.path;
            EXPECT_EQ(v.depth, static_cast<int>(paths::components(v.path).size())) << v.path;
            // Kinds come from the directory read: links are reported as links and never entered.
            EXPECT_EQ(v.kind, tree.at(v.path)) << v.path;
            const bool stated = mode == WalkStatus::all || (mode == WalkStatus::regularFiles && v.kind == regular) ||
                                (mode == WalkStatus::allButDirectories && v.kind != directory);
            ASSERT_EQ(v.status.has_value(), stated) << v.path << " with WalkStatus " << static_cast<int>(mode);
            // The status is the entry's own lstat, not its target's.
            EXPECT_TRUE(!v.status || v.status->kind == v.kind) << v.path;
            EXPECT_TRUE(!v.status || v.kind != regular || v.status->size == std::ssize(v.path)) << v.path;
        }
    }

    EXPECT_EQ(walk(fs, root, {.skipHiddenFiles = true, .descendIntoPackages = false}).paths,
              allBut({".hidden", ".hidden/h.txt", "X.app/Info.plist"}));
    // Skipping a file or a link means nothing: only directories lose their contents.
    EXPECT_EQ(walk(fs, root, {}, [](const WalkEntry&) { return skipDescendants; }).paths,
              (std::multiset<std::string>{"a", "c.txt", "link", ".hidden", "X.app"}));

    // Stop ends the whole walk, not only the directory being read.
    const Walked stopped = walk(fs, root, {}, [](const WalkEntry& e) { return e.depth == 2 ? stop : proceed; });
    EXPECT_EQ(std::count_if(stopped.visits.begin(), stopped.visits.end(), [](auto& v) { return v.depth >= 2; }), 1);

    // Failures are reported and the walk goes on.
    EXPECT_EQ(walk(fs, root + "/c.txt").failures, (Failures{{"", errnoCode(ENOTDIR), WalkFailure::directory}}));

    // Races with the disk: a directory that vanishes between being seen and being opened is visited, then
    // reported; an entry that vanishes between the directory read and its lstat (whichever of a's two entries
    // comes second) is reported instead of visited.
    std::string first;
    const Walked raced = walk(fs, root, {}, [&](const WalkEntry& e) {
        if (e.name == ".hidden") stdfs::remove_all(e.path);
        if (first.empty() && paths::deletingLastComponent(e.path) == root + "/a") {
            first = e.name;
            stdfs::remove_all(root + (first == "b" ? "/a/a1.txt" : "/a/b"));
        }
        return proceed;
    });
    EXPECT_EQ(raced.failures, (Failures{{".hidden", errnoCode(ENOENT), WalkFailure::directory},
                                        {first == "b" ? "a/a1.txt" : "a/b", errnoCode(ENOENT), WalkFailure::entry}}));
}

TEST_F(WalkTest, TheOpenedRootIsShownBeforeAnyEntryFromTheDirectoryThatIsRead) {
    home.makeSymlink("to-tree", "tree");
    for (const std::string& path : {root, home.at("to-tree")}) {
        std::optional<FileStatus> opened;
        bool entryBeforeRoot = false;
        WalkCallbacks callbacks;
        callbacks.visit = [&](const WalkEntry&) {
            entryBeforeRoot = entryBeforeRoot || !opened;
            return WalkAction::skipDescendants;
        };
        callbacks.openedRoot = [&](const FileStatus& status) { opened = status; };
        fs.walk(path, {}, callbacks);
        ASSERT_TRUE(opened) << path;
        EXPECT_FALSE(entryBeforeRoot) << path;
        // A link at the root is followed: what is shown is the directory read.
        EXPECT_EQ(opened->kind, directory) << path;
        EXPECT_EQ(opened->identity(), identityOf(root)) << path;
    }

    // Nothing opened, nothing shown: the failure alone is reported.
    bool shown = false;
    WalkCallbacks callbacks;
    callbacks.visit = [](const WalkEntry&) { return WalkAction::proceed; };
    callbacks.onError = [](const std::string&, std::error_code, WalkFailure) {};
    callbacks.openedRoot = [&](const FileStatus&) { shown = true; };
    fs.walk(root + "/c.txt", {}, callbacks);
    fs.walk(root + "/missing", {}, callbacks);
    EXPECT_FALSE(shown);
}

// ---- directories read one level at a time

TEST_F(WalkTest, AnOpenDirectoryShowsItsOwnEntriesExaminedAsAsked) {
    PlatformError error;
    const std::unique_ptr<OpenDirectory> opened = fs.openDirectory(root, error);
    ASSERT_TRUE(opened) << error.message();
    EXPECT_EQ(opened->status().identity(), identityOf(root));
    std::map<std::string, std::pair<FileKind, std::optional<FileStatus>>> shown;
    const auto keep = [&](const DirectoryItem& item) {
        shown[std::string(item.name)] = {item.kind, item.status ? std::optional(*item.status) : std::nullopt};
        return true;
    };
    EXPECT_FALSE(opened->read(WalkStatus::allButDirectories, true, keep));
    ASSERT_EQ(shown.size(), 4u); // no hidden entry, nothing below
    EXPECT_EQ(shown.at("a").first, directory);
    EXPECT_EQ(shown.at("a").second, std::nullopt);
    EXPECT_EQ(shown.at("X.app").second, std::nullopt);
    EXPECT_EQ(shown.at("c.txt").second.value().size, 5);
    // A link is examined, never followed.
    EXPECT_EQ(shown.at("link").first, symbolicLink);
    EXPECT_EQ(shown.at("link").second.value().kind, symbolicLink);

    // A visit that answers false ends the reading.
    int visits = 0;
    const std::unique_ptr<OpenDirectory> again = fs.openDirectory(root, error);
    EXPECT_FALSE(again->read(WalkStatus::none, false, [&](const DirectoryItem&) { return ++visits < 2; }));
    EXPECT_EQ(visits, 2);
}

TEST_F(WalkTest, EntriesOpenRelativeToTheirDirectoryWhereverItHasMoved) {
    PlatformError error;
    const std::unique_ptr<OpenDirectory> opened = fs.openDirectory(root, error);
    ASSERT_TRUE(opened) << error.message();
    ASSERT_EQ(::rename(root.c_str(), home.at("moved").c_str()), 0);
    // The old path names nothing now; the open directory still holds "a",
    // and a link among its entries is followed from there.
    for (const char* name : {"a", "link"}) {
        const std::unique_ptr<OpenDirectory> entry = opened->openEntry(name, root + "/" + name, error);
        ASSERT_TRUE(entry) << name << ": " << error.message();
        EXPECT_EQ(entry->status().identity(), identityOf(home.at("moved/a"))) << name;
    }
    EXPECT_FALSE(opened->openEntry("missing", root + "/missing", error));
    EXPECT_EQ(error.message(), "openat('" + root + "/missing'): " + errnoCode(ENOENT).message());
    EXPECT_FALSE(fs.openDirectory(home.at("moved/c.txt"), error));
    EXPECT_EQ(error.message(), "open('" + home.at("moved/c.txt") + "'): " + errnoCode(ENOTDIR).message());
}

TEST_F(PosixFileSystemTest, ADirectoryLargerThanOneReadIsListedAndWalkedWhole) {
    // 3,000 names of 100 bytes: several times what one read of the directory returns.
    std::set<std::string> names;
    for (int i = 0; i < 3000; ++i) {
        std::string name = std::to_string(i);
        name.resize(100, 'x');
        home.writeFile("big/" + name, "");
        names.insert(name);
    }
    PlatformError error;
    std::set<std::string> listed;
    for (const DirectoryEntry& entry : fs.contentsOfDirectory(home.at("big"), {}, error)) listed.insert(entry.name);
    EXPECT_EQ(listed, names);
    std::set<std::string> walked;
    fs.walk(home.at("big"), {.status = WalkStatus::none}, {[&](const WalkEntry& entry) {
        walked.insert(std::string(entry.name));
        return WalkAction::proceed;
    }, nullptr});
    EXPECT_EQ(walked, names);
    EXPECT_EQ(fs.measureTree(home.at("big"), {}).files.count, 3000);
}

// ---- links, writing, removing

TEST_F(PosixFileSystemTest, LinksAreFollowedOnlyWhereTheNameSaysSo) {
    home.writeFile("real/dir/file", "x");
    home.makeSymlink("abs", home.at("real"));
    home.makeSymlink("rel", "real/dir");
    home.makeSymlink("real/dir/up", "../../rel");
    PlatformError error;
    EXPECT_EQ(fs.status(home.at("rel"), error).value().kind, FileKind::directory);
    EXPECT_EQ(fs.linkStatus(home.at("rel"), error).value().kind, FileKind::symbolicLink);
    // A relative target counts from the link's own directory, ".." leaves where
    // the link leads (not where it lies), and a path that does not exist,
    // links followed, stays as it is: links on its way included.
    const std::pair<const char*, const char*> rows[] = {
        {"abs/dir/file", "real/dir/file"}, {"real/dir/up/file", "real/dir/file"}, {"rel/..", "real"},
        {"abs/missing/more", "abs/missing/more"}};
    for (const auto& [in, want] : rows) EXPECT_EQ(fs.resolvingSymlinks(home.at(in)), home.at(want)) << in;

    // A loop ends the resolution instead of the process, and status finds nothing behind it.
    home.makeSymlink("loop", "loop");
    EXPECT_TRUE(paths::isStrictlyBelow(fs.resolvingSymlinks(home.at("loop/x")), home.path()));
    EXPECT_FALSE(fs.status(home.at("loop"), error));

    // Removing a link removes the link; removing a tree leaves alone what its links lead to.
    home.writeFile("trash/a/b/c.txt", "c");
    home.makeSymlink("trash/a/tokeep", home.at("real"));
    for (const char* item : {"trash", "abs"}) {
        RemovalReport report;
        ASSERT_TRUE(fs.removeItem(home.at(item), identityOf(home.at(item)), nullptr, nullptr, report, error))
            << item << ": " << error.message() << " at " << report.failedPath;
        EXPECT_FALSE(stdfs::exists(stdfs::symlink_status(home.at(item))));
    }
    EXPECT_TRUE(stdfs::exists(home.at("real/dir/file")));
}

TEST_F(PosixFileSystemTest, WritesGiveTheExactModeWhateverTheUmask) {
    const std::string dir = home.makeDirectory("w"), file = dir + "/rules.json", log = dir + "/log";
    PlatformError error;
    ASSERT_TRUE(fs.writeFileAtomically(file, "the longer first version", 0644, error)) << error.message();
    const auto firstInode = fs.linkStatus(file, error)->inode;
    ASSERT_TRUE(fs.writeFileAtomically(file, "second", 0666, error)) << error.message();
    EXPECT_EQ(fs.readFile(file, 1000, error), "second");
    EXPECT_EQ(modeOf(file), stdfs::perms{0666});
    EXPECT_NE(fs.linkStatus(file, error)->inode, firstInode) << "replaced by rename, not rewritten in place";
    EXPECT_FALSE(fs.writeFileAtomically(home.makeDirectory("w/occupied"), "x", 0600, error));
    EXPECT_EQ(std::distance(stdfs::directory_iterator(dir), {}), 2) << "a temporary file was left";

    ASSERT_TRUE(fs.appendUnderLock(
        log, 0640, std::chrono::seconds(1), [](const LockedContents&) { return std::string("one\n"); }, error));
    EXPECT_EQ(modeOf(log), stdfs::perms{0640});
    // Only regular files are read: a FIFO would block for ever, a directory is EISDIR.
    ASSERT_EQ(::mkfifo((dir + "/fifo").c_str(), 0600), 0);
    EXPECT_FALSE(fs.readFile(dir + "/fifo", 100, error));
    EXPECT_FALSE(fs.readFile(dir, 100, error));
    EXPECT_EQ(error, std::errc::is_a_directory);
}

// Failures that root meets as well, each naming the call and the path (or
// two) that failed.
TEST_F(PosixFileSystemTest, FailuresNameTheCallAndThePath) {
    const std::string file = home.writeFile("w/file", "x"), dir = home.makeDirectory("w/dir");
    const std::string taken = home.writeFile("w/taken", "y"), missing = home.at("w/missing");
    const auto reason = [](int value) { return errnoCode(value).message(); };
    PlatformError error;
    EXPECT_FALSE(fs.status(missing, error));
    EXPECT_EQ(error.message(), "stat('" + missing + "'): " + reason(ENOENT));
    EXPECT_FALSE(fs.readFile(dir, 10, error));
    EXPECT_EQ(error.message(), "read('" + dir + "'): " + reason(EISDIR));
    EXPECT_FALSE(fs.createDirectory(file + "/sub", 0700, true, error));
    EXPECT_EQ(error.message(), "mkdir('" + file + "'): " + reason(ENOTDIR));
    EXPECT_FALSE(fs.renameItem(file, taken, error));
#if defined(__APPLE__)
    EXPECT_EQ(error.message(), "renameatx_np('" + file + "', '" + taken + "'): " + reason(EEXIST));
#else
    EXPECT_EQ(error.message(), "renameat2('" + file + "', '" + taken + "'): " + reason(EEXIST));
#endif
    EXPECT_FALSE(fs.writeFileAtomically(missing + "/rules.json", "{}", 0600, error));
    EXPECT_TRUE(error.message().starts_with("open('" + missing + "/.rules.json.tmp-")) << error.message();
    EXPECT_TRUE(error.message().ends_with("'): " + reason(ENOENT))) << error.message();
}

// ---- anchored removal

// The item was checked; then another took its name (its inode stays taken),
// or its directory was swapped for a link to a decoy holding the same name.
TEST_F(PosixFileSystemTest, RemovalRefusesWhatIsNoLongerTheCheckedItem) {
    RemovalReport report;
    PlatformError error;
    home.writeFile("Library/Caches/item/file", "x");
    const Identity item = identityOf(home.at("Library/Caches/item"));
    stdfs::rename(home.at("Library/Caches/item"), home.at("Library/Caches/kept"));
    home.writeFile("Library/Caches/item/other", "y");
    EXPECT_FALSE(fs.removeItem(home.at("Library/Caches/item"), item, nullptr, nullptr, report, error));
    EXPECT_EQ(error, changedSinceCheckedError());
    EXPECT_TRUE(stdfs::exists(home.at("Library/Caches/item/other")));

    home.writeFile("Library/Caches/victim/precious.txt", "cache");
    const Identity victim = identityOf(home.at("Library/Caches/victim"));
    home.writeFile("Documents/decoy/victim/precious.txt", "mine");
    stdfs::rename(home.at("Library/Caches"), home.at("moved"));
    home.makeSymlink("Library/Caches", home.at("Documents/decoy"));
    report = {};
    error.clear();
    EXPECT_FALSE(fs.removeItem(home.at("Library/Caches/victim"), victim, nullptr, nullptr, report, error));
    EXPECT_EQ(error, changedSinceCheckedError());
    EXPECT_EQ(report.filesRemoved, 0);
    EXPECT_TRUE(stdfs::exists(home.at("Documents/decoy/victim/precious.txt")));
    EXPECT_TRUE(stdfs::exists(home.at("moved/victim/precious.txt")));
}

TEST_F(PosixFileSystemTest, ATreeOneHundredThousandDeepIsWalkedMeasuredAndRemovedWholeWithFewDescriptors) {
    const std::string root = home.makeDirectory("deep");
    const std::int64_t files = testing::makeDeepChain(root, 100'000, 1000, 10);
    testing::DescriptorLimit limit(256); // what macOS gives a process

    std::int64_t seen = 0, bytes = 0, directories = 0;
    std::vector<std::error_code> failures;
    const auto visit = [&](const WalkEntry& entry) {
        if (entry.kind == FileKind::regular) ++seen, bytes += entry.status->size;
        if (entry.kind == FileKind::directory) ++directories;
        return WalkAction::proceed;
    };
    fs.walk(root, {.status = WalkStatus::regularFiles},
            {visit, [&](const std::string&, std::error_code error, WalkFailure) { failures.push_back(error); }});
    EXPECT_TRUE(failures.empty()) << failures.front().message();
    EXPECT_EQ(std::tuple(seen, bytes, directories), std::tuple(files, files * 10, 100'000));

    // The parallel measure of the same tree: exact, and within the same limit.
    const TreeMeasure measure = fs.measureTree(root, {.status = WalkStatus::regularFiles});
    EXPECT_EQ(std::tuple(measure.files.count, measure.files.logicalBytes, measure.unreadableDirectories),
              std::tuple(files, files * 10, 0));

    RemovalReport report;
    PlatformError error;
    ASSERT_TRUE(fs.removeItem(root, identityOf(root), nullptr, nullptr, report, error)) << error.message();
    EXPECT_EQ(report.filesRemoved, files);
    EXPECT_FALSE(stdfs::exists(root));
}

// ---- packages and home

TEST_F(PosixFileSystemTest, PackagesAreDirectoriesWithAPackageExtensionAndHomeIsAbsolute) {
    // The walk above sees a package directory as one; a file is never one, whatever its name.
    EXPECT_FALSE(fs.isPackage(home.writeFile("Fake.app", "not a directory")));
    // Common developer packages besides applications, whatever the case of their extension.
    for (const char* name : {"App.dSYM", "Disk.sparsebundle", "Build.xcarchive", "Run.xcresult", "Unit.xctest"})
        EXPECT_TRUE(fs.isPackage(home.makeDirectory(name))) << name;
    EXPECT_FALSE(fs.isPackage(home.makeDirectory("Plain.folder")));

    // The home directory is HOME only when it is absolute. The fixture's TempHome puts HOME back afterwards.
    ::setenv("HOME", (home.path() + "//sub/../").c_str(), 1);
    EXPECT_EQ(homeDirectory(), home.path());
    ::setenv("HOME", "relative/home", 1);
    EXPECT_EQ(homeDirectory(), paths::standardize(::getpwuid(::getuid())->pw_dir));
}

} // namespace
} // namespace unbulk
