#include <gtest/gtest.h>

#include "Platform/linux/SharedMimeFileTypes.hpp"
#include "SpaceLens/FileCategorizer.hpp"
#include "support/TempHome.hpp"

namespace unbulk {
namespace {

// Special names first, then the tables in their order, then the type registry through its ancestry.
TEST(FileCategorizerTest, SpecialNamesThenTablesThenTheTypeRegistry) {
    // A small shared-mime-info database, written as update-mime-database writes it.
    testing::TempHome home;
    home.writeFile("mime/globs2", "# comment\n50:text/x-csrc:*.c\n50:application/x-kotlin-script:*.kts\n"
                                  "50:text/x-scss:*.scss\n50:audio/x-opus:*.opus\n40:application/x-lowweight:*.opus\n"
                                  "50:application/x-cd-image:*.toast\n50:application/x-executable:*.elf\n"
                                  "50:application/vnd.oasis.opendocument.text:*.odt\n50:text/x-sym:*.dsym\n");
    home.writeFile("mime/subclasses", "text/x-scss text/plain\napplication/x-kotlin-script text/x-csrc\n");
    using C = FileCategory;
    const C dev = C::developerArtifacts;
    // One entry of the extension tables, in capitals; SpaceLensEngineTest meets two more.
    const std::vector<std::pair<std::string, C>> rows{
        {"Makefile", dev}, {"DOCKERFILE", dev}, {"My.DerivedData", dev}, {"clip.MOV", C::media},
        {"lib.dylib", dev}, {"README", C::other}, {"blob.unknownext", C::other}, // lib.dylib: in two tables
        {"style.scss", C::documents}, // text/plain below it
        {"build.kts", dev},           // a kind of C source here
        {"voice.opus", C::media},     // the heavier glob wins
        {"old.toast", C::diskImages}, {"prog.elf", C::binaries},
        {"letter.odt", C::other},     // known, but none of the broad types
        {"App.dSYM", C::documents}};  // "dSYM" in the table never matches a lower-cased extension
    const SharedMimeFileTypes types(home.at("mime"));
    for (const auto& [name, category] : rows)
        EXPECT_EQ(FileCategorizer::categorize(FileURL("/x/" + name), types), category) << name;
    EXPECT_EQ(FileCategorizer::categorize(FileURL("/x/App.dSYM"), SharedMimeFileTypes(home.at("none"))), C::other);
}

} // namespace
} // namespace unbulk
