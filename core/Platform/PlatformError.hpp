#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <system_error>

namespace unbulk {

// A failed call into the platform, as the platform told it: the error, for
// code that tells kinds of failure apart, and the platform's own sentence
// when it words its errors (Foundation's names the item and the reason),
// which is what a person is shown.
struct PlatformError {
    std::error_code code;
    std::string description;

    // The platform's sentence, or the error code's words when it gave none.
    std::string message() const { return description.empty() ? code.message() : description; }

    // An error reported by domain and number with its own sentence, the
    // way Foundation reports every error. A POSIX error keeps its number;
    // one of another domain takes the number of the POSIX error beneath it
    // (`underlyingPOSIXCode`), or else counts as an I/O error. The sentence
    // is the message as given; without one, the domain and number stand in.
    static PlatformError fromDomain(std::string_view domain, long code, std::string description,
                                    std::optional<long> underlyingPOSIXCode = std::nullopt);
};

} // namespace unbulk
