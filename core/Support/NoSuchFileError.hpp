#pragma once

#include <stdexcept>
#include <string>

namespace unbulk {

// Nothing exists where a file was expected, in the words the Mac's file
// system error gives: the sentence names the last component only, and the
// whole path is kept beside it for a caller that wants it.
struct NoSuchFileError : std::runtime_error {
    explicit NoSuchFileError(const std::string& missingPath);
    std::string path;
};

} // namespace unbulk
