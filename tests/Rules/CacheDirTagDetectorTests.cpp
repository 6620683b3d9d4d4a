#include "Rules/CacheDirTagDetector.hpp"

#include <cerrno>
#include <optional>
#include <string>
#include <system_error>
#include <vector>

#include <gtest/gtest.h>

#include "support/FaultyFileSystem.hpp"
#include "support/TempHome.hpp"

namespace unbulk {
namespace {

namespace tags = CacheDirTagDetector;
using testing::FaultyFileSystem;
using testing::FileSystemCall;

const std::string signatureLine = "Signature: 8a477f597d28d172789f06886806bc55";

class CacheDirTagDetectorTest : public ::testing::Test {
protected:
    testing::TempHome temp;
    std::shared_ptr<FileSystem> fileSystem = makeDefaultFileSystem();

    FileURL directoryWithTag(const std::string& name, const std::string& contents) {
        temp.writeFile(name + "/CACHEDIR.TAG", contents);
        return FileURL(temp.at(name), true);
    }

    static CacheDirTagInfo infoFor(const FileURL& directory, bool valid, std::optional<std::string> comment) {
        return {FileURL(directory.path() + "/CACHEDIR.TAG"), directory, valid, std::move(comment)};
    }
};

TEST_F(CacheDirTagDetectorTest, WrittenTagsReadBackValid) {
    const FileURL named = FileURL(temp.makeDirectory("named"), true);
    tags::writeTag(named, std::string("unbulk"), *fileSystem);
    std::error_code error;
    EXPECT_EQ(fileSystem->readFile(named.path() + "/CACHEDIR.TAG", 4096, error),
              signatureLine +
                  "\n# This file is a cache directory tag created by unbulk.\n"
                  "# For information about cache directory tags, see:\n"
                  "#   https://bford.info/cachedir/\n");
    EXPECT_EQ(tags::detectTag(named, *fileSystem),
              infoFor(named, true, "This file is a cache directory tag created by unbulk."));
    EXPECT_TRUE(tags::isCacheDirectory(named));

    const FileURL bare = FileURL(temp.makeDirectory("bare"), true);
    tags::writeTag(bare, std::nullopt);
    EXPECT_EQ(fileSystem->readFile(bare.path() + "/CACHEDIR.TAG", 4096, error), signatureLine + "\n");
    EXPECT_EQ(tags::detectTag(bare), infoFor(bare, true, std::nullopt));
}

TEST_F(CacheDirTagDetectorTest, WritingReplacesABadTagAndReportsFailures) {
    const FileURL directory = directoryWithTag("cache", "garbage");
    EXPECT_FALSE(tags::isCacheDirectory(directory, *fileSystem));
    tags::writeTag(directory, std::string("tool"), *fileSystem);
    EXPECT_TRUE(tags::isCacheDirectory(directory, *fileSystem));

    const FileURL missing(temp.at("no/such/dir"), true);
    try {
        tags::writeTag(missing, std::string("tool"), *fileSystem);
        ADD_FAILURE() << "writing into a missing directory succeeded";
    } catch (const std::system_error& failure) {
        EXPECT_EQ(failure.code(), std::errc::no_such_file_or_directory);
    }
    EXPECT_FALSE(fileSystem->fileExists(missing.path()));
}

TEST_F(CacheDirTagDetectorTest, ReadsTheFirstLineAndTheFirstComment) {
    struct Case {
        std::string label;
        std::string contents;
        bool valid;
        std::optional<std::string> comment;
    };
    const std::string latin = "\xC3\xA9"; // é, two bytes
    const std::vector<Case> cases{
        {"empty file", "", false, std::nullopt},
        {"text behind the signature", signatureLine + " trailing words\n", true, std::nullopt},
        {"no final newline", signatureLine, true, std::nullopt},
        {"leading blanks", " \t  " + signatureLine + "\n# made by x\n", true, "made by x"},
        {"no-break space before it", "\xC2\xA0" + signatureLine + "\n", true, std::nullopt},
        {"a blank first line", "\n" + signatureLine + "\n", false, std::nullopt},
        {"lower-case header", "signature: 8a477f597d28d172789f06886806bc55\n# c\n", false, std::nullopt},
        {"wrong signature", "Signature: 8a477f597d28d172789f06886806bc54\n# c\n", false, std::nullopt},
        {"upper-case signature", "Signature: 8A477F597D28D172789F06886806BC55\n", false, std::nullopt},
        {"not a tag", "just some text\n", false, std::nullopt},
        {"first comment wins", signatureLine + "\nplain line\n   #  first one  \n# second\n", true, "first one"},
        {"empty comment", signatureLine + "\n#\n# later\n", true, ""},
        {"carriage returns", signatureLine + "\r\n# windows \r\n", true, "windows"},
        {"Unicode line separator", signatureLine + "\xE2\x80\xA8# after separator", true, "after separator"},
        {"non-ASCII comment", signatureLine + "\n# caf" + latin + "\n", true, "caf" + latin},
        {"broken UTF-8", signatureLine + "\n# \xFF\n", false, std::nullopt},
        {"encoded surrogate", signatureLine + "\n# \xED\xA0\x80\n", false, std::nullopt},
        {"long first line", signatureLine + std::string(1000, 'x') + "\n# hidden\n", true, std::nullopt},
        {"long line that is not a tag", std::string(600, 'x') + signatureLine + "\n", false, std::nullopt},
    };
    for (std::size_t i = 0; i < cases.size(); ++i) {
        const auto& c = cases[i];
        SCOPED_TRACE(c.label);
        const FileURL directory = directoryWithTag("case" + std::to_string(i), c.contents);
        EXPECT_EQ(tags::detectTag(directory, *fileSystem), infoFor(directory, c.valid, c.comment));
        EXPECT_EQ(tags::isCacheDirectory(directory, *fileSystem), c.valid);
    }
}

TEST_F(CacheDirTagDetectorTest, ReadsNoFurtherThan512Bytes) {
    const std::string head = signatureLine + "\n";
    // Pads the head with blank lines so that the next text starts at `offset`.
    auto paddedTo = [&](std::size_t offset) { return head + std::string(offset - head.size(), '\n'); };
    struct Case {
        std::string label;
        std::string contents;
        bool valid;
        std::optional<std::string> comment;
    };
    const std::vector<Case> cases{
        {"comment beyond the limit", paddedTo(600) + "# late\n", true, std::nullopt},
        {"comment starting at the limit", paddedTo(512) + "# late\n", true, std::nullopt},
        {"comment marker as the last byte read", paddedTo(511) + "#late\n", true, ""},
        {"comment cut by the limit", paddedTo(505) + "# abcdefgh\n", true, "abcde"},
        {"character cut by the limit", paddedTo(510) + "#\xC3\xA9tail\n", false, std::nullopt},
        {"character ending at the limit", paddedTo(509) + "#\xC3\xA9tail\n", true, "\xC3\xA9"},
        {"three-byte character cut", paddedTo(510) + "\xE2\x82\xAC\n", false, std::nullopt},
    };
    for (std::size_t i = 0; i < cases.size(); ++i) {
        const auto& c = cases[i];
        SCOPED_TRACE(c.label);
        const FileURL directory = directoryWithTag("limit" + std::to_string(i), c.contents);
        EXPECT_EQ(tags::detectTag(directory, *fileSystem), infoFor(directory, c.valid, c.comment));
    }
}

TEST_F(CacheDirTagDetectorTest, TellsNoTagFromABadOne) {
    const FileURL untagged(temp.makeDirectory("plain"), true);
    EXPECT_EQ(tags::detectTag(untagged, *fileSystem), std::nullopt);
    EXPECT_FALSE(tags::isCacheDirectory(untagged, *fileSystem));

    const FileURL nowhere(temp.at("absent"), true);
    EXPECT_EQ(tags::detectTag(nowhere, *fileSystem), std::nullopt);

    // A directory of that name exists, then cannot be read: a bad tag.
    temp.makeDirectory("odd/CACHEDIR.TAG");
    const FileURL odd(temp.at("odd"), true);
    EXPECT_EQ(tags::detectTag(odd, *fileSystem), infoFor(odd, false, std::nullopt));
    EXPECT_FALSE(tags::isCacheDirectory(odd, *fileSystem));
}

TEST_F(CacheDirTagDetectorTest, FailuresToOpenAndToReadDiffer) {
    const FileURL directory = directoryWithTag("cache", signatureLine + "\n");
    const std::string tagPath = directory.path() + "/CACHEDIR.TAG";
    FaultyFileSystem faulty(fileSystem);

    faulty.failOn(FileSystemCall::readFile, tagPath, EIO);
    EXPECT_EQ(tags::detectTag(directory, faulty), infoFor(directory, false, std::nullopt));

    faulty.clearFailures();
    faulty.failOn(FileSystemCall::readFile, tagPath, EACCES);
    EXPECT_EQ(tags::detectTag(directory, faulty), std::nullopt);

    faulty.clearFailures();
    EXPECT_EQ(tags::detectTag(directory, faulty), infoFor(directory, true, std::nullopt));

    faulty.failOn(FileSystemCall::writeFileAtomically, tagPath, ENOSPC);
    try {
        tags::writeTag(directory, std::string("tool"), faulty);
        ADD_FAILURE() << "the injected write failure was swallowed";
    } catch (const std::system_error& failure) {
        EXPECT_EQ(failure.code(), std::errc::no_space_on_device);
    }
    EXPECT_EQ(tags::detectTag(directory, *fileSystem), infoFor(directory, true, std::nullopt));
}

} // namespace
} // namespace unbulk
