#pragma once

#include <stdexcept>
#include <string>

namespace unbulk {

// Nothing exists where a file was expected, in the words the Mac's file
// system error gives, with the path for the reader.
struct NoSuchFileError : std::runtime_error {
    explicit NoSuchFileError(const std::string& missingPath);
    std::string path;
};

} // namespace unbulk
