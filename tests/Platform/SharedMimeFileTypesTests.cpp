#include <gtest/gtest.h>

#include <thread>
#include <vector>

#include "Platform/linux/SharedMimeFileTypes.hpp"
#include "support/TempHome.hpp"

namespace unbulk {
namespace {

// Made with the environment, asked (if at all) by the space lens on several
// threads at once: the database is read by the first question, once.
TEST(SharedMimeFileTypesTest, ReadsTheDatabaseAtTheFirstQuestionOnceWhicheverThreadAsks) {
    testing::TempHome home;
    const SharedMimeFileTypes types(home.at("mime"));
    home.writeFile("mime/globs2", "50:text/x-csrc:*.c\n50:image/png:*.png\n");
    home.writeFile("mime/subclasses", "text/x-csrc text/plain\n");

    std::vector<std::optional<TypeConformance>> answers(4);
    std::vector<std::thread> threads;
    for (std::size_t i = 0; i < answers.size(); ++i)
        threads.emplace_back([&, i] { answers[i] = types.conformanceForExtension(i % 2 == 0 ? "c" : "PNG"); });
    for (std::thread& thread : threads)
        thread.join();
    for (std::size_t i = 0; i < answers.size(); ++i) {
        ASSERT_TRUE(answers[i].has_value()) << i;
        EXPECT_EQ(answers[i]->sourceCode, i % 2 == 0) << i;
        EXPECT_EQ(answers[i]->text, i % 2 == 0) << i;
        EXPECT_EQ(answers[i]->image, i % 2 == 1) << i;
    }

    // Read once: what the database says later is not read again.
    home.writeFile("mime/globs2", "50:text/x-csrc:*.c\n50:image/png:*.png\n50:audio/x-opus:*.opus\n");
    EXPECT_EQ(types.mimeType("opus"), std::nullopt);
    EXPECT_EQ(types.mimeType("c"), "text/x-csrc");
}

// A line of globs2 is "weight:type:pattern[:flags]"; only "*.ext" patterns
// name an extension, and a pattern with wildcards beyond the first is none.
TEST(SharedMimeFileTypesTest, TakesExtensionsFromPlainStarDotPatternsOnly) {
    testing::TempHome home;
    home.writeFile("mime/globs2", "# comment\n"
                                  "50:text/x-readme:README\n"
                                  "50:application/x-trash:*~\n"
                                  "50:text/x-log:*.log:cs\n"
                                  "50:application/x-any:*.[ab]\n"
                                  "50:too-short\n"
                                  "60:application/x-first:*.dup\n"
                                  "40:application/x-second:*.dup\n"
                                  "50:Text/X-Upper:*.UPPER\n");
    const SharedMimeFileTypes types(home.at("mime"));
    EXPECT_EQ(types.mimeType("log"), "text/x-log");
    EXPECT_EQ(types.mimeType("LOG"), "text/x-log");
    EXPECT_EQ(types.mimeType("dup"), "application/x-first");
    EXPECT_EQ(types.mimeType("upper"), "Text/X-Upper");
    EXPECT_EQ(types.mimeType("[ab]"), std::nullopt);
    EXPECT_EQ(types.mimeType("a"), std::nullopt);
    EXPECT_EQ(types.mimeType(""), std::nullopt);
    EXPECT_EQ(types.mimeType("README"), std::nullopt);
}

} // namespace
} // namespace unbulk
