// File types from the system's Uniform Type Identifiers. Xcode's SDK always
// has the framework; a header-only SDK subset without it builds a type
// registry that knows nothing, so classification falls back to "other".

#import <Foundation/Foundation.h>

#include "Platform/FileTypes.hpp"

#if __has_include(<UniformTypeIdentifiers/UniformTypeIdentifiers.h>)
#import <UniformTypeIdentifiers/UniformTypeIdentifiers.h>
#define UNBULK_HAS_UTTYPE 1
#endif

namespace unbulk {
namespace {

class UTTypeFileTypes final : public FileTypes {
public:
    std::optional<TypeConformance> conformanceForExtension(const std::string& extension) const override {
#if defined(UNBULK_HAS_UTTYPE)
        @autoreleasepool {
            NSString* text = [NSString stringWithUTF8String:extension.c_str()];
            if (text == nil) return std::nullopt;
            UTType* type = [UTType typeWithFilenameExtension:text conformingToType:UTTypeData];
            if (type == nil) return std::nullopt;
            TypeConformance c;
            c.archive = [type conformsToType:UTTypeArchive];
            c.diskImage = [type conformsToType:UTTypeDiskImage];
            c.sourceCode = [type conformsToType:UTTypeSourceCode];
            c.audio = [type conformsToType:UTTypeAudio];
            c.movie = [type conformsToType:UTTypeMovie];
            c.image = [type conformsToType:UTTypeImage];
            c.text = [type conformsToType:UTTypeText];
            c.pdf = [type conformsToType:UTTypePDF];
            c.executable = [type conformsToType:UTTypeExecutable];
            c.application = [type conformsToType:UTTypeApplication];
            return c;
        }
#else
        (void)extension;
        return std::nullopt;
#endif
    }
};

} // namespace

std::shared_ptr<FileTypes> makeDefaultFileTypes() { return std::make_shared<UTTypeFileTypes>(); }

} // namespace unbulk
