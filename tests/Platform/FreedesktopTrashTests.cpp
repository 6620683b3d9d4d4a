#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <set>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include "Platform/linux/FreedesktopTrash.hpp"
#include "Support/Dates.hpp"
#include "support/ProcessRunner.hpp"
#include "support/TempHome.hpp"

namespace unbulk {
namespace {

namespace stdfs = std::filesystem;
using testing::TempHome;

// 2024-02-29T23:45:10Z is 2024-03-01T05:15:10 at UTC+05:30: a date written in
// UTC instead of local time shows at once.
constexpr const char* kZone = "IST-5:30";
constexpr const char* kLocalDeletionDate = "2024-03-01T05:15:10";
Date deletionInstant() { return *dates::parseISO8601("2024-02-29T23:45:10Z"); }

// Sets TZ for one test and puts the old value back.
class ZoneScope {
public:
    explicit ZoneScope(const char* zone) {
        if (const char* value = std::getenv("TZ")) saved_ = value;
        ::setenv("TZ", zone, 1);
        ::tzset();
    }
    ~ZoneScope() {
        if (saved_) ::setenv("TZ", saved_->c_str(), 1); else ::unsetenv("TZ");
        ::tzset();
    }

private:
    std::optional<std::string> saved_;
};

std::string contentsOf(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream out;
    out << in.rdbuf();
    return out.str();
}

std::set<std::string> namesIn(const std::string& directory) {
    std::set<std::string> names;
    std::error_code error;
    for (const auto& entry : stdfs::directory_iterator(directory, error)) names.insert(entry.path().filename());
    return names;
}

mode_t modeOf(const std::string& path) {
    struct stat status {};
    return ::lstat(path.c_str(), &status) == 0 ? status.st_mode : 0;
}

// mkdir with exactly `mode`, whatever the umask.
void makeDirectory(const std::string& path, mode_t mode) {
    ::mkdir(path.c_str(), mode);
    ::chmod(path.c_str(), mode);
}

std::string findProgram(const std::string& name) {
    std::istringstream search(std::getenv("PATH") ? std::getenv("PATH") : "/usr/bin:/bin");
    for (std::string directory; std::getline(search, directory, ':');) {
        const std::string candidate = directory + "/" + name;
        if (::access(candidate.c_str(), X_OK) == 0) return candidate;
    }
    return {};
}

class FreedesktopTrashTest : public ::testing::Test {
protected:
    TempHome home;
    ZoneScope zone{kZone};
    std::string trashDir = home.at(".local/share/Trash");
    FreedesktopTrash trash{home.at(".local/share"), deletionInstant};

    std::string filesAt(const std::string& name) const { return trashDir + "/files/" + name; }
    std::string infoAt(const std::string& name) const { return trashDir + "/info/" + name + ".trashinfo"; }
    static std::string info(const std::string& encodedPath) {
        return "[Trash Info]\nPath=" + encodedPath + "\nDeletionDate=" + kLocalDeletionDate + "\n";
    }
    std::optional<std::string> trashOrFail(const std::string& path) {
        std::optional<std::string> landed;
        std::error_code error;
        EXPECT_TRUE(trash.trashItem(path, landed, error)) << path << ": " << error.message();
        return landed;
    }
};

TEST_F(FreedesktopTrashTest, AFileAndADirectoryLandInTheHomeTrashWithExactInfo) {
    const std::string file = home.writeFile("notes 100% \xC3\xBC.txt", "keep me");
    home.writeFile("build dir/inner/a.o", "object");
    const std::string directory = home.at("build dir");
    struct Case { std::string path, name, encoded; };
    const std::vector<Case> cases{
        {file, "notes 100% \xC3\xBC.txt", home.path() + "/notes%20100%25%20%C3%BC.txt"},
        {directory, "build dir", home.path() + "/build%20dir"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(trashOrFail(c.path), filesAt(c.name));
        EXPECT_FALSE(stdfs::exists(stdfs::symlink_status(c.path)));
        EXPECT_EQ(contentsOf(infoAt(c.name)), info(c.encoded));
        EXPECT_EQ(modeOf(infoAt(c.name)) & 07777, 0600u);
    }
    EXPECT_EQ(contentsOf(filesAt("notes 100% \xC3\xBC.txt")), "keep me");
    EXPECT_EQ(contentsOf(filesAt("build dir/inner/a.o")), "object");
    for (const char* made : {"", "/files", "/info"}) EXPECT_EQ(modeOf(trashDir + made) & 07777, 0700u) << made;
}

TEST_F(FreedesktopTrashTest, CollisionsGetNumberedNamesAndEachKeepsItsInfo) {
    for (const char* expected : {"same.txt", "same.txt.2", "same.txt.3"}) {
        const std::string path = home.writeFile("same.txt", expected);
        EXPECT_EQ(trashOrFail(path), filesAt(expected));
        EXPECT_EQ(contentsOf(filesAt(expected)), expected);
        EXPECT_EQ(contentsOf(infoAt(expected)), info(home.path() + "/same.txt"));
    }
    // A leftover in files/ without an info file still holds its name.
    stdfs::create_directories(trashDir + "/files");
    std::ofstream(filesAt("stray")) << "old";
    EXPECT_EQ(trashOrFail(home.writeFile("stray", "new")), filesAt("stray.2"));
    EXPECT_EQ(contentsOf(filesAt("stray")), "old");
    EXPECT_EQ(namesIn(trashDir + "/info"),
              (std::set<std::string>{"same.txt.trashinfo", "same.txt.2.trashinfo", "same.txt.3.trashinfo",
                                     "stray.2.trashinfo"}));
}

TEST_F(FreedesktopTrashTest, AnOverlongNameIsCutAtACharacterBoundaryAndPathKeepsItWhole) {
    std::string name;
    for (int i = 0; i < 124; ++i) name += "\xC3\xA9"; // 248 bytes: with ".trashinfo" beyond 255
    const std::string path = home.writeFile(name, "x");
    const std::string kept = name.substr(0, 244);
    EXPECT_EQ(trashOrFail(path), filesAt(kept));
    std::string encoded;
    for (int i = 0; i < 124; ++i) encoded += "%C3%A9";
    EXPECT_EQ(contentsOf(infoAt(kept)), info(home.path() + "/" + encoded));
}

TEST_F(FreedesktopTrashTest, ALinkIsTrashedAsTheLinkAndItsTargetStays) {
    const std::string target = home.writeFile("target.txt", "target");
    struct Case { std::string link, points; };
    for (const Case& c : {Case{"link", target}, Case{"dangling", home.at("nowhere")}}) {
        SCOPED_TRACE(c.link);
        home.makeSymlink(c.link, c.points);
        ASSERT_EQ(trashOrFail(home.at(c.link)), filesAt(c.link));
        EXPECT_TRUE(S_ISLNK(modeOf(filesAt(c.link))));
        EXPECT_EQ(stdfs::read_symlink(filesAt(c.link)), c.points);
    }
    EXPECT_EQ(contentsOf(target), "target");
}

TEST_F(FreedesktopTrashTest, FailuresLeaveTheItemAndNoReservedInfo) {
    std::optional<std::string> landed;
    std::error_code error;
    EXPECT_FALSE(trash.trashItem(home.at("missing"), landed, error));
    EXPECT_EQ(error, std::error_code(ENOENT, std::generic_category()));
    EXPECT_FALSE(landed);
    EXPECT_TRUE(namesIn(trashDir + "/info").empty());

    // files/ as a plain file: the name is reserved, then the rename fails.
    stdfs::create_directories(trashDir + "/info");
    std::ofstream(trashDir + "/files") << "not a directory";
    const std::string file = home.writeFile("victim.txt", "still here");
    EXPECT_FALSE(trash.trashItem(file, landed, error));
    EXPECT_EQ(error, std::error_code(ENOTDIR, std::generic_category()));
    EXPECT_FALSE(landed);
    EXPECT_EQ(contentsOf(file), "still here");
    EXPECT_TRUE(namesIn(trashDir + "/info").empty());
}

TEST_F(FreedesktopTrashTest, TheDataHomeComesFromXdgDataHomeWhenAbsolute) {
    struct Case { const char* value; std::string expected; };
    const std::vector<Case> cases{
        {"/elsewhere/data/", "/elsewhere/data"},
        {"relative/data", home.path() + "/.local/share"},
        {nullptr, home.path() + "/.local/share"},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.value ? c.value : "(unset)");
        if (c.value) ::setenv("XDG_DATA_HOME", c.value, 1); else ::unsetenv("XDG_DATA_HOME");
        EXPECT_EQ(FreedesktopTrash::defaultDataHome(), c.expected);
    }
    // The default trash is the home trash of the temporary home.
    std::optional<std::string> landed;
    std::error_code error;
    ASSERT_TRUE(makeDefaultTrash()->trashItem(home.writeFile("default.txt", "d"), landed, error)) << error.message();
    EXPECT_EQ(landed, filesAt("default.txt"));
    EXPECT_TRUE(stdfs::exists(infoAt("default.txt")));
}

TEST_F(FreedesktopTrashTest, TopDirectoryTrashIsTheStickySharedOneOrThePerUserOne) {
    const uid_t uid = ::getuid();
    const std::string own = ".Trash-" + std::to_string(uid);
    const std::string shared = ".Trash/" + std::to_string(uid);
    struct Case {
        std::string name;
        void (*prepare)(const std::string& topdir);
        std::string expected; // below topdir; empty: fails with ENOTDIR
    };
    const std::vector<Case> cases{
        {"nothing there", [](const std::string&) {}, own},
        {"sticky .Trash", [](const std::string& t) { makeDirectory(t + "/.Trash", 01777); }, shared},
        {".Trash without sticky bit", [](const std::string& t) { makeDirectory(t + "/.Trash", 0777); }, own},
        {".Trash a link to a sticky directory",
         [](const std::string& t) {
             makeDirectory(t + "/real", 01777);
             stdfs::create_directory_symlink("real", t + "/.Trash");
         },
         own},
        {".Trash-$uid a file",
         [](const std::string& t) { std::ofstream(t + "/.Trash-" + std::to_string(::getuid())); }, ""},
    };
    for (const Case& c : cases) {
        SCOPED_TRACE(c.name);
        const std::string topdir = home.makeDirectory("volumes/" + std::to_string(&c - cases.data()));
        c.prepare(topdir);
        std::error_code error;
        const auto chosen = FreedesktopTrash::topdirTrashDirectory(topdir, uid, error);
        if (c.expected.empty()) {
            EXPECT_FALSE(chosen);
            EXPECT_EQ(error, std::error_code(ENOTDIR, std::generic_category()));
            continue;
        }
        EXPECT_EQ(chosen, topdir + "/" + c.expected) << error.message();
        EXPECT_EQ(modeOf(topdir + "/" + c.expected), S_IFDIR | 0700u);
        if (c.expected == own) {
            EXPECT_FALSE(stdfs::exists(topdir + "/real/" + std::to_string(uid)));
        }
    }
    // Somebody else's .Trash-$uid is not ours to use.
    const std::string topdir = home.makeDirectory("volumes/foreign");
    home.makeDirectory("volumes/foreign/.Trash-54321");
    std::error_code error;
    EXPECT_FALSE(FreedesktopTrash::topdirTrashDirectory(topdir, 54321, error));
    EXPECT_EQ(error, std::error_code(EACCES, std::generic_category()));
}

// What we write must read back in trash-cli, the reference tool on Linux.
TEST_F(FreedesktopTrashTest, TrashCliListsAndRestoresWhatWeTrashed) {
    const std::string trashList = findProgram("trash-list");
    const std::string trashRestore = findProgram("trash-restore");
    if (trashList.empty() || trashRestore.empty()) {
        FAIL() << "trash-list and trash-restore (trash-cli) are not installed; run scripts/install-deps";
    }
    const std::string file = home.writeFile("notes 100% \xC3\xBC.txt", "keep me");
    home.writeFile("build dir/inner/a.o", "object");
    const std::string directory = home.at("build dir");
    trashOrFail(file);
    trashOrFail(directory);

    testing::ProcessOptions options;
    options.environment = {{"HOME", home.path()}, {"XDG_DATA_HOME", home.at(".local/share")}, {"LC_ALL", "C.UTF-8"}};
    const auto listed = testing::runProcess(trashList, {}, options);
    ASSERT_EQ(listed.exitStatus, 0) << listed.standardError;
    std::set<std::string> lines;
    std::istringstream output(listed.standardOutput);
    for (std::string line; std::getline(output, line);) lines.insert(line);
    for (const std::string& original : {file, directory}) {
        EXPECT_TRUE(lines.contains("2024-03-01 05:15:10 " + original)) << listed.standardOutput;
    }

    // trash-restore asks which entry to restore on standard input.
    const auto restored = testing::runProcess(
        "/bin/sh", {"-c", "printf '0\\n' | \"$1\" \"$2\"", "sh", trashRestore, directory}, options);
    ASSERT_EQ(restored.exitStatus, 0) << restored.standardOutput << restored.standardError;
    EXPECT_EQ(contentsOf(directory + "/inner/a.o"), "object");
    EXPECT_FALSE(stdfs::exists(filesAt("build dir")));
    EXPECT_EQ(namesIn(trashDir + "/info"), std::set<std::string>{"notes 100% \xC3\xBC.txt.trashinfo"});
}

} // namespace
} // namespace unbulk
