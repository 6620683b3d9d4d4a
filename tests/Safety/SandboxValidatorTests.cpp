#include "Safety/SandboxValidator.hpp"

#include <filesystem>
#include <functional>
#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "support/TempHome.hpp"

namespace unbulk {
void PrintTo(const SandboxSecurityError& error, std::ostream* out) { *out << error.what(); }
} // namespace unbulk

namespace unbulk {
namespace {

using E = SandboxSecurityError;
using Expected = std::optional<SandboxSecurityError>;
constexpr auto passes = std::nullopt;

struct Case {
    std::string input;
    Expected expected;
};

Expected errorOf(const std::function<void()>& call) {
    try {
        call();
    } catch (const SandboxSecurityError& error) {
        return error;
    }
    return std::nullopt;
}

void expectOutcome(const Expected& actual, const Expected& expected) {
    ASSERT_EQ(actual.has_value(), expected.has_value()) << (actual ? actual->what() : "accepted");
    if (!expected) return;
    EXPECT_EQ(*actual, *expected);
    EXPECT_STREQ(actual->what(), expected->what());
}

class SandboxValidatorTest : public ::testing::Test {
protected:
    testing::TempHome temp;
    const std::string home = temp.path();
    const FileURL homeURL{home, true};
    std::shared_ptr<FileSystem> fileSystem = makeDefaultFileSystem();

    void checkPaths(const std::vector<Case>& cases, const FileURL& homeToUse) {
        for (const auto& c : cases) {
            SCOPED_TRACE("path " + c.input);
            expectOutcome(errorOf([&] { SandboxValidator::validatePath(c.input, homeToUse, *fileSystem); }),
                          c.expected);
        }
    }

    void checkPatterns(const std::vector<Case>& cases, const std::optional<FileURL>& base = std::nullopt) {
        for (const auto& c : cases) {
            SCOPED_TRACE("pattern " + c.input);
            expectOutcome(
                errorOf([&] { SandboxValidator::validatePattern(c.input, base, homeURL, *fileSystem); }),
                c.expected);
        }
    }
};

TEST(SandboxSecurityErrorTest, DescriptionsAreTheFixedSentences) {
    const std::vector<std::pair<E, std::string>> cases{
        {E::rootDirectoryTargeted("/"), "Sandbox Violation: Root filesystem '/' cannot be targeted (/)."},
        {E::homeDirectoryTargeted("/Users/me"),
         "Sandbox Violation: Home directory cannot be targeted directly (/Users/me)."},
        {E::forbiddenSystemPath("/etc/hosts", "/etc"),
         "Sandbox Violation: Path '/etc/hosts' targets forbidden system path '/etc'."},
        {E::forbiddenUserDirectory("/Users/me/DOCUMENTS/file", "Documents"),
         "Sandbox Violation: Path '/Users/me/DOCUMENTS/file' targets protected user directory 'Documents'."},
        {E::insufficientPathDepth("~/x*", 1),
         "Sandbox Violation: Path '~/x*' has insufficient depth (1 components relative to home; minimum 2 "
         "required)."},
        {E::directoryTraversalDetected("a/../b"),
         "Sandbox Violation: Path traversal tokens ('..') detected in 'a/../b'."},
        {E::symlinkEscapedSandbox("/Users/me/cache/link", "/", "Symlink points to root directory"),
         "Sandbox Violation: Symlink '/Users/me/cache/link' resolves to forbidden path '/': Symlink points to "
         "root directory"},
        {E::wildcardTargetsForbiddenScope("/*", "Root filesystem"),
         "Sandbox Violation: Rule pattern '/*' matches forbidden scope 'Root filesystem'."},
    };
    for (const auto& [error, sentence] : cases) {
        EXPECT_EQ(error.what(), sentence);
        EXPECT_EQ(error.description(), sentence);
    }
}

TEST(SandboxSecurityErrorTest, EqualityWeighsCaseAndPayload) {
    EXPECT_EQ(E::insufficientPathDepth("/tmp", 1), E::insufficientPathDepth("/tmp", 1));
    EXPECT_NE(E::insufficientPathDepth("/tmp", 1), E::insufficientPathDepth("/tmp", 0));
    EXPECT_NE(E::rootDirectoryTargeted("/"), E::homeDirectoryTargeted("/"));
    EXPECT_NE(E::forbiddenSystemPath("/usr/x", "/usr"), E::forbiddenSystemPath("/usr/x", "/Users"));
}

TEST_F(SandboxValidatorTest, PathsBelowTheHome) {
    checkPaths(
        {
            {"~", E::homeDirectoryTargeted(home)},
            {"~/", E::homeDirectoryTargeted(home)},
            {home + "/", E::homeDirectoryTargeted(home)},
            {"/", E::rootDirectoryTargeted("/")},
            {"//", E::rootDirectoryTargeted("/")},
            {"~/foo", E::insufficientPathDepth(home + "/foo", 1)},
            {"~/foo/bar", passes},
            {"~/./foo//bar/", passes},
            {"~/Library", E::insufficientPathDepth(home + "/Library", 1)},
            {"~/Library/Caches", passes},
            {"~/Library/Keychains/x", E::forbiddenUserDirectory(home + "/Library/Keychains/x", "Library/Keychains")},
            {"~/Documents", E::forbiddenUserDirectory(home + "/Documents", "Documents")},
            {"~/DOCUMENTS/file", E::forbiddenUserDirectory(home + "/DOCUMENTS/file", "Documents")},
            {"~/Documentsx/file", passes},
            {"~/Desktop/a", E::forbiddenUserDirectory(home + "/Desktop/a", "Desktop")},
            {"~/Movies/a", E::forbiddenUserDirectory(home + "/Movies/a", "Movies")},
            {"~/.ssh/id_ed25519", E::forbiddenUserDirectory(home + "/.ssh/id_ed25519", ".ssh")},
            {"~/.gnupg/x", E::forbiddenUserDirectory(home + "/.gnupg/x", ".gnupg")},
            {"~/.cargo/bin/tool", E::forbiddenUserDirectory(home + "/.cargo/bin/tool", ".cargo/bin")},
            {"~/.cargo/registry/cache", passes},
            {"~/.local/bin/x", E::forbiddenUserDirectory(home + "/.local/bin/x", ".local/bin")},
            {"~/.local/share/x", passes},
            {home + "/Pictures/x", E::forbiddenUserDirectory(home + "/Pictures/x", "Pictures")},
        },
        homeURL);
}

TEST_F(SandboxValidatorTest, SystemPlaces) {
    checkPaths(
        {
            {"/Volumes/Disk/x", E::forbiddenSystemPath("/Volumes/Disk/x", "/Volumes")},
            {"/volumes", E::forbiddenSystemPath("/volumes", "/Volumes")},
            {"/Library/Caches/x", E::forbiddenSystemPath("/Library/Caches/x", "/Library")},
            {"/LIBRARY", E::forbiddenSystemPath("/LIBRARY", "/Library")},
            {"/Libraryx/y", passes},
            {"/System/Library/x", E::forbiddenSystemPath("/System/Library/x", "/System")},
            {"/usr/local/bin", E::forbiddenSystemPath("/usr/local/bin", "/usr")},
            {"/bin", E::forbiddenSystemPath("/bin", "/bin")},
            {"/sbin/x", E::forbiddenSystemPath("/sbin/x", "/sbin")},
            {"/dev/null", E::forbiddenSystemPath("/dev/null", "/dev")},
            {"/etc/hosts", E::forbiddenSystemPath("/etc/hosts", "/etc")},
            {"/var", E::forbiddenSystemPath("/var", "/var")},
            {"/var/log/x", E::forbiddenSystemPath("/var/log/x", "/var")},
            {"/var/folders/ab/cd", passes},
            {"/VAR/Folders/ab/cd", passes},
            {"/private", E::forbiddenSystemPath("/private", "/private")},
            {"/private/var", E::forbiddenSystemPath("/private/var", "/private/var")},
            {"/private/var/db/x", E::forbiddenSystemPath("/private/var/db/x", "/private/var")},
            {"/private/var/folders/ab/cd", passes},
            {"/private/var/folders", E::forbiddenSystemPath("/private/var/folders", "/private")},
            {"/private/tmp", E::forbiddenSystemPath("/private/tmp", "/private")},
            {"/private/tmp/x", passes},
            {"/private/etc/x", E::forbiddenSystemPath("/private/etc/x", "/private")},
            {"/Users", E::forbiddenSystemPath("/Users", "/Users")},
            {"/users/", E::forbiddenSystemPath("/users", "/Users")},
            {"/opt/x/y", passes},
            {"/opt/homebrew/x", passes},
            {"/tmp", E::insufficientPathDepth("/tmp", 1)},
            {"/tmp/x", passes},
        },
        homeURL);
}

TEST_F(SandboxValidatorTest, OtherUsersOnAMacHome) {
    // The home needs no disk: resolution leaves a missing path as it is.
    const FileURL macHome("/Users/me", true);
    checkPaths(
        {
            {"/Users/other/cache/x", E::forbiddenSystemPath("/Users/other/cache/x", "/Users")},
            {"/Users/ME/cache/x", E::forbiddenSystemPath("/Users/ME/cache/x", "/Users")},
            {"/Users/me/cache/x", passes},
            {"/Users/mex/cache/x", E::forbiddenSystemPath("/Users/mex/cache/x", "/Users")},
            {"~/cache/x", passes},
            {"/Users/me", E::homeDirectoryTargeted("/Users/me")},
            {"/Users/me/foo", E::insufficientPathDepth("/Users/me/foo", 1)},
            {"/Users/me/Documents/x", E::forbiddenUserDirectory("/Users/me/Documents/x", "Documents")},
        },
        macHome);
}

#if defined(__linux__)
TEST_F(SandboxValidatorTest, LinuxUserAndSystemRoots) {
    checkPaths(
        {
            {"/home/other/x", E::forbiddenSystemPath("/home/other/x", "/home")},
            {"/home", E::forbiddenSystemPath("/home", "/home")},
            {"/root/x", E::forbiddenSystemPath("/root/x", "/root")},
            {"/proc/1", E::forbiddenSystemPath("/proc/1", "/proc")},
            {"/PROC/1", E::forbiddenSystemPath("/PROC/1", "/proc")},
            {"/sys/x", E::forbiddenSystemPath("/sys/x", "/sys")},
            {"/run/x", E::forbiddenSystemPath("/run/x", "/run")},
            {"/boot/x", E::forbiddenSystemPath("/boot/x", "/boot")},
            {"/bootstrap/x", passes},
        },
        homeURL);
    checkPaths(
        {
            {"/home/me/cache/x", passes},
            {"~/cache/x", passes},
            {"/home/ME/cache/x", E::forbiddenSystemPath("/home/ME/cache/x", "/home")},
            {"/home/other/cache/x", E::forbiddenSystemPath("/home/other/cache/x", "/home")},
            {"/home/me/.ssh/x", E::forbiddenUserDirectory("/home/me/.ssh/x", ".ssh")},
        },
        FileURL("/home/me", true));
    checkPaths({{"/root/work/x", passes}, {"/root", E::homeDirectoryTargeted("/root")}}, FileURL("/root", true));
}
#endif

TEST_F(SandboxValidatorTest, TraversalIsJudgedOnTheRawText) {
    checkPaths(
        {
            {"a/../b", E::directoryTraversalDetected("a/../b")},
            {"../x", E::directoryTraversalDetected("../x")},
            {"..", E::directoryTraversalDetected("..")},
            {"~/a/..", E::directoryTraversalDetected("~/a/..")},
            {home + "/a/../b/c", E::directoryTraversalDetected(home + "/a/../b/c")},
            {"/", E::rootDirectoryTargeted("/")},
            {"/x/y..z", passes},
            {"~/..hidden/x", passes},
        },
        homeURL);
}

// Restores the working directory on the way out.
class WorkingDirectory {
public:
    explicit WorkingDirectory(const std::string& path) : saved_(std::filesystem::current_path()) {
        std::filesystem::current_path(path);
    }
    ~WorkingDirectory() { std::filesystem::current_path(saved_); }

private:
    std::filesystem::path saved_;
};

TEST_F(SandboxValidatorTest, RelativePathsAreReadAgainstTheWorkingDirectory) {
    WorkingDirectory cwd(temp.root());
    checkPaths(
        {
            {"home", E::homeDirectoryTargeted(home)},
            {"home/Documents/x", E::forbiddenUserDirectory(home + "/Documents/x", "Documents")},
            {"home/cache", E::insufficientPathDepth(home + "/cache", 1)},
            {"./home/cache/x", passes},
            {"~user/x", passes},
        },
        homeURL);
    WorkingDirectory inHome(home);
    checkPaths({{"", E::homeDirectoryTargeted(home)}, {".", E::homeDirectoryTargeted(home)}}, homeURL);
}

TEST_F(SandboxValidatorTest, SymbolicLinksAreJudgedWhereTheyLead) {
    temp.makeDirectory("Documents");
    temp.makeDirectory("other/place");
    temp.makeSymlink("cache/root", "/");
    temp.makeSymlink("cache/home", home);
    temp.makeSymlink("cache/documents", home + "/Documents");
    temp.makeSymlink("cache/relativeDocuments", "../Documents");
    temp.makeSymlink("cache/harmless", home + "/other/place");
    temp.makeSymlink("cache/etc", "/etc");
    temp.makeSymlink("cache/shallow", home + "/other");
    checkPaths(
        {
            {"~/cache/root",
             E::symlinkEscapedSandbox(home + "/cache/root", "/", "Symlink points to root directory")},
            {"~/cache/home",
             E::symlinkEscapedSandbox(home + "/cache/home", home, "Symlink points to home directory")},
            {"~/cache/documents", E::forbiddenUserDirectory(home + "/Documents", "Documents")},
            {"~/cache/relativeDocuments", E::forbiddenUserDirectory(home + "/Documents", "Documents")},
            {"~/cache/documents/notes.txt", E::forbiddenUserDirectory(home + "/Documents/notes.txt", "Documents")},
            {"~/cache/harmless", passes},
            {"~/cache/etc", E::forbiddenSystemPath("/etc", "/etc")},
            {"~/cache/shallow", E::insufficientPathDepth(home + "/other", 1)},
            // A link in the middle, and a missing tail kept as written.
            {"~/cache/root/x", E::insufficientPathDepth("/x", 1)},
            {"~/cache/missing/deeper/file", passes},
            {"~/not-there/at-all", passes},
        },
        homeURL);
}

TEST_F(SandboxValidatorTest, URLsAreJudgedByTheirPath) {
    temp.makeSymlink("cache/root", "/");
    EXPECT_EQ(errorOf([&] { SandboxValidator::validateURL(FileURL(home + "/foo"), homeURL, *fileSystem); }),
              Expected(E::insufficientPathDepth(home + "/foo", 1)));
    EXPECT_EQ(errorOf([&] { SandboxValidator::validateURL(FileURL(home + "/cache/root"), homeURL); }),
              Expected(E::symlinkEscapedSandbox(home + "/cache/root", "/", "Symlink points to root directory")));
    EXPECT_EQ(errorOf([&] { SandboxValidator::validateURL(FileURL(home + "/a/b", true), homeURL); }), passes);
}

TEST_F(SandboxValidatorTest, Patterns) {
    temp.makeSymlink("cache/root", "/");
    checkPatterns({
        {"~/Library/Caches/**", passes},
        {"/*", E::wildcardTargetsForbiddenScope("/*", "Root filesystem")},
        {"*", E::wildcardTargetsForbiddenScope("*", "Root filesystem")},
        {"?", E::wildcardTargetsForbiddenScope("?", "Root filesystem")},
        {"./*", E::wildcardTargetsForbiddenScope("./*", "Root filesystem")},
        {"~*", E::wildcardTargetsForbiddenScope("~*", "Entire home directory")},
        {"~/*", E::wildcardTargetsForbiddenScope("~/*", "Entire home directory")},
        {"~/**", E::wildcardTargetsForbiddenScope("~/**", "Entire home directory")},
        {"~/{a,b}/x", E::wildcardTargetsForbiddenScope("~/{a,b}/x", "Entire home directory")},
        {"~", E::wildcardTargetsForbiddenScope("~", "Entire home directory")},
        {"~/x*", E::insufficientPathDepth("~/x*", 1)},
        {"~/x/*", passes},
        {"~/Documents/*", E::forbiddenUserDirectory(home + "/Documents", "Documents")},
        {"~/Documents[12]/x", E::forbiddenUserDirectory(home + "/Documents", "Documents")},
        {"~/.cache/[ab]/x", passes},
        {"/usr/local/*", E::forbiddenSystemPath("/usr/local", "/usr")},
        {"/var/log/*.log", E::forbiddenSystemPath("/var/log", "/var")},
        {"/x/y..z", E::directoryTraversalDetected("/x/y..z")},
        {"~/a..b/*", E::directoryTraversalDetected("~/a..b/*")},
        // Wildcards get no depth check on their prefix and no link resolution.
        {"/tmp/*", passes},
        {"~/cache/root/*", passes},
        // Without a wildcard the pattern is a path, judged in full.
        {"~/foo", E::insufficientPathDepth(home + "/foo", 1)},
        {"~/foo/bar", passes},
        {"~/cache/root", E::symlinkEscapedSandbox(home + "/cache/root", "/", "Symlink points to root directory")},
        {"/etc/hosts", E::forbiddenSystemPath("/etc/hosts", "/etc")},
    });
}

TEST_F(SandboxValidatorTest, PatternDepthRemovesEveryOccurrenceOfTheHome) {
    const FileURL macHome("/Users/me", true);
    auto check = [&](const std::string& pattern) {
        return errorOf([&] { SandboxValidator::validatePattern(pattern, std::nullopt, macHome, *fileSystem); });
    };
    EXPECT_EQ(check("~/x/Users/me*"), Expected(E::insufficientPathDepth("~/x/Users/me*", 1)));
    EXPECT_EQ(check("/Users/me/Library/Caches/*"), passes);
    EXPECT_EQ(check("/Users/other/*"), Expected(E::forbiddenSystemPath("/Users/other", "/Users")));
}

TEST_F(SandboxValidatorTest, PatternsJoinedToABaseDirectory) {
    const std::string project = temp.makeDirectory("projects/app");
    checkPatterns(
        {
            {"x/*", passes},
            {"*", passes},
            {"Documents/*", passes},
        },
        FileURL(project, true));
    checkPatterns(
        {
            {"*", E::wildcardTargetsForbiddenScope("*", "Entire home directory")},
            {"Documents/*", E::forbiddenUserDirectory(home + "/Documents", "Documents")},
        },
        homeURL);
    checkPatterns({{"x/*", E::forbiddenSystemPath("/usr/x", "/usr")}}, FileURL("/usr", true));
    // The tilde is only a name there: "~/*" under /opt/base is /opt/base/~/*.
    checkPatterns({{"~/*", passes}, {"~/x", passes}}, FileURL("/opt/base", true));
}

TEST_F(SandboxValidatorTest, RulesStopAtTheirFirstBadPattern) {
    RuleDefinition rule;
    rule.id = "test.rule";
    rule.patterns = {"~/Library/Caches/tool/**", "/usr/*", "~/*"};
    rule.excludedPatterns = {"/*"};
    EXPECT_EQ(errorOf([&] { SandboxValidator::validateRule(rule, homeURL, *fileSystem); }),
              Expected(E::forbiddenSystemPath("/usr", "/usr")));

    rule.patterns = {"~/Library/Caches/tool/**", "~/.cache/tool/*"};
    EXPECT_EQ(errorOf([&] { SandboxValidator::validateRule(rule, homeURL); }), passes);

    rule.patterns.clear();
    EXPECT_EQ(errorOf([&] { SandboxValidator::validateRule(rule, homeURL); }), passes);
}

} // namespace
} // namespace unbulk
