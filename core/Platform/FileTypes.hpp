#pragma once

#include <memory>
#include <optional>
#include <string>

namespace unbulk {

// What the system's type information says a file extension is, as a set of
// conformances to the broad types that classification asks about.
struct TypeConformance {
    bool archive = false;
    bool diskImage = false;
    bool sourceCode = false;
    bool audio = false;
    bool movie = false;
    bool image = false;
    bool text = false;
    bool pdf = false;
    bool executable = false;
    bool application = false;
};

// The system's registry of file types, asked by extension.
class FileTypes {
public:
    virtual ~FileTypes() = default;
    // Nothing when the system knows no data type for the extension.
    virtual std::optional<TypeConformance> conformanceForExtension(const std::string& extension) const = 0;
};

// UTType on the Mac; the freedesktop shared-mime-info database on Linux.
std::shared_ptr<FileTypes> makeDefaultFileTypes();

} // namespace unbulk
