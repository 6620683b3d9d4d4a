#include <filesystem>
#include <iostream>

#include <gtest/gtest.h>

#include "Safety/SandboxSecurityError.hpp"
#include "Safety/SandboxValidator.hpp"
#include "Support/Paths.hpp"
#include "support/TempHome.hpp"

namespace unbulk {
namespace {

using testing::TempHome;

std::string upper(std::string text) {
    for (char& c : text) c = c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
    return text;
}

// Every way we know to talk the sandbox into a protected place, all at once.
// Each attempt must be refused; the count is printed for the record.
TEST(SandboxSiegeTest, NoAttemptGetsThrough) {
    TempHome home;
    const FileURL homeURL(home.path(), true);
    std::vector<std::pair<std::string, FileURL>> attempts; // (path, home it is judged against)
    auto attempt = [&](std::string path) { attempts.emplace_back(std::move(path), homeURL); };

    // The places themselves, below them, in other cases, with extra slashes
    // and "." components.
    std::vector<std::string> systemPlaces(SandboxValidator::forbiddenSystemPrefixes.begin(),
                                          SandboxValidator::forbiddenSystemPrefixes.end());
#if defined(__linux__)
    systemPlaces.insert(systemPlaces.end(), SandboxValidator::linuxSystemPrefixes.begin(),
                        SandboxValidator::linuxSystemPrefixes.end());
    for (const auto root : SandboxValidator::linuxUserRoots) systemPlaces.push_back(std::string(root) + "/other");
#endif
    systemPlaces.push_back("/Users/other");
    for (const auto& place : systemPlaces)
        for (const std::string& path : {place, place + "/x", place + "/x/y", upper(place) + "/x", place + "//x///",
                                        "/." + place + "/./x", "//" + place.substr(1) + "/x/"})
            attempt(path);
    for (const auto directory : SandboxValidator::forbiddenUserDirectories) {
        const std::string name(directory);
        for (const std::string& path :
             {"~/" + name, "~/" + name + "/x", home.at(name) + "/x", "~/" + upper(name) + "/x", "~//" + name + "///x/",
              "~/./" + name + "/./x", home.path() + "/./" + name + "/x"})
            attempt(path);
    }
    for (const std::string& path : {std::string("/"), std::string("//"), std::string("/."), std::string("~"),
                                    std::string("~/"), home.path(), home.path() + "/", home.path() + "/."})
        attempt(path);

    // A NUL anywhere: the kernel would stop reading the path there, at a
    // place the rest of the text was meant to hide.
    const std::string nul(1, '\0');
    for (const std::string& place : {home.path(), home.at("Library/Keychains"), home.at("Library/Caches/app"),
                                     std::string("/tmp/x/y"), std::string("~/Library/Caches/app")})
        for (const std::string& path : {place + nul, place + nul + "/x", place + "/" + nul, nul + place,
                                        place + nul + nul, place.substr(0, 3) + nul + place.substr(3)})
            attempt(path);

    // The audit folder and every Trash, and everything in them.
    const std::string dataHome = home.at(".local/share");
    for (const std::string& place :
         {home.at(".unbulk"), home.at(".unbulk/audit.jsonl"), home.at(".unbulk/rules.json"), home.at(".UNBULK/x"),
          dataHome + "/Trash", dataHome + "/Trash/files", dataHome + "/Trash/info", dataHome + "/Trash/files/a/b",
          dataHome + "/TRASH/info/a.trashinfo", home.at(".Trash"), home.at(".Trash/a"),
          home.at("Projects/.Trash-1000/files/a"), std::string("/tmp/disk/.Trash-1000"),
          std::string("/tmp/disk/.Trash-1000/files/a"), std::string("/tmp/disk/.Trash/1000/info/a.trashinfo"),
          std::string("/tmp/disk/.Trashes/501/a")})
        attempt(place);
    home.makeDirectory(".local/share/Trash/files");
    home.makeDirectory(".unbulk");
    home.makeSymlink("Library/Caches/to-trash", dataHome + "/Trash/files");
    home.makeSymlink("Library/Caches/to-log", home.at(".unbulk"));
    for (const char* link : {"Library/Caches/to-trash", "Library/Caches/to-trash/a", "Library/Caches/to-log/x"})
        attempt(home.at(link));

    // ".." in every position of a path below a cache.
    const std::vector<std::string> parts = paths::components(home.at("Library/Caches/app/file"));
    for (std::size_t i = 0; i <= parts.size(); ++i) {
        for (bool replace : {false, true}) {
            std::vector<std::string> with = parts;
            if (replace && i < with.size()) with[i] = "..";
            else with.insert(with.begin() + static_cast<std::ptrdiff_t>(i), "..");
            std::string path;
            for (const auto& part : with) path += "/" + part;
            attempt(path);
            attempt(path.substr(1)); // relative
        }
    }
    for (const char* path : {"..", "../x", "x/..", "~/..", "~/Library/Caches/../../x", "~/Library/Caches/.."})
        attempt(path);

    // Links to protected places from inside a cache, directly and through
    // chains of every length the system resolves.
    home.writeFile("Documents/thesis.txt", "mine");
    home.makeDirectory("Library/Keychains");
    home.makeDirectory(".ssh"); // a dangling link is only a link: removing it touches nothing it names
    const std::vector<std::string> targets{
        "/etc", "/usr/bin", "/", home.path(), home.at("Documents"), home.at(".ssh"), home.at("Library/Keychains")};
    for (std::size_t t = 0; t < targets.size(); ++t) {
        const std::string chain = "Library/Caches/chain" + std::to_string(t);
        std::string previous = targets[t];
        for (int length = 1; length <= 40; ++length) {
            const std::string link = chain + "/link" + std::to_string(length);
            home.makeSymlink(link, previous);
            previous = home.at(link);
            attempt(previous);
            attempt(previous + "/x");
        }
    }

    // Case folding beyond ASCII, and names that only look like protected ones.
    for (const char* path :
         {"~/Des\u212Atop/x", "~/Document\u017F/x", "/Sy\u017Ftem/Library/x", "/U\u017Fer\u017F/x",
          "~/D\u043Ecuments/x", "~/P\u0131ctures/x", "~/\uFF24ocuments/x", "~/Doc\u200Buments/x", "~/.\u0455sh/x",
          "/\u0435tc/passwd", "~/M\u03BFvies/x", "~/Desktop\u00AD/x", "/L\u0131brary/x"})
        attempt(path);

    // A home that is a link: the real home's protected places stay protected.
    const std::string linkedHome = home.root() + "/linked-home";
    std::filesystem::create_directory_symlink(home.path(), linkedHome);
    const FileURL linkedHomeURL(linkedHome, true);
    for (const std::string& path : {linkedHome + "/Documents/thesis.txt", home.at("Documents/thesis.txt"), linkedHome,
                                    home.path(), linkedHome + "/Library/Caches/chain4/link1/x"})
        attempts.emplace_back(path, linkedHomeURL);
    home.makeSymlink("Library/Caches/up", "../../Documents");
    attempts.emplace_back(linkedHome + "/Library/Caches/up/thesis.txt", linkedHomeURL);
    attempt(home.at("Library/Caches/up/thesis.txt"));

    int refused = 0;
    for (const auto& [path, judgedHome] : attempts) {
        try {
            SandboxValidator::validatePath(path, judgedHome, *makeDefaultFileSystem());
            ADD_FAILURE() << "accepted: " << path << " (home " << judgedHome.path() << ")";
        } catch (const SandboxSecurityError&) {
            ++refused;
        }
    }
    std::cout << "sandbox siege: " << refused << " of " << attempts.size() << " attempts refused\n";
    EXPECT_EQ(refused, static_cast<int>(attempts.size()));
    EXPECT_TRUE(std::filesystem::exists(home.at("Documents/thesis.txt")));
}

} // namespace
} // namespace unbulk
