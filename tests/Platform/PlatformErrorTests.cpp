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

} // namespace
} // namespace unbulk
