#include "Platform/PlatformError.hpp"

#include <cerrno>

#include <fmt/format.h>

namespace unbulk {

std::string PlatformError::message() const {
    if (!description.empty()) return description;
    if (call.empty()) return code.message();
    if (path.empty()) return fmt::format("{}(): {}", call, code.message());
    if (otherPath.empty()) return fmt::format("{}('{}'): {}", call, path, code.message());
    return fmt::format("{}('{}', '{}'): {}", call, path, otherPath, code.message());
}

PlatformFailure::PlatformFailure(const std::string& context, PlatformError error)
    : std::system_error(error.code, context), error_(std::move(error)),
      message_(context.empty() ? error_.message() : context + ": " + error_.message()) {}

PlatformError PlatformError::systemCall(std::string_view call, int errorNumber, std::string path,
                                        std::string otherPath) {
    return PlatformError{{errorNumber, std::generic_category()}, {}, std::string(call), std::move(path),
                         std::move(otherPath)};
}

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
