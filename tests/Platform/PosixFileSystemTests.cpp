#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <functional>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>
#include <pwd.h>
#include <sys/stat.h>
#include <unistd.h>

#include "Platform/Home.hpp"
#include "Platform/posix/PosixFileSystem.hpp"
#include "Support/Paths.hpp"
#include "support/FaultyFileSystem.hpp"
#include "support/TempHome.hpp"

namespace unbulk {
namespace {

namespace stdfs = std::filesystem;
using testing::FaultyFileSystem;
using testing::FileSystemCall;
using testing::TempHome;

std::error_code errnoCode(int value) { return {value, std::generic_category()}; }

// Sets the process umask for one test and puts the old one back.
class UmaskScope {
public:
    explicit UmaskScope(mode_t mask) : saved_(::umask(mask)) {}
    ~UmaskScope() { ::umask(saved_); }

private:
    mode_t saved_;
};

std::set<std::string> namesIn(const std::string& directory) {
    std::set<std::string> names;
    for (const auto& entry : stdfs::directory_iterator(directory)) names.insert(entry.path().filename().string());
    return names;
}

std::uint32_t modeOf(const std::string& path) {
    struct stat st;
    if (::lstat(path.c_str(), &st) != 0) return 0xFFFFFFFF;
    return st.st_mode & 07777;
}

class PosixFileSystemTest : public ::testing::Test {
protected:
    TempHome home;
    PosixFileSystem fs;
};

// ---- status, listing

TEST_F(PosixFileSystemTest, StatusFollowsALinkAndLinkStatusDoesNot) {
    const std::string target = home.writeFile("target.txt", "0123456789");
    const std::string link = home.makeSymlink("link", "target.txt");
    const std::string dangling = home.makeSymlink("dangling", "nowhere");
    ::chmod(target.c_str(), 0640);

    std::error_code error;
    auto followed = fs.status(link, error);
    ASSERT_TRUE(followed) << error.message();
    EXPECT_EQ(followed->kind, FileKind::regular);
    EXPECT_EQ(followed->size, 10);
    EXPECT_EQ(followed->permissions, 0640u);

    auto own = fs.linkStatus(link, error);
    ASSERT_TRUE(own) << error.message();
    EXPECT_EQ(own->kind, FileKind::symbolicLink);
    EXPECT_EQ(own->size, static_cast<std::int64_t>(std::string("target.txt").size()));
    EXPECT_NE(own->inode, followed->inode);
    EXPECT_EQ(fs.linkStatus(target, error)->inode, followed->inode);

    EXPECT_FALSE(fs.status(dangling, error));
    EXPECT_EQ(error, errnoCode(ENOENT));
    EXPECT_TRUE(fs.linkStatus(dangling, error));
    EXPECT_FALSE(fs.fileExists(dangling));
    EXPECT_TRUE(fs.fileExists(link));

    error.clear();
    EXPECT_FALSE(fs.linkStatus(home.at("missing"), error));
    EXPECT_EQ(error, errnoCode(ENOENT));

    EXPECT_EQ(fs.fileURL(home.path()).absoluteString(), "file://" + home.path() + "/");
    EXPECT_EQ(fs.fileURL(target).absoluteString(), "file://" + target);
}

TEST_F(PosixFileSystemTest, AllocatedSizeCountsWholeBlocks) {
    std::error_code error;
    const std::string file = home.at("data.bin");
    ASSERT_TRUE(fs.writeFileAtomically(file, std::string(10'000, 'x'), 0644, error)) << error.message();
    auto st = fs.linkStatus(file, error);
    ASSERT_TRUE(st);
    EXPECT_EQ(st->size, 10'000);
    EXPECT_EQ(st->allocatedSize % 512, 0);
    EXPECT_GE(st->allocatedSize, 10'000);

    // A file that is one big hole is long but takes (almost) nothing.
    const std::string sparse = home.writeFile("sparse.bin", "");
    stdfs::resize_file(sparse, 8 * 1024 * 1024);
    auto holes = fs.linkStatus(sparse, error);
    ASSERT_TRUE(holes);
    EXPECT_EQ(holes->size, 8 * 1024 * 1024);
    EXPECT_LT(holes->allocatedSize, holes->size);
}

TEST_F(PosixFileSystemTest, ContentsOfDirectoryGivesNamesAndKinds) {
    const std::string dir = home.makeDirectory("list");
    home.writeFile("list/file", "x");
    home.makeDirectory("list/sub");
    home.makeSymlink("list/link", "sub");
    home.writeFile("list/.hidden", "x");

    std::error_code error;
    std::map<std::string, FileKind> all;
    for (const auto& entry : fs.contentsOfDirectory(dir, {}, error)) all[entry.name] = entry.kind;
    EXPECT_FALSE(error);
    EXPECT_EQ(all, (std::map<std::string, FileKind>{{".hidden", FileKind::regular},
                                                   {"file", FileKind::regular},
                                                   {"link", FileKind::symbolicLink},
                                                   {"sub", FileKind::directory}}));

    std::set<std::string> visible;
    for (const auto& entry : fs.contentsOfDirectory(dir, ListOptions{.skipHiddenFiles = true}, error)) {
        visible.insert(entry.name);
    }
    EXPECT_EQ(visible, (std::set<std::string>{"file", "link", "sub"}));

    struct Failure {
        std::string path;
        int expected;
    };
    for (const auto& failure : {Failure{home.at("missing"), ENOENT}, Failure{home.at("list/file"), ENOTDIR}}) {
        std::error_code failed;
        EXPECT_TRUE(fs.contentsOfDirectory(failure.path, {}, failed).empty()) << failure.path;
        EXPECT_EQ(failed, errnoCode(failure.expected)) << failure.path;
    }

    // What root cannot get from permissions comes from the faulty wrapper.
    FaultyFileSystem faulty;
    faulty.failOn(FileSystemCall::contentsOfDirectory, dir + "/", EACCES);
    std::error_code denied;
    EXPECT_TRUE(faulty.contentsOfDirectory(dir, {}, denied).empty());
    EXPECT_EQ(denied, errnoCode(EACCES));
    std::error_code fine;
    EXPECT_EQ(faulty.contentsOfDirectory(dir + "/sub", {}, fine).size(), 0u);
    EXPECT_FALSE(fine);
    EXPECT_EQ(faulty.callCount(FileSystemCall::contentsOfDirectory), 2u);
    EXPECT_EQ(faulty.callCount(FileSystemCall::walk), 0u);
}

// ---- walk

struct Visit {
    std::string path;
    FileKind kind;
    int depth;
    std::optional<FileStatus> status;
};

struct WalkRecord {
    std::vector<Visit> visits;
    std::vector<std::pair<std::string, std::error_code>> errors;
    std::vector<WalkFailure> failures; // beside errors, one each

    std::set<std::string> paths() const {
        std::set<std::string> out;
        for (const auto& v : visits) out.insert(v.path);
        return out;
    }
    const Visit* find(const std::string& path) const {
        for (const auto& v : visits) {
            if (v.path == path) return &v;
        }
        return nullptr;
    }
};

WalkRecord record(const FileSystem& fs, const std::string& root, WalkOptions options = {},
                  std::function<WalkAction(const WalkEntry&)> decide = nullptr) {
    WalkRecord out;
    WalkCallbacks callbacks;
    callbacks.visit = [&](const WalkEntry& entry) {
        EXPECT_EQ(paths::lastComponent(entry.path), std::string(entry.name));
        out.visits.push_back(Visit{entry.path, entry.kind, entry.depth,
                                   entry.status ? std::optional<FileStatus>(*entry.status) : std::nullopt});
        return decide ? decide(entry) : WalkAction::proceed;
    };
    callbacks.onError = [&](const std::string& path, std::error_code error, WalkFailure failure) {
        out.errors.emplace_back(path, error);
        out.failures.push_back(failure);
    };
    fs.walk(root, options, callbacks);
    return out;
}

class WalkTest : public PosixFileSystemTest {
protected:
    void SetUp() override {
        root = home.makeDirectory("tree");
        home.writeFile("tree/a/a1.txt", "a1");
        home.writeFile("tree/a/b/b1.txt", "b1b1");
        home.writeFile("tree/a/b/b2.txt", "b2");
        home.writeFile("tree/c.txt", "c");
        home.makeSymlink("tree/link", "a");
        home.writeFile("outside/secret.txt", "s");
        home.makeSymlink("tree/a/out", home.at("outside"));
        home.writeFile("tree/.hidden/h.txt", "h");
        home.writeFile("tree/X.app/Contents/Info.plist", "p");
    }
    std::string at(const std::string& relative) const { return root + "/" + relative; }

    std::set<std::string> all() const {
        std::set<std::string> out;
        for (const char* p : {"a", "a/a1.txt", "a/b", "a/b/b1.txt", "a/b/b2.txt", "a/out", "c.txt", "link", ".hidden",
                              ".hidden/h.txt", "X.app", "X.app/Contents", "X.app/Contents/Info.plist"}) {
            out.insert(at(p));
        }
        return out;
    }

    std::string root;
};

TEST_F(WalkTest, VisitsEveryEntryInPreOrderWithDepths) {
    WalkRecord walked = record(fs, root);
    EXPECT_TRUE(walked.errors.empty());
    EXPECT_EQ(walked.paths(), all());
    EXPECT_EQ(walked.visits.size(), all().size()) << "an entry was visited twice";

    for (std::size_t i = 0; i < walked.visits.size(); ++i) {
        const Visit& v = walked.visits[i];
        const std::string relative = v.path.substr(root.size() + 1);
        EXPECT_EQ(v.depth, static_cast<int>(paths::components(relative).size())) << v.path;
        if (v.kind != FileKind::directory) continue;
        // Everything below a directory comes right after it, before anything else.
        std::size_t j = i + 1;
        while (j < walked.visits.size() && paths::isStrictlyBelow(walked.visits[j].path, v.path)) ++j;
        for (std::size_t k = j; k < walked.visits.size(); ++k) {
            EXPECT_FALSE(paths::isStrictlyBelow(walked.visits[k].path, v.path))
                << walked.visits[k].path << " came after leaving " << v.path;
        }
    }
    // Links are reported as links and never entered, wherever they point.
    EXPECT_EQ(walked.find(at("link"))->kind, FileKind::symbolicLink);
    EXPECT_EQ(walked.find(at("a/out"))->kind, FileKind::symbolicLink);
    EXPECT_EQ(walked.find(at("a/b"))->kind, FileKind::directory);
    EXPECT_EQ(walked.find(at("c.txt"))->kind, FileKind::regular);
}

TEST_F(WalkTest, StatusIsTheEntrysOwnLstat) {
    WalkRecord withStatus = record(fs, root);
    const Visit* link = withStatus.find(at("a/out"));
    ASSERT_TRUE(link && link->status);
    EXPECT_EQ(link->status->kind, FileKind::symbolicLink);
    EXPECT_EQ(link->status->size, static_cast<std::int64_t>(home.at("outside").size()));
    const Visit* file = withStatus.find(at("a/b/b1.txt"));
    ASSERT_TRUE(file && file->status);
    EXPECT_EQ(file->status->size, 4);
    std::error_code error;
    EXPECT_EQ(file->status->inode, fs.linkStatus(at("a/b/b1.txt"), error)->inode);

    WalkRecord without = record(fs, root, WalkOptions{.status = WalkStatus::none});
    EXPECT_EQ(without.paths(), all());
    for (const auto& v : without.visits) EXPECT_FALSE(v.status.has_value()) << v.path;
    EXPECT_EQ(without.find(at("link"))->kind, FileKind::symbolicLink);
    EXPECT_EQ(without.find(at("a"))->kind, FileKind::directory);

    // Files only: the kinds still come from the directory read.
    WalkRecord filesOnly = record(fs, root, WalkOptions{.status = WalkStatus::regularFiles});
    EXPECT_EQ(filesOnly.paths(), all());
    for (const auto& v : filesOnly.visits) {
        EXPECT_EQ(v.status.has_value(), v.kind == FileKind::regular) << v.path;
    }
    EXPECT_EQ(filesOnly.find(at("a/b/b1.txt"))->status->size, 4);
    EXPECT_EQ(filesOnly.find(at("a/out"))->kind, FileKind::symbolicLink);
}

TEST_F(WalkTest, OptionsAndActionsPruneTheWalk) {
    auto expectedWithout = [&](std::initializer_list<const char*> removed) {
        auto out = all();
        for (const char* p : removed) out.erase(at(p));
        return out;
    };

    WalkRecord noHidden = record(fs, root, WalkOptions{.skipHiddenFiles = true});
    EXPECT_EQ(noHidden.paths(), expectedWithout({".hidden", ".hidden/h.txt"}));

    WalkRecord noPackages = record(fs, root, WalkOptions{.descendIntoPackages = false});
    EXPECT_EQ(noPackages.paths(), expectedWithout({"X.app/Contents", "X.app/Contents/Info.plist"}));

    WalkRecord skipped = record(fs, root, {}, [&](const WalkEntry& entry) {
        return entry.path == at("a") ? WalkAction::skipDescendants : WalkAction::proceed;
    });
    EXPECT_EQ(skipped.paths(), expectedWithout({"a/a1.txt", "a/b", "a/b/b1.txt", "a/b/b2.txt", "a/out"}));

    // Skipping a file means nothing; the walk goes on.
    WalkRecord skippedFile = record(fs, root, {}, [](const WalkEntry&) { return WalkAction::skipDescendants; });
    EXPECT_EQ(skippedFile.visits.size(), 5u) << "only the root's direct children";

    // Stop ends the whole walk, not only the directory being read: after the
    // first entry three levels down (in a/b or X.app/Contents) nothing more.
    WalkRecord stopped = record(fs, root, {}, [](const WalkEntry& entry) {
        return entry.depth == 3 ? WalkAction::stop : WalkAction::proceed;
    });
    ASSERT_FALSE(stopped.visits.empty());
    EXPECT_EQ(stopped.visits.back().depth, 3);
    EXPECT_EQ(std::count_if(stopped.visits.begin(), stopped.visits.end(), [](const Visit& v) { return v.depth == 3; }),
              1);
    EXPECT_EQ(record(fs, root, {}, [](const WalkEntry&) { return WalkAction::stop; }).visits.size(), 1u);
}

TEST_F(WalkTest, ReportsWhatCannotBeReadAndGoesOn) {
    struct Row {
        std::string root;
        int expected;
    };
    for (const auto& row : {Row{at("missing"), ENOENT}, Row{at("c.txt"), ENOTDIR}}) {
        WalkRecord walked = record(fs, row.root);
        EXPECT_TRUE(walked.visits.empty());
        ASSERT_EQ(walked.errors.size(), 1u);
        EXPECT_EQ(walked.errors[0].first, row.root);
        EXPECT_EQ(walked.errors[0].second, errnoCode(row.expected));
        EXPECT_EQ(walked.failures[0], WalkFailure::directory);
    }

    // A directory that vanishes between being seen and being opened.
    WalkRecord vanished = record(fs, root, {}, [&](const WalkEntry& entry) {
        if (entry.path == at("a")) stdfs::remove_all(entry.path);
        return WalkAction::proceed;
    });
    ASSERT_EQ(vanished.errors.size(), 1u);
    EXPECT_EQ(vanished.errors[0].first, at("a"));
    EXPECT_EQ(vanished.errors[0].second, errnoCode(ENOENT));
    EXPECT_EQ(vanished.failures[0], WalkFailure::directory);
    EXPECT_TRUE(vanished.paths().count(at("c.txt")));
    EXPECT_TRUE(vanished.paths().count(at("X.app/Contents/Info.plist")));
}

TEST_F(WalkTest, FaultyWalkReportsDeniedDirectoriesAndEntries) {
    FaultyFileSystem faulty;
    faulty.failOn(FileSystemCall::walk, at("a/b"), EACCES);
    faulty.failBelow(FileSystemCall::walk, at("X.app/Contents/Info.plist"), EIO);
    // Whole components: "a/b" must not catch a sibling named "a/bb".
    home.writeFile("tree/a/bb", "x");

    WalkRecord walked = record(faulty, root);
    std::set<std::string> expected = all();
    expected.erase(at("a/b/b1.txt"));
    expected.erase(at("a/b/b2.txt"));
    expected.erase(at("X.app/Contents/Info.plist"));
    expected.insert(at("a/bb"));
    EXPECT_EQ(walked.paths(), expected);
    std::set<std::pair<std::string, std::error_code>> errors(walked.errors.begin(), walked.errors.end());
    EXPECT_EQ(errors, (std::set<std::pair<std::string, std::error_code>>{
                          {at("a/b"), errnoCode(EACCES)}, {at("X.app/Contents/Info.plist"), errnoCode(EIO)}}));
    EXPECT_EQ(walked.errors.size(), 2u);
    for (std::size_t i = 0; i < walked.errors.size(); ++i) {
        EXPECT_EQ(walked.failures[i],
                  walked.errors[i].first == at("a/b") ? WalkFailure::directory : WalkFailure::entry);
    }

    faulty.failBelow(FileSystemCall::walk, root, ENOENT);
    WalkRecord none = record(faulty, root);
    EXPECT_TRUE(none.visits.empty());
    ASSERT_EQ(none.errors.size(), 1u);
    EXPECT_EQ(none.errors[0], std::make_pair(root, errnoCode(ENOENT)));
    EXPECT_EQ(faulty.callCount(FileSystemCall::walk), 2u);
}

// ---- symbolic links

TEST_F(PosixFileSystemTest, ResolvingSymlinksFollowsEveryLinkOnThePath) {
    const std::string real = home.makeDirectory("real/dir");
    home.writeFile("real/dir/file", "x");
    home.makeSymlink("abs", home.at("real"));
    home.makeSymlink("rel", "real/dir");
    home.makeSymlink("chain1", "chain2");
    home.makeSymlink("chain2", "./abs/");
    home.makeSymlink("real/dir/up", "../../rel");
    home.makeSymlink("filelink", "real/dir/file");

    struct Row {
        std::string input;
        std::string expected;
    };
    const std::vector<Row> rows{
        {home.at("abs/dir/file"), home.at("real/dir/file")},
        {home.at("rel/file"), home.at("real/dir/file")},
        {home.at("chain1/dir"), home.at("real/dir")},
        {home.at("real/dir/up/file"), home.at("real/dir/file")},
        {home.at("filelink"), home.at("real/dir/file")},
        // ".." goes up from where the link really leads, not from its name.
        {home.at("rel/.."), home.at("real")},
        {home.at("rel/../dir/./file"), home.at("real/dir/file")},
        // The part that does not exist is kept as written.
        {home.at("abs/missing/more"), home.at("real/missing/more")},
        {home.at("rel/file/beyond"), home.at("real/dir/file/beyond")},
        {home.path() + "//real///dir/", home.at("real/dir")},
        {"relative/./x/..", "relative"},
    };
    for (const auto& row : rows) EXPECT_EQ(fs.resolvingSymlinks(row.input), row.expected) << row.input;

    std::error_code error;
    EXPECT_EQ(fs.destinationOfSymbolicLink(home.at("chain2"), error), "./abs/");
    EXPECT_FALSE(fs.destinationOfSymbolicLink(real, error));
    EXPECT_EQ(error, errnoCode(EINVAL));
}

TEST_F(PosixFileSystemTest, ResolvingALinkLoopReturns) {
    home.makeSymlink("loopA", "loopB");
    home.makeSymlink("loopB", "loopA");
    home.makeSymlink("self", "self/x");
    for (const char* start : {"loopA/x", "self"}) {
        std::string resolved = fs.resolvingSymlinks(home.at(start));
        EXPECT_TRUE(paths::isStrictlyBelow(resolved, home.path())) << resolved;
    }
}

// ---- reading and writing

TEST_F(PosixFileSystemTest, ReadFileStopsAtMaxBytes) {
    std::string big(200'000, 'a');
    for (std::size_t i = 0; i < big.size(); ++i) big[i] = static_cast<char>('a' + i % 26);
    const std::string file = home.writeFile("big.txt", big);

    struct Row {
        std::size_t maxBytes;
        std::size_t expected;
    };
    for (const auto& row : {Row{0, 0}, Row{5, 5}, Row{100'000, 100'000}, Row{1'000'000, 200'000}}) {
        std::error_code error;
        auto contents = fs.readFile(file, row.maxBytes, error);
        ASSERT_TRUE(contents) << error.message();
        EXPECT_EQ(*contents, big.substr(0, row.expected)) << row.maxBytes;
    }

    std::error_code error;
    EXPECT_FALSE(fs.readFile(home.path(), 100, error));
    EXPECT_EQ(error, errnoCode(EISDIR));
    EXPECT_FALSE(fs.readFile(home.at("missing"), 100, error));
    EXPECT_EQ(error, errnoCode(ENOENT));
}

TEST_F(PosixFileSystemTest, WriteFileAtomicallyReplacesWholeAndCleansUp) {
    UmaskScope mask(022);
    const std::string dir = home.makeDirectory("w");
    const std::string file = dir + "/rules.json";
    std::error_code error;

    ASSERT_TRUE(fs.writeFileAtomically(file, "first", 0666, error)) << error.message();
    EXPECT_EQ(modeOf(file), 0666u) << "the umask must not trim the mode";
    const auto firstInode = fs.linkStatus(file, error)->inode;

    ASSERT_TRUE(fs.writeFileAtomically(file, "second, longer", 0600, error)) << error.message();
    EXPECT_EQ(fs.readFile(file, 1000, error), "second, longer");
    EXPECT_EQ(modeOf(file), 0600u);
    EXPECT_NE(fs.linkStatus(file, error)->inode, firstInode) << "replaced by rename, not rewritten in place";
    EXPECT_TRUE(fs.writeFileAtomically(file, "", 0600, error));
    EXPECT_EQ(fs.readFile(file, 1000, error), "");
    EXPECT_EQ(namesIn(dir), (std::set<std::string>{"rules.json"}));

    // Failures leave nothing behind.
    std::error_code missing;
    EXPECT_FALSE(fs.writeFileAtomically(home.at("nope/file"), "x", 0600, missing));
    EXPECT_EQ(missing, errnoCode(ENOENT));
    EXPECT_FALSE(stdfs::exists(home.at("nope")));

    const std::string occupied = home.makeDirectory("w/occupied");
    std::error_code isDirectory;
    EXPECT_FALSE(fs.writeFileAtomically(occupied, "x", 0600, isDirectory));
    EXPECT_TRUE(isDirectory);
    EXPECT_EQ(namesIn(dir), (std::set<std::string>{"rules.json", "occupied"}));
    EXPECT_TRUE(namesIn(occupied).empty());
}

TEST_F(PosixFileSystemTest, AppendToFileCreatesWithTheModeAndAppends) {
    UmaskScope mask(077);
    const std::string log = home.at("audit.jsonl");
    std::error_code error;
    ASSERT_TRUE(fs.appendToFile(log, "one\n", 0640, error)) << error.message();
    EXPECT_EQ(modeOf(log), 0640u) << "the umask must not trim the mode";
    ASSERT_TRUE(fs.appendToFile(log, "two\n", 0600, error));
    EXPECT_EQ(fs.readFile(log, 100, error), "one\ntwo\n");
    EXPECT_EQ(modeOf(log), 0640u) << "an existing file keeps its mode";

    std::error_code missing;
    EXPECT_FALSE(fs.appendToFile(home.at("nope/audit.jsonl"), "x", 0600, missing));
    EXPECT_EQ(missing, errnoCode(ENOENT));
}

TEST_F(PosixFileSystemTest, CreateDirectoryHonoursModeAndExistence) {
    UmaskScope mask(027);
    std::error_code error;

    const std::string one = home.at("one");
    ASSERT_TRUE(fs.createDirectory(one, 0775, false, error)) << error.message();
    EXPECT_EQ(modeOf(one), 0775u);

    const std::string deep = home.at("x/y/z");
    EXPECT_FALSE(fs.createDirectory(deep, 0700, false, error));
    EXPECT_EQ(error, errnoCode(ENOENT));
    error.clear();
    ASSERT_TRUE(fs.createDirectory(deep, 0707, true, error)) << error.message();
    EXPECT_EQ(modeOf(deep), 0707u);
    EXPECT_TRUE(fs.isDirectory(home.at("x/y")));

    // Existing directories: an error without intermediates, fine with them.
    EXPECT_FALSE(fs.createDirectory(one, 0700, false, error));
    EXPECT_EQ(error, errnoCode(EEXIST));
    error.clear();
    EXPECT_TRUE(fs.createDirectory(deep, 0700, true, error));
    EXPECT_FALSE(error);
    EXPECT_EQ(modeOf(deep), 0707u) << "an existing directory keeps its mode";

    // A file in the way is never taken for a directory.
    const std::string file = home.writeFile("afile", "x");
    for (bool intermediates : {false, true}) {
        std::error_code blocked;
        EXPECT_FALSE(fs.createDirectory(file, 0700, intermediates, blocked)) << intermediates;
        EXPECT_TRUE(blocked) << intermediates;
        std::error_code below;
        EXPECT_FALSE(fs.createDirectory(file + "/sub", 0700, intermediates, below)) << intermediates;
        EXPECT_TRUE(below) << intermediates;
    }
}

// ---- moving and removing

TEST_F(PosixFileSystemTest, RemoveItemRemovesTreesAndNeverFollowsLinks) {
    home.writeFile("keep/precious.txt", "p");
    home.writeFile("trash/a/b/c.txt", "c");
    home.writeFile("trash/a/.hidden", "h");
    home.makeDirectory("trash/empty");
    home.makeSymlink("trash/a/tokeep", home.at("keep"));
    const std::string linkToDir = home.makeSymlink("linkdir", home.at("keep"));

    std::error_code error;
    ASSERT_TRUE(fs.removeItem(home.at("trash"), error)) << error.message();
    EXPECT_FALSE(stdfs::exists(stdfs::symlink_status(home.at("trash"))));

    ASSERT_TRUE(fs.removeItem(linkToDir, error)) << error.message();
    EXPECT_FALSE(stdfs::exists(stdfs::symlink_status(linkToDir)));
    EXPECT_EQ(namesIn(home.at("keep")), (std::set<std::string>{"precious.txt"}));

    const std::string file = home.writeFile("single.txt", "x");
    EXPECT_TRUE(fs.removeItem(file, error));
    EXPECT_FALSE(stdfs::exists(file));

    EXPECT_FALSE(fs.removeItem(home.at("missing"), error));
    EXPECT_EQ(error, errnoCode(ENOENT));
}

TEST_F(PosixFileSystemTest, MoveItemAndSetPermissions) {
    const std::string from = home.writeFile("from.txt", "m");
    const std::string to = home.at("to.txt");
    std::error_code error;
    ASSERT_TRUE(fs.moveItem(from, to, error)) << error.message();
    EXPECT_FALSE(stdfs::exists(from));
    EXPECT_EQ(fs.readFile(to, 10, error), "m");
    EXPECT_FALSE(fs.moveItem(from, to, error));
    EXPECT_EQ(error, errnoCode(ENOENT));

    ASSERT_TRUE(fs.setPermissions(to, 0604, error));
    EXPECT_EQ(modeOf(to), 0604u);
    EXPECT_FALSE(fs.setPermissions(from, 0600, error));
}

// ---- packages and home

TEST_F(PosixFileSystemTest, PackagesAreDirectoriesWithAPackageExtension) {
    home.makeDirectory("Apps/Real.app/Contents");
    home.makeDirectory("Apps/Upper.APP");
    home.makeDirectory("Apps/Kit.framework");
    home.writeFile("Apps/Fake.app", "not a directory");
    home.makeDirectory("Apps/Plain");
    home.makeDirectory("Apps/notes.txt");
    struct Row {
        const char* path;
        bool package;
    };
    for (const auto& row : {Row{"Apps/Real.app", true}, Row{"Apps/Upper.APP", true}, Row{"Apps/Kit.framework", true},
                            Row{"Apps/Real.app/", true}, Row{"Apps/Fake.app", false}, Row{"Apps/Plain", false},
                            Row{"Apps/notes.txt", false}, Row{"Apps/Gone.app", false}}) {
        EXPECT_EQ(fs.isPackage(home.at(row.path)), row.package) << row.path;
    }
}

// Sets HOME for one test and puts the previous value back.
class HomeVariableScope {
public:
    explicit HomeVariableScope(const char* value) {
        if (const char* old = std::getenv("HOME")) saved_ = old;
        ::setenv("HOME", value, 1);
    }
    ~HomeVariableScope() {
        if (saved_) {
            ::setenv("HOME", saved_->c_str(), 1);
        } else {
            ::unsetenv("HOME");
        }
    }

private:
    std::optional<std::string> saved_;
};

TEST_F(PosixFileSystemTest, HomeDirectoryTakesOnlyAnAbsoluteHome) {
    EXPECT_EQ(homeDirectory(), home.path());
    {
        HomeVariableScope scope((home.path() + "//sub/../").c_str());
        EXPECT_EQ(homeDirectory(), home.path());
    }
    EXPECT_STREQ(std::getenv("HOME"), home.path().c_str());

    const passwd* entry = ::getpwuid(::getuid());
    ASSERT_NE(entry, nullptr);
    const std::string fromDatabase = paths::standardize(entry->pw_dir);
    for (const char* relative : {"relative/home", "", "./x"}) {
        HomeVariableScope scope(relative);
        EXPECT_EQ(homeDirectory(), fromDatabase) << "HOME=" << relative;
    }
    EXPECT_STREQ(std::getenv("HOME"), home.path().c_str());
}

} // namespace
} // namespace unbulk
