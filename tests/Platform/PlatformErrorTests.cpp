#include "Platform/PlatformError.hpp"

#include <cerrno>
#include <tuple>

#include <gtest/gtest.h>

namespace unbulk {
namespace {

// Errors as Foundation reports them, by domain and number with its own
// sentence: the sentence is what is shown, the number only classifies.
TEST(PlatformError, FromADomainTheSentenceIsTheMessageAndThePOSIXNumberTheCode) {
    const std::string denied = "\u201Ctool\u201D couldn\u2019t be moved to the Trash because you don\u2019t have "
                               "permission to access it.";
    struct Case {
        const char* domain;
        long code;
        std::string description;
        std::optional<long> underlying;
        int expectedCode;
        std::string expectedMessage;
    };
    const Case cases[] = {
        {"NSCocoaErrorDomain", 513, denied, EACCES, EACCES, denied},
        {"NSCocoaErrorDomain", 513, denied, std::nullopt, EIO, denied},
        {"NSPOSIXErrorDomain", EPERM, "The operation couldn\u2019t be completed.", std::nullopt, EPERM,
         "The operation couldn\u2019t be completed."},
        {"NSOSStatusErrorDomain", -43, "Not found in the volume\u2019s catalog.", std::nullopt, EIO,
         "Not found in the volume\u2019s catalog."},
        {"NSCocoaErrorDomain", 513, "", std::nullopt, EIO, "NSCocoaErrorDomain error 513"},
    };
    for (const Case& c : cases) {
        const PlatformError error = PlatformError::fromDomain(c.domain, c.code, c.description, c.underlying);
        EXPECT_EQ(std::tie(error.code, error.description),
                  std::tuple(std::error_code(c.expectedCode, std::generic_category()), c.expectedMessage))
            << c.domain << " " << c.code;
        EXPECT_EQ(error.message(), c.expectedMessage);
    }
    // Without a sentence of the platform's, the code speaks.
    EXPECT_EQ((PlatformError{{ENOSPC, std::generic_category()}, ""}.message()),
              std::error_code(ENOSPC, std::generic_category()).message());
}

// A failed system call is told by its name, the path or two it was given
// and the reason; a sentence of the platform's own comes first.
TEST(PlatformError, ASystemCallNamesItselfAndItsPaths) {
    const std::string denied = std::error_code(EACCES, std::generic_category()).message();
    const std::pair<PlatformError, std::string> rows[] = {
        {PlatformError::systemCall("renameat2", EACCES, "/t/files/x"), "renameat2('/t/files/x'): " + denied},
        {PlatformError::systemCall("rename", EACCES, "/a", "/b"), "rename('/a', '/b'): " + denied},
        {PlatformError::systemCall("pipe", EACCES, ""), "pipe(): " + denied},
        {PlatformError::of({EACCES, std::generic_category()}), denied},
        {PlatformError{{EACCES, std::generic_category()}, "The file manager said no.", "open", "/a", ""},
         "The file manager said no."},
    };
    for (const auto& [error, expected] : rows) EXPECT_EQ(error.message(), expected);
    EXPECT_EQ(PlatformError::systemCall("open", ENOENT, "/a"), std::errc::no_such_file_or_directory);
    EXPECT_FALSE(PlatformError{});

    const PlatformFailure failure("Could not move '/a' to '/b'", PlatformError::systemCall("rename", EACCES, "/a", "/b"));
    EXPECT_STREQ(failure.what(), ("Could not move '/a' to '/b': rename('/a', '/b'): " + denied).c_str());
    EXPECT_EQ(failure.code(), std::errc::permission_denied);
}

} // namespace
} // namespace unbulk
