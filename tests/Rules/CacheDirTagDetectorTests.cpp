#include "Rules/CacheDirTagDetector.hpp"

#include <gtest/gtest.h>

#include "support/FaultyFileSystem.hpp"
#include "support/TempHome.hpp"

namespace unbulk {
namespace {

namespace tags = CacheDirTagDetector;

const std::string signatureLine = "Signature: 8a477f597d28d172789f06886806bc55";

struct CacheDirTagDetectorTest : ::testing::Test {
    testing::TempHome temp;
    std::shared_ptr<testing::FaultyFileSystem> fileSystem = std::make_shared<testing::FaultyFileSystem>();

    FileURL directoryWithTag(const std::string& name, const std::string& contents) {
        temp.writeFile(name + "/CACHEDIR.TAG", contents);
        return FileURL(temp.at(name), true);
    }
    static CacheDirTagInfo infoFor(const FileURL& directory, bool valid, std::optional<std::string> comment) {
        return {FileURL(directory.path() + "/CACHEDIR.TAG"), directory, valid, std::move(comment)};
    }
};

// That a written tag reads back valid is seen in AnomalyDetectorTest, which tags with writeTag.
TEST_F(CacheDirTagDetectorTest, WrittenTagsHoldTheSignatureAndTheirMaker) {
    const FileURL app(temp.makeDirectory("named"), true);
    tags::writeTag(app, std::string("unbulk"), *fileSystem);
    PlatformError error;
    EXPECT_EQ(fileSystem->readFile(app.path() + "/CACHEDIR.TAG", 4096, error),
              signatureLine + "\n# This file is a cache directory tag created by unbulk.\n"
                              "# For information about cache directory tags, see:\n#   https://bford.info/cachedir/\n");
}

TEST_F(CacheDirTagDetectorTest, ReadsTheFirst512BytesAndTellsNoTagFromABadOne) {
    // The signature line is 43 bytes; blank lines pad it so that the next text starts at byte 512, 510, 509.
    const std::string padded512 = signatureLine + std::string(469, '\n');
    const std::vector<std::tuple<std::string, bool, std::optional<std::string>>> cases{
        {"", false, std::nullopt}, {" \t  " + signatureLine + " trailing words\n# made by x\n", true, "made by x"},
        {signatureLine + "\nplain line\n   #  first one  \n# second\n", true, "first one"},
        {padded512 + "# late\n", true, std::nullopt},
        {padded512.substr(0, 510) + "#\xC3\xA9tail\n", false, std::nullopt}, // "é" cut by the limit
        {padded512.substr(0, 509) + "#\xC3\xA9tail\n", true, "\xC3\xA9"},
    };
    for (std::size_t i = 0; i < cases.size(); ++i) {
        const auto& [contents, valid, comment] = cases[i];
        const FileURL directory = directoryWithTag("case" + std::to_string(i), contents);
        EXPECT_EQ(tags::detectTag(directory, *fileSystem), infoFor(directory, valid, comment)) << contents;
        EXPECT_EQ(tags::isCacheDirectory(directory, *fileSystem), valid) << contents;
    }

    EXPECT_EQ(tags::detectTag(FileURL(temp.makeDirectory("plain"), true), *fileSystem), std::nullopt);
    // There is something of that name, then it cannot be read: a bad tag.
    const FileURL odd(temp.makeDirectory("odd"), true);
    temp.makeDirectory("odd/CACHEDIR.TAG");
    EXPECT_EQ(tags::detectTag(odd, *fileSystem), infoFor(odd, false, std::nullopt));
    const FileURL failing = directoryWithTag("failing", signatureLine + "\n");
    fileSystem->failOn(testing::FileSystemCall::readFile, failing.path() + "/CACHEDIR.TAG", EIO);
    EXPECT_EQ(tags::detectTag(failing, *fileSystem), infoFor(failing, false, std::nullopt));
}

} // namespace
} // namespace unbulk
