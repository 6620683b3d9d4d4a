// unbulk review and unbulk explore at a terminal: the built program runs in
// a tmux window of its own inside a temporary home, keys are typed, the
// screen is read, and what happened on disk, in the Trash and in the audit
// log is checked. Off a terminal both refuse.

#include <csignal>
#include <filesystem>
#include <memory>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Safety/AuditLogger.hpp"
#include "Support/FileURL.hpp"
#include "support/Files.hpp"
#include "support/ProcessRunner.hpp"
#include "support/TempHome.hpp"
#include "support/TerminalSession.hpp"

namespace {

namespace fs = std::filesystem;
using unbulk::testing::TerminalSession;
using Strings = std::vector<std::string>;

// On the Mac the Trash is the user's own whatever HOME says, so a test
// there moves nothing to it.
#if defined(__APPLE__)
constexpr bool trashIsTheUsersOwn = true;
#else
constexpr bool trashIsTheUsersOwn = false;
#endif

std::vector<std::string> rows(const std::string& screen) {
    std::vector<std::string> out;
    std::stringstream lines(screen);
    for (std::string line; std::getline(lines, line);)
        out.push_back(line);
    return out;
}

bool appearsInOrder(const std::string& screen, const Strings& texts) {
    std::size_t at = 0;
    for (const std::string& text : texts) {
        at = screen.find(text, at);
        if (at == std::string::npos) return false;
    }
    return true;
}

class InteractiveCommandTest : public ::testing::Test {
protected:
    void SetUp() override {
        if (!TerminalSession::available())
            GTEST_FAIL() << "tmux is not installed (scripts/install-deps test installs it)";
    }

    // Runs unbulk with the words in a terminal of its own. Around it the shell
    // notes the terminal's modes before and after, the exit status, and the
    // program's process id (the inner shell writes its own, then becomes
    // unbulk); "finished" shows once it has returned.
    std::unique_ptr<TerminalSession> start(const Strings& words, int width = 120, int height = 30,
                                           const std::string& variable = "") {
        std::string program = (variable.empty() ? "" : "env " + variable + " ") + "'" + UNBULK_BINARY + "'";
        for (const std::string& word : words)
            program += " '" + word + "'";
        const std::string& root = home.root();
        const std::string command = "stty -g >" + root + "/modes-before; sh -c 'echo $$ >" + root +
                                    "/pid; exec \"$0\" \"$@\"' " + program + "; echo \"exit=$?\" >" + root +
                                    "/exit; stty -g >" + root + "/modes-after; echo finished; sleep 600";
        return std::make_unique<TerminalSession>(command, width, height);
    }

    std::string exitLine() const {
        std::string text = unbulk::testing::readAll(home.root() + "/exit");
        if (!text.empty() && text.back() == '\n') text.pop_back();
        return text;
    }

    // The terminal's modes as the shell saw them before and after the run.
    void expectModesRestored() const {
        const std::string before = unbulk::testing::readAll(home.root() + "/modes-before");
        EXPECT_FALSE(before.empty());
        EXPECT_EQ(unbulk::testing::readAll(home.root() + "/modes-after"), before);
    }

    pid_t programId() const { return std::stoi(unbulk::testing::readAll(home.root() + "/pid")); }

    std::vector<unbulk::AuditLogEntry> auditEntries() const {
        return unbulk::AuditLogger(std::nullopt, unbulk::FileURL(home.path(), true), unbulk::makeDefaultFileSystem()).readEntries();
    }

    std::vector<std::string> trashedNames() const {
        std::vector<std::string> names;
        const std::string files = home.at(".local/share/Trash/files");
        if (!fs::exists(files)) return names;
        for (const auto& entry : fs::directory_iterator(files))
            names.push_back(entry.path().filename().string());
        std::sort(names.begin(), names.end());
        return names;
    }

    unbulk::testing::TempHome home;
};

TEST_F(InteractiveCommandTest, ReviewMovesTheTwoChosenOfThreeNodeModulesToTheTrash) {
    if (trashIsTheUsersOwn) GTEST_SKIP() << "the Trash here is the user's own";
    // Three node_modules where three kinds of scan place find them, largest
    // first in that order.
    home.writeFile("Library/Caches/node_modules/left-pad/index.js", 300'000);
    home.writeFile("Library/Developer/Xcode/DerivedData/node_modules/react/index.js", 200'000);
    home.writeFile("Library/Logs/node_modules/lodash/index.js", 100'000);
    const auto terminal = start({"review"});
    ASSERT_TRUE(terminal->waitFor("3 items")) << terminal->screen();
    EXPECT_NE(terminal->screen().find("0 selected"), std::string::npos) << "nothing is preselected";

    // The first and the third: the cursor starts on the first item and walks
    // over the category headings.
    terminal->press({"Space", "j", "j", "Space"});
    ASSERT_TRUE(terminal->waitFor("2 selected")) << terminal->screen();
    terminal->press({"Enter"});
    ASSERT_TRUE(terminal->waitFor("will move to the Trash")) << terminal->screen();
    const std::string confirmation = terminal->screen();
    EXPECT_NE(confirmation.find("2 items, "), std::string::npos) << confirmation;
    EXPECT_TRUE(appearsInOrder(confirmation, {"~/Library/Caches/node_modules", "~/Library/Logs/node_modules"}))
        << confirmation;
    EXPECT_EQ(confirmation.find("DerivedData"), std::string::npos) << confirmation;

    terminal->press({"y"});
    ASSERT_TRUE(terminal->waitFor("Successful: 2")) << terminal->screen();
    terminal->press({"Space"});
    ASSERT_TRUE(terminal->waitFor("1 item,")) << terminal->screen();
    EXPECT_NE(terminal->screen().find("DerivedData/node_modules"), std::string::npos) << terminal->screen();

    EXPECT_FALSE(fs::exists(home.at("Library/Caches/node_modules")));
    EXPECT_FALSE(fs::exists(home.at("Library/Logs/node_modules")));
    EXPECT_TRUE(fs::exists(home.at("Library/Developer/Xcode/DerivedData/node_modules/react/index.js")));
    EXPECT_EQ(trashedNames().size(), 2u);
    const auto entries = auditEntries();
    ASSERT_EQ(entries.size(), 1u);
    EXPECT_EQ(entries[0].operationType, unbulk::AuditOperationType::trash);
    EXPECT_EQ(entries[0].client, "cli");
    EXPECT_EQ(entries[0].itemsCount, 2);
    EXPECT_EQ(entries[0].paths,
              (Strings{home.at("Library/Caches/node_modules"), home.at("Library/Logs/node_modules")}));

    terminal->press({"q"});
    ASSERT_TRUE(terminal->waitFor("finished")) << terminal->screen();
    EXPECT_EQ(exitLine(), "exit=0");
}

TEST_F(InteractiveCommandTest, ReviewPurgesOnlyOnceTheWordIsTyped) {
    const std::string cache = home.writeFile("Library/Caches/com.example.app/cache.db", 1000);
    const auto terminal = start({"review"});
    ASSERT_TRUE(terminal->waitFor("com.example.app")) << terminal->screen();
    terminal->press({"Space", "Enter", "P"});
    ASSERT_TRUE(terminal->waitFor("Type purge")) << terminal->screen();
    terminal->type("purg");
    terminal->press({"Enter"});
    ASSERT_TRUE(terminal->waitFor("Type the word purge")) << terminal->screen();
    EXPECT_TRUE(fs::exists(cache));

    terminal->type("e");
    terminal->press({"Enter"});
    ASSERT_TRUE(terminal->waitFor("[PERMANENT PURGE] Cleanup Summary:")) << terminal->screen();
    EXPECT_NE(terminal->screen().find("deleted  ~/Library/Caches/com.example.app"), std::string::npos)
        << terminal->screen();
    EXPECT_FALSE(fs::exists(home.at("Library/Caches/com.example.app")));
    EXPECT_TRUE(trashedNames().empty());
    const auto entries = auditEntries();
    ASSERT_EQ(entries.size(), 1u);
    EXPECT_EQ(entries[0].operationType, unbulk::AuditOperationType::purge);
}

TEST_F(InteractiveCommandTest, ReviewCannotSelectAProtectedItem) {
    const std::string thesis = home.writeFile("Documents/thesis.txt", "years of work");
    home.makeSymlink("Library/Caches/thesis-link", "../../Documents");
    home.writeFile("Library/Caches/com.example.app/cache.db", 1000);
    const auto terminal = start({"review"});
    ASSERT_TRUE(terminal->waitFor("KEEP")) << terminal->screen();

    // Only the link shows; Space says why it stays.
    terminal->press({"/"});
    terminal->type("thesis");
    terminal->press({"Enter", "Space"});
    ASSERT_TRUE(terminal->waitFor("Cannot be selected: Protected (Keep).")) << terminal->screen();
    EXPECT_NE(terminal->screen().find("Protected user personal directory"), std::string::npos) << terminal->screen();
    EXPECT_NE(terminal->screen().find("0 selected"), std::string::npos) << terminal->screen();

    // With everything shown again, "a" takes the safe item alone.
    terminal->press({"/", "BSpace", "BSpace", "BSpace", "BSpace", "BSpace", "BSpace", "Enter", "a"});
    ASSERT_TRUE(terminal->waitFor("1 selected")) << terminal->screen();
    terminal->press({"Enter"});
    ASSERT_TRUE(terminal->waitFor("1 item, ")) << terminal->screen();
    ASSERT_TRUE(terminal->waitFor("will move to the Trash")) << terminal->screen();
    EXPECT_EQ(terminal->screen().find("thesis-link"), std::string::npos) << terminal->screen();
    terminal->press({"Escape", "q"});
    ASSERT_TRUE(terminal->waitFor("finished")) << terminal->screen();
    EXPECT_TRUE(fs::exists(thesis));
    EXPECT_TRUE(auditEntries().empty());
}

TEST_F(InteractiveCommandTest, ReviewAgeFilterHidesRecentItems) {
    const std::string old = home.writeFile("Library/Caches/com.example.old/cache.db", 2000);
    fs::last_write_time(old, fs::file_time_type::clock::now() - std::chrono::hours(24 * 100));
    home.writeFile("Library/Caches/com.example.recent/cache.db", 1000);
    const auto terminal = start({"review"});
    ASSERT_TRUE(terminal->waitFor("com.example.recent")) << terminal->screen();
    EXPECT_NE(terminal->screen().find("3 months"), std::string::npos) << terminal->screen();

    terminal->press({"o"});
    ASSERT_TRUE(terminal->waitFor("older than 30 days")) << terminal->screen();
    EXPECT_NE(terminal->screen().find("com.example.old"), std::string::npos) << terminal->screen();
    EXPECT_EQ(terminal->screen().find("com.example.recent"), std::string::npos) << terminal->screen();

    terminal->press({"o", "o"});
    ASSERT_TRUE(terminal->waitFor("older than 1 year")) << terminal->screen();
    EXPECT_NE(terminal->screen().find("Nothing shows under the current filters."), std::string::npos)
        << terminal->screen();
}

TEST_F(InteractiveCommandTest, ReviewRedrawsForANewTerminalSize) {
    const std::string name = "com.example." + std::string(60, 'x');
    home.writeFile("Library/Caches/" + name + "/cache.db", 1000);
    const auto terminal = start({"review"}, 120, 30);
    ASSERT_TRUE(terminal->waitFor(name)) << terminal->screen();

    terminal->resize(60, 12);
    // The status row moves to the new last row, and the path is cut to the
    // new width, keeping its end.
    const bool redrawn = terminal->waitUntil([&](const std::string& screen) {
        const auto lines = rows(screen);
        return lines.size() == 12 && lines.back().starts_with(" 0 selected") &&
               screen.find("\u2026" + std::string(20, 'x')) != std::string::npos;
    });
    EXPECT_TRUE(redrawn) << terminal->screen();
    for (const std::string& line : rows(terminal->screen()))
        EXPECT_EQ(line.find(name), std::string::npos) << line;
}

TEST_F(InteractiveCommandTest, TiersAreColouredUnlessNoColorIsSet) {
    home.writeFile("Library/Caches/com.example.app/cache.db", 1000);
    for (const auto& [variable, coloured] : {std::pair{"", true}, std::pair{"NO_COLOR=1", false}}) {
        const auto terminal = start({"review"}, 120, 30, variable);
        ASSERT_TRUE(terminal->waitFor("SAFE")) << terminal->screen();
        const std::string screen = terminal->screen(true);
        EXPECT_EQ(screen.find("\x1b[32mSAFE") != std::string::npos, coloured) << variable << "\n" << screen;
        EXPECT_NE(screen.find("\x1b[1;7m unbulk review"), std::string::npos) << "attributes stay: " << variable;
    }
}

TEST_F(InteractiveCommandTest, QuittingGivesTheTerminalBack) {
    for (const Strings& words : {Strings{"review"}, Strings{"explore"}}) {
        const auto terminal = start(words);
        ASSERT_TRUE(terminal->waitFor("q quit")) << terminal->screen();
        EXPECT_EQ(terminal->query("#{alternate_on}"), "1");
        terminal->press({"q"});
        ASSERT_TRUE(terminal->waitFor("finished")) << terminal->screen();
        EXPECT_EQ(exitLine(), "exit=0") << words[0];
        expectModesRestored();
        EXPECT_EQ(terminal->query("#{alternate_on} #{cursor_flag}"), "0 1") << words[0];
    }
}

TEST_F(InteractiveCommandTest, ASignalGivesTheTerminalBackAndEndsAsTheSignalDoes) {
    for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
        const auto terminal = start({"review"});
        ASSERT_TRUE(terminal->waitFor("q quit")) << terminal->screen();
        ASSERT_EQ(::kill(programId(), signal), 0);
        ASSERT_TRUE(terminal->waitFor("finished")) << terminal->screen();
        EXPECT_EQ(exitLine(), "exit=" + std::to_string(128 + signal));
        expectModesRestored();
        EXPECT_EQ(terminal->query("#{alternate_on} #{cursor_flag}"), "0 1") << signal;
    }
}

TEST_F(InteractiveCommandTest, ExploreOpensSortsAndTrashesAnEntry) {
    if (trashIsTheUsersOwn) GTEST_SKIP() << "the Trash here is the user's own";
    home.writeFile("proj/big/a.bin", 300'000);
    home.writeFile("proj/zeta.txt", 200'000);
    home.writeFile("proj/small/b.bin", 100'000);
    const auto terminal = start({"explore", "--path", home.at("proj")});
    ASSERT_TRUE(terminal->waitFor("small/")) << terminal->screen();
    EXPECT_TRUE(appearsInOrder(terminal->screen(), {"big/", "zeta.txt", "small/"})) << terminal->screen();

    terminal->press({"s"});
    ASSERT_TRUE(terminal->waitFor("sort: name")) << terminal->screen();
    EXPECT_TRUE(appearsInOrder(terminal->screen(), {"big/", "small/", "zeta.txt"})) << terminal->screen();

    // The cursor stayed on big/ through the sort.
    terminal->press({"Enter"});
    ASSERT_TRUE(terminal->waitFor("a.bin")) << terminal->screen();
    EXPECT_NE(terminal->screen().find("~/proj/big"), std::string::npos) << terminal->screen();
    terminal->press({"Left"});
    ASSERT_TRUE(terminal->waitFor("zeta.txt")) << terminal->screen();

    terminal->press({"j", "d"});
    ASSERT_TRUE(terminal->waitFor("Move small (")) << terminal->screen();
    terminal->press({"y"});
    ASSERT_TRUE(terminal->waitFor("Moved small")) << terminal->screen();
    EXPECT_EQ(terminal->screen().find("small/"), std::string::npos) << terminal->screen();
    EXPECT_FALSE(fs::exists(home.at("proj/small")));
    EXPECT_EQ(trashedNames(), Strings{"small"});
    const auto entries = auditEntries();
    ASSERT_EQ(entries.size(), 1u);
    EXPECT_EQ(entries[0].client, "cli");
    EXPECT_EQ(entries[0].paths, Strings{home.at("proj/small")});
}

TEST_F(InteractiveCommandTest, ExploreShowsWhatTheSandboxRefuses) {
    const std::string thesis = home.writeFile("Documents/thesis.txt", "years of work");
    const auto terminal = start({"explore"});
    ASSERT_TRUE(terminal->waitFor("Documents/")) << terminal->screen();
    terminal->press({"d", "y"});
    ASSERT_TRUE(terminal->waitFor("Documents was not moved")) << terminal->screen();
    EXPECT_NE(terminal->screen().find("directory 'Documents'"), std::string::npos) << terminal->screen();
    EXPECT_TRUE(fs::exists(thesis));
    // The refusal is an operation of its own in the log, with nothing moved.
    const auto entries = auditEntries();
    ASSERT_EQ(entries.size(), 1u);
    EXPECT_EQ(entries[0].itemsCount, 0);
}

TEST(InteractiveCommandsOffATerminal, RefuseAndSayWhatToUseInstead) {
    unbulk::testing::TempHome home;
    const std::vector<std::pair<Strings, std::string>> cases{
        {{"review"}, "review needs a terminal; use 'unbulk scan' and 'unbulk clean --path' instead\n"},
        {{"review", "--category", "DEVELOPER_CACHE"},
         "review needs a terminal; use 'unbulk scan' and 'unbulk clean --path' instead\n"},
        {{"explore", "--path", home.path()}, "explore needs a terminal; use 'unbulk spacelens' instead\n"},
    };
    for (const auto& [words, message] : cases) {
        const auto result = unbulk::testing::runProcess(UNBULK_BINARY, words);
        EXPECT_EQ(result.exitStatus, 1) << words[0];
        EXPECT_EQ(result.standardError, message);
        EXPECT_EQ(result.standardOutput, "");
    }
    EXPECT_FALSE(fs::exists(home.at(".unbulk")));
}

} // namespace
