#include "Platform/PlatformError.hpp"

#include <cerrno>

#include <fmt/format.h>

namespace unbulk {

PlatformError PlatformError::fromDomain(std::string_view domain, long code, std::string description,
                                        std::optional<long> underlyingPOSIXCode) {
    PlatformError error;
    if (domain == "NSPOSIXErrorDomain") {
        error.code = {static_cast<int>(code), std::generic_category()};
    } else if (underlyingPOSIXCode) {
        error.code = {static_cast<int>(*underlyingPOSIXCode), std::generic_category()};
    } else {
        error.code = {EIO, std::generic_category()};
    }
    error.description = description.empty() ? fmt::format("{} error {}", domain, code) : std::move(description);
    return error;
}

} // namespace unbulk
