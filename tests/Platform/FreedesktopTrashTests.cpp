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
        std::optional<std::string> landed;
        PlatformError error;
        EXPECT_TRUE(trash.trashItem(path, identityOf(path), landed, error)) << path << ": " << error.message();
        return landed;
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
    std::optional<std::string> landed;
    PlatformError error;
    const std::string item = home.writeFile("Library/Caches/item", "checked");
    const Identity itemIdentity = identityOf(item);
    stdfs::rename(item, home.at("Library/Caches/kept"));
    home.writeFile("Library/Caches/item", "another file under the same name");
    EXPECT_FALSE(trash.trashItem(item, itemIdentity, landed, error));
    EXPECT_EQ(error.code, changedSinceCheckedError());
    EXPECT_TRUE(stdfs::exists(item));

    home.writeFile("Library/Caches/victim/precious.txt", "mine");
    const Identity victim = identityOf(home.at("Library/Caches/victim"));
    home.writeFile("Documents/decoy/victim/precious.txt", "mine too");
    stdfs::rename(home.at("Library/Caches"), home.at("Library/Caches.moved"));
    home.makeSymlink("Library/Caches", home.at("Documents/decoy"));
    EXPECT_FALSE(trash.trashItem(home.at("Library/Caches/victim"), victim, landed, error));
    EXPECT_EQ(error.code, changedSinceCheckedError());
    EXPECT_EQ(readAll(home.at("Documents/decoy/victim/precious.txt")), "mine too");
    EXPECT_EQ(readAll(home.at("Library/Caches.moved/victim/precious.txt")), "mine");
    EXPECT_FALSE(stdfs::exists(trashDir + "/files/victim"));
}

} // namespace
} // namespace unbulk

#endif // defined(__linux__)
