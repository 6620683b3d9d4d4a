#pragma once

#include <map>
#include <mutex>
#include <set>
#include <string>

#include "Platform/FileTypes.hpp"

namespace unbulk {

// File types from the freedesktop.org shared-mime-info database: an
// extension's MIME type from globs2 (highest weight first), its ancestors
// from subclasses, and those mapped onto the broad types that classification
// asks about (text/plain below a type makes it text, audio/* audio, ...).
class SharedMimeFileTypes final : public FileTypes {
public:
    // `mimeDirectory` holds globs2 and subclasses; tests hand in their own.
    explicit SharedMimeFileTypes(std::string mimeDirectory = "/usr/share/mime");

    std::optional<TypeConformance> conformanceForExtension(const std::string& extension) const override;

    // The MIME type of an extension, if the database names one.
    std::optional<std::string> mimeType(const std::string& extension) const;

private:
    void load() const;
    std::set<std::string> selfAndAncestors(const std::string& mime) const;

    std::string mimeDirectory_;
    // Filled once, by whichever thread asks first.
    mutable std::once_flag loaded_;
    mutable std::map<std::string, std::string> typeByExtension_; // lower-case extension -> MIME type
    mutable std::multimap<std::string, std::string> parents_;    // MIME type -> its direct parents
};

} // namespace unbulk
