#if defined(__linux__)

#include <cstdlib>
#include <filesystem>
#include <string>

#include <gtest/gtest.h>

#include "Platform/linux/FreedesktopTrash.hpp"
#include "Support/Dates.hpp"
#include "support/Files.hpp"
#include "support/ProcessRunner.hpp"
#include "support/TempHome.hpp"

namespace unbulk {
namespace {

namespace stdfs = std::filesystem;
using testing::identityOf;
using testing::readAll;

class FreedesktopTrashTest : public ::testing::Test {
protected:
    // 2024-02-29T23:45:10Z is 2024-03-01T05:15:10 at UTC+05:30: a date
    // written in UTC instead of local time shows at once.
    FreedesktopTrashTest() { ::setenv("TZ", "IST-5:30", 1); ::tzset(); }
    ~FreedesktopTrashTest() override { hadZone ? ::setenv("TZ", savedZone.c_str(), 1) : ::unsetenv("TZ"); ::tzset(); }
    static std::string info(const std::string& encodedPath) {
        return "[Trash Info]\nPath=" + encodedPath + "\nDeletionDate=2024-03-01T05:15:10\n";
    }
    std::string filesAt(const std::string& name) const { return trashDir + "/files/" + name; }
    std::string infoAt(const std::string& name) const { return trashDir + "/info/" + name + ".trashinfo"; }
    std::optional<std::string> trashOrFail(const std::string& path) {
        const TrashMove move = trash.trashItem(path, identityOf(path), nullptr);
        EXPECT_TRUE(move.moved()) << path << ": " << move.error.message();
        return move.landedPath;
    }

    testing::TempHome home; // sets XDG_DATA_HOME
    const bool hadZone = std::getenv("TZ") != nullptr;
    const std::string savedZone = hadZone ? std::getenv("TZ") : "";
    const std::string trashDir = home.at(".local/share/Trash");
    FreedesktopTrash trash{FreedesktopTrash::defaultDataHome(),
                           [] { return *dates::parseISO8601("2024-02-29T23:45:10Z"); }};
};

TEST_F(FreedesktopTrashTest, AFileAndADirectoryLandInTheHomeTrashWithInfoThatTrashCliReads) {
    home.writeFile("notes 100% \xC3\xBC.txt", "keep me");
    home.writeFile("build dir/inner/a.o", "object");
    const std::pair<std::string, std::string> items[] = {{"notes 100% \xC3\xBC.txt", "/notes%20100%25%20%C3%BC.txt"},
                                                         {"build dir", "/build%20dir"}};
    for (const auto& [name, encoded] : items) {
        EXPECT_EQ(trashOrFail(home.at(name)), filesAt(name));
        EXPECT_FALSE(stdfs::exists(stdfs::symlink_status(home.at(name))));
        EXPECT_EQ(readAll(infoAt(name)), info(home.path() + encoded));
    }
    for (const char* made : {"", "/files", "/info"})
        EXPECT_EQ(stdfs::status(trashDir + made).permissions(), stdfs::perms::owner_all) << made;

    // trash-cli, the reference tool on Linux, lists both.
    // The child inherits HOME, XDG_DATA_HOME and TZ from this process.
    const testing::ProcessOptions options{.environment = {{"LC_ALL", "C.UTF-8"}}};
    const auto listed = testing::runProcess("/bin/sh", {"-c", "trash-list"}, options);
    ASSERT_EQ(listed.exitStatus, 0) << listed.standardError << "(trash-cli comes with scripts/install-deps)";
    for (const auto& [name, encoded] : items)
        EXPECT_NE(listed.standardOutput.find("2024-03-01 05:15:10 " + home.at(name) + "\n"), std::string::npos) << name;
}

// The item was checked; then another took its name (its inode stays taken),
// or "Caches" was swapped for a link to a folder the user keeps.
TEST_F(FreedesktopTrashTest, AnItemThatIsNoLongerTheCheckedOneIsLeftAlone) {
    const std::string item = home.writeFile("Library/Caches/item", "checked");
    const Identity itemIdentity = identityOf(item);
    stdfs::rename(item, home.at("Library/Caches/kept"));
    home.writeFile("Library/Caches/item", "another file under the same name");
    EXPECT_EQ(trash.trashItem(item, itemIdentity, nullptr).error.code, changedSinceCheckedError());
    EXPECT_TRUE(stdfs::exists(item));

    home.writeFile("Library/Caches/victim/precious.txt", "mine");
    const Identity victim = identityOf(home.at("Library/Caches/victim"));
    home.writeFile("Documents/decoy/victim/precious.txt", "mine too");
    stdfs::rename(home.at("Library/Caches"), home.at("Library/Caches.moved"));
    home.makeSymlink("Library/Caches", home.at("Documents/decoy"));
    EXPECT_EQ(trash.trashItem(home.at("Library/Caches/victim"), victim, nullptr).error.code, changedSinceCheckedError());
    EXPECT_EQ(readAll(home.at("Documents/decoy/victim/precious.txt")), "mine too");
    EXPECT_EQ(readAll(home.at("Library/Caches.moved/victim/precious.txt")), "mine");
    EXPECT_FALSE(stdfs::exists(trashDir + "/files/victim"));
}

// The Trash's own folders are opened without following a link and must be
// real directories: a link in place of one would send the item, or its
// .trashinfo, somewhere the Trash tools never look, while the landed path
// claimed the Trash. Such a move fails, names the folder, and writes nothing.
TEST_F(FreedesktopTrashTest, TrashFoldersThatAreLinksOrFilesStopTheMoveAndNameTheFolder) {
    home.writeFile("Documents/kept.txt", "mine");
    home.writeFile(".ssh/id_ed25519", "key");
    const std::string elsewhere = home.at("elsewhere");
    stdfs::create_directories(elsewhere);
    const std::vector<std::pair<std::string, std::string>> traps{
        {"files", home.at("Documents")}, {"info", home.at(".ssh")}, {"", elsewhere}, {"files", ""}};
    for (const auto& [folder, target] : traps) {
        SCOPED_TRACE(folder + " -> " + target);
        stdfs::remove_all(trashDir);
        stdfs::create_directories(trashDir + "/files");
        stdfs::create_directories(trashDir + "/info");
        const std::string trap = folder.empty() ? trashDir : trashDir + "/" + folder;
        stdfs::remove_all(trap);
        if (target.empty()) {
            home.writeFile(".local/share/Trash/" + folder, "not a folder");
        } else {
            stdfs::create_directory_symlink(target, trap);
        }
        const std::string item = home.writeFile("Library/Caches/item", "cache");
        const TrashMove move = trash.trashItem(item, identityOf(item), nullptr);
        EXPECT_FALSE(move.moved());
        EXPECT_EQ(move.unusableTrashDirectory, trap);
        EXPECT_TRUE(stdfs::exists(item));
        for (const std::string& untouched : {home.at("Documents"), home.at(".ssh"), elsewhere})
            EXPECT_EQ(std::distance(stdfs::directory_iterator(untouched), stdfs::directory_iterator()),
                      untouched == elsewhere ? 0 : 1)
                << untouched;
    }
}

// Which of the Trash's folders refused, and how, is in the error: each of
// them is opened by the same call.
TEST_F(FreedesktopTrashTest, TheErrorNamesTheCallAndTheFolderThatRefused) {
    for (const std::string folder : {"files", "info"}) {
        stdfs::remove_all(trashDir);
        stdfs::create_directories(trashDir);
        home.writeFile(".local/share/Trash/" + folder, "not a folder");
        const std::string item = home.writeFile("Library/Caches/item", "cache");
        const TrashMove move = trash.trashItem(item, identityOf(item), nullptr);
        EXPECT_EQ(move.error.message(), "openat('" + trashDir + "/" + folder + "'): " +
                                            std::error_code(ENOTDIR, std::generic_category()).message());
    }
}

} // namespace
} // namespace unbulk

#endif // defined(__linux__)
