#include "Support/NoSuchFileError.hpp"

#include "Support/Paths.hpp"

namespace unbulk {

NoSuchFileError::NoSuchFileError(const std::string& missingPath)
    : std::runtime_error("The file \u201C" + paths::lastComponent(missingPath) +
                         "\u201D couldn\u2019t be opened because there is no such file."),
      path(missingPath) {}

} // namespace unbulk
