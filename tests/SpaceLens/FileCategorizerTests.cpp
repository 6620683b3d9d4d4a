#include <gtest/gtest.h>

#include "Platform/linux/SharedMimeFileTypes.hpp"
#include "SpaceLens/FileCategorizer.hpp"
#include "support/TempHome.hpp"

namespace unbulk {
namespace {

// A small shared-mime-info database, written as update-mime-database writes it.
struct FileCategorizerTest : ::testing::Test {
    FileCategorizerTest() {
        home.writeFile("mime/globs2", "# comment\n"
                                      "50:text/x-csrc:*.c\n"
                                      "50:application/x-kotlin-script:*.kts\n"
                                      "50:text/x-scss:*.scss\n"
                                      "50:audio/x-opus:*.opus\n"
                                      "50:application/x-cd-image:*.toast\n"
                                      "50:application/x-executable:*.elf\n"
                                      "50:application/vnd.oasis.opendocument.text:*.odt\n"
                                      "50:application/x-frobnicate:*.frob\n"
                                      "40:application/x-lowweight:*.opus\n"
                                      "50:text/x-sym:*.dsym\n");
        home.writeFile("mime/subclasses", "text/x-scss text/plain\napplication/x-kotlin-script text/x-csrc\n");
    }
    FileCategory categorize(const std::string& name) {
        return FileCategorizer::categorize(FileURL("/x/" + name), SharedMimeFileTypes(home.at("mime")));
    }
    testing::TempHome home;
};

TEST_F(FileCategorizerTest, SpecialNamesThenTablesInTheirOrder) {
    using C = FileCategory;
    const std::vector<std::pair<std::string, C>> rows{{"Makefile", C::developerArtifacts},
                                                      {"DOCKERFILE", C::developerArtifacts},
                                                      {"Package.swift", C::developerArtifacts},
                                                      {"My.DerivedData", C::developerArtifacts},
                                                      {"AppIcon.appiconset", C::developerArtifacts},
                                                      {"backup.TAR", C::archives},
                                                      {"disk.qcow2", C::diskImages},
                                                      {"lib.dylib", C::developerArtifacts}, // in two tables
                                                      {"clip.MOV", C::media},
                                                      {"notes.md", C::documents},
                                                      {"Tool.app", C::binaries},
                                                      {"libx.so", C::binaries},
                                                      {"README", C::other},
                                                      {"blob.unknownext", C::other}};
    for (const auto& [name, category] : rows)
        EXPECT_EQ(categorize(name), category) << name;
}

TEST_F(FileCategorizerTest, TheTypeRegistryDecidesLastThroughItsAncestry) {
    using C = FileCategory;
    EXPECT_EQ(categorize("style.scss"), C::documents);         // text/plain below it
    EXPECT_EQ(categorize("build.kts"), C::developerArtifacts); // a kind of C source here
    EXPECT_EQ(categorize("voice.opus"), C::media);             // the heavier glob wins
    EXPECT_EQ(categorize("old.toast"), C::diskImages);
    EXPECT_EQ(categorize("prog.elf"), C::binaries);
    EXPECT_EQ(categorize("letter.odt"), C::other); // known, but none of the broad types
    // "dSYM" in the table never matches a lower-cased extension: the registry answers.
    EXPECT_EQ(categorize("App.dSYM"), C::documents);
    EXPECT_EQ(FileCategorizer::categorize(FileURL("/x/App.dSYM"), SharedMimeFileTypes(home.at("none"))), C::other);
}

} // namespace
} // namespace unbulk
