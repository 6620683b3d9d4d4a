#include "Safety/SandboxValidator.hpp"

#include <optional>
#include <ostream>
#include <string>
#include <vector>

#include <gtest/gtest.h>
#include <unistd.h>

#include "support/TempHome.hpp"

namespace unbulk {
void PrintTo(const SandboxSecurityError& error, std::ostream* out) { *out << error.what(); }
} // namespace unbulk

namespace unbulk {
namespace {

using E = SandboxSecurityError;
using Expected = std::optional<SandboxSecurityError>;
constexpr auto passes = std::nullopt;

enum class Input { path, pattern };
using enum Input;

struct Case { Input as; std::string input; Expected expected; };

// Each case against the given home (patterns joined to `base` when there is
// one); a refusal must match in kind, payload and sentence.
void check(const std::vector<Case>& cases, const FileURL& homeURL, const std::optional<FileURL>& base = {}) {
    for (const auto& c : cases) {
        SCOPED_TRACE((c.as == path ? "path " : "pattern ") + c.input);
        Expected actual;
        try {
            if (c.as == path) SandboxValidator::validatePath(c.input, homeURL, *makeDefaultFileSystem());
            else SandboxValidator::validatePattern(c.input, base, homeURL, *makeDefaultFileSystem());
        } catch (const SandboxSecurityError& error) {
            actual.emplace(error);
        }
        EXPECT_EQ(actual, c.expected);
        EXPECT_STREQ(actual ? actual->what() : "", c.expected ? c.expected->what() : "");
    }
}

TEST(SandboxSecurityErrorTest, DescriptionsAreTheFixedSentences) {
    const std::string v = "Sandbox Violation: ";
    const std::vector<std::pair<E, std::string>> cases{
        {E::rootDirectoryTargeted("/"), v + "Root filesystem '/' cannot be targeted (/)."},
        {E::homeDirectoryTargeted("/h"), v + "Home directory cannot be targeted directly (/h)."},
        {E::forbiddenSystemPath("/etc/x", "/etc"), v + "Path '/etc/x' targets forbidden system path '/etc'."},
        {E::forbiddenUserDirectory("/h/D", "D"), v + "Path '/h/D' targets protected user directory 'D'."},
        {E::insufficientPathDepth("~/x*", 1),
         v + "Path '~/x*' has insufficient depth (1 components relative to home; minimum 2 required)."},
        {E::directoryTraversalDetected("a/../b"), v + "Path traversal tokens ('..') detected in 'a/../b'."},
        {E::symlinkEscapedSandbox("/h/l", "/", "Why"), v + "Symlink '/h/l' resolves to forbidden path '/': Why"},
        {E::wildcardTargetsForbiddenScope("/*", "S"), v + "Rule pattern '/*' matches forbidden scope 'S'."},
        {E::nulCharacterInPath(std::string("/h/x\0", 5)), "Path contains a NUL character"},
    };
    for (const auto& [error, sentence] : cases) EXPECT_EQ(error.what(), sentence);
}

// Every table entry is refused in the siege; here each branch gives its kind and payload once.
TEST(SandboxValidatorTest, PathsAndPatterns) {
    testing::TempHome temp;
    const std::string home = temp.path();
    temp.makeDirectory("Documents");
    temp.makeDirectory("other/place");
    temp.makeSymlink("cache/root", "/");
    temp.makeSymlink("cache/home", home);
    temp.makeSymlink("cache/documents", home + "/Documents");
    temp.makeSymlink("cache/harmless", home + "/other/place");
    const std::string toRoot = "Symlink points to root directory";
    check(
        {
            {path, "~", E::homeDirectoryTargeted(home)}, {path, "/", E::rootDirectoryTargeted("/")},
            {path, "~/foo", E::insufficientPathDepth(home + "/foo", 1)}, {path, "~/foo/bar", passes},
            {path, "~/DOCUMENTS/file", E::forbiddenUserDirectory(home + "/DOCUMENTS/file", "Documents")},
            {path, "~/Documentsx/file", passes},
            {path, "/Volumes/Disk/x", E::forbiddenSystemPath("/Volumes/Disk/x", "/Volumes")},
#if defined(__linux__)
            {path, "/var/folders/ab/cd", E::forbiddenSystemPath("/var/folders/ab/cd", "/var")},
#else
            {path, "/var/folders/ab/cd", passes},
#endif
            {path, "/var/log/x", E::forbiddenSystemPath("/var/log/x", "/var")},
            {path, "/private/var/folders/ab/cd", passes},
            {path, "/private/var/folders", E::forbiddenSystemPath("/private/var/folders", "/private")},
            {path, "/private/var/db/x", E::forbiddenSystemPath("/private/var/db/x", "/private/var")},
            {path, "/etc/hosts", E::forbiddenSystemPath("/etc/hosts", "/etc")}, {path, "/opt/x/y", passes},
            {path, "/tmp", E::insufficientPathDepth("/tmp", 1)},
            // The kernel reads a path up to its first NUL: such a path is
            // refused before anything else is judged.
            {path, "~/Library/Keychains" + std::string(1, '\0'),
             E::nulCharacterInPath("~/Library/Keychains" + std::string(1, '\0'))},
            {path, std::string("\0/a/..", 6), E::nulCharacterInPath(std::string("\0/a/..", 6))},
            {pattern, "~/.cache/x" + std::string(1, '\0') + "*",
             E::nulCharacterInPath("~/.cache/x" + std::string(1, '\0') + "*")},
            // The audit folder and the Trash hold the history and what can
            // still be put back: nothing in them is a target.
            {path, "~/.unbulk/audit.jsonl", E::forbiddenUserDirectory(home + "/.unbulk/audit.jsonl", ".unbulk")},
            {path, "~/.local/share/Trash/files",
             E::forbiddenUserDirectory(home + "/.local/share/Trash/files", ".local/share/Trash")},
            {path, "~/.Trash/x", E::forbiddenUserDirectory(home + "/.Trash/x", ".Trash")},
            {path, "~/Projects/.Trash-0/files/x",
             E::forbiddenUserDirectory(home + "/Projects/.Trash-0/files/x", "Projects/.Trash-0")},
            {path, "/tmp/disk/.Trash-1000/info/x.trashinfo",
             E::forbiddenSystemPath("/tmp/disk/.Trash-1000/info/x.trashinfo", "/tmp/disk/.Trash-1000")},
            {path, "/tmp/disk/.trashes/501/x",
             E::forbiddenSystemPath("/tmp/disk/.trashes/501/x", "/tmp/disk/.trashes")},
            {path, "/tmp/disk/.Trashcan/x", passes},
            {pattern, "~/.unbulk/*", E::forbiddenUserDirectory(home + "/.unbulk", ".unbulk")},
            // Traversal is judged on the raw text; a pattern refuses ".." even inside a name.
            {path, "a/../b", E::directoryTraversalDetected("a/../b")},
            {path, "~/a/..", E::directoryTraversalDetected("~/a/..")}, {path, "/x/y..z", passes},
            {pattern, "/x/y..z", E::directoryTraversalDetected("/x/y..z")},
            // Links are judged where they lead, also for a name below a link
            // that does not exist (yet): it names a place in the target.
            {path, "~/cache/root", E::symlinkEscapedSandbox(home + "/cache/root", "/", toRoot)},
            {path, "~/cache/home",
             E::symlinkEscapedSandbox(home + "/cache/home", home, "Symlink points to home directory")},
            {path, "~/cache/documents", E::forbiddenUserDirectory(home + "/Documents", "Documents")},
            {path, "~/cache/root/x", E::insufficientPathDepth("/x", 1)}, {path, "~/cache/harmless/x", passes},
            {pattern, "~/Library/Caches/**", passes},
            {pattern, "/*", E::wildcardTargetsForbiddenScope("/*", "Root filesystem")},
            {pattern, "~/*", E::wildcardTargetsForbiddenScope("~/*", "Entire home directory")},
            {pattern, "~/x*", E::insufficientPathDepth("~/x*", 1)},
            {pattern, "~/Documents/*", E::forbiddenUserDirectory(home + "/Documents", "Documents")},
            {pattern, "/usr/local/*", E::forbiddenSystemPath("/usr/local", "/usr")},
            // A bracket ends the static prefix, though the glob language has none.
            {pattern, "~/.cache/[ab]/x", passes},
            {pattern, "~/Documents[12]/x", E::forbiddenUserDirectory(home + "/Documents", "Documents")},
            // Wildcards get no link resolution; without one the pattern is a path in full.
            {pattern, "~/cache/root/*", passes},
            {pattern, "~/cache/root", E::symlinkEscapedSandbox(home + "/cache/root", "/", toRoot)},
        },
        FileURL(home, true));
}

TEST(SandboxValidatorTest, OtherAccountsBaseDirectoriesAndLinuxRoots) {
    // These homes need no disk: resolution leaves a missing path as it is.
    const FileURL macHome("/Users/me", true);
    check({{path, "/Users/me/cache/x", passes},
           {path, "/Users/other/cache/x", E::forbiddenSystemPath("/Users/other/cache/x", "/Users")}},
          macHome);
    // Joined to a base directory, a leading tilde is only a name.
    check({{pattern, "x/*", E::forbiddenSystemPath("/usr/x", "/usr")}}, macHome, FileURL("/usr", true));
    check({{pattern, "~/*", passes}}, macHome, FileURL("/opt/base", true));
#if defined(__linux__)
    // The refusals of the Linux roots are in the siege.
    check({{path, "/home/me/cache/x", passes}, {path, "/bootstrap/x", passes},
           {path, "/boot/other/x", E::forbiddenSystemPath("/boot/other/x", "/boot")},
           {path, "/lib/x86_64-linux-gnu/libdummy.so.1",
            E::forbiddenSystemPath("/lib/x86_64-linux-gnu/libdummy.so.1", "/lib")},
           {path, "/lib64/ld-linux-x86-64.so.2", E::forbiddenSystemPath("/lib64/ld-linux-x86-64.so.2", "/lib64")},
           {path, "/libfoo/x", passes}},
          FileURL("/home/me", true));
#endif
}

// HOME may be a link to the real home: the real home is the home too. (That
// its Documents stay protected is in the siege and CleanSafetyTest.)
TEST(SandboxValidatorTest, ALinkedHomeIsTheRealHome) {
    testing::TempHome temp;
    const std::string real = temp.path(), linked = temp.root() + "/linked-home";
    ASSERT_EQ(::symlink(real.c_str(), linked.c_str()), 0);
    temp.writeFile(".cache/tool/blob", "cache");
    const FileURL linkedHome(linked, true);
    check({{path, real + "/.cache", E::insufficientPathDepth(real + "/.cache", 1)},
           {path, linked + "/.cache/tool", passes},
           {path, real + "/.cache/tool", passes}},
          linkedHome);
}

} // namespace
} // namespace unbulk
