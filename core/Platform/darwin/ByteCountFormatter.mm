// Byte counts through the system's formatter, in its file style, as Finder
// shows them. Built with ARC.

#import <Foundation/Foundation.h>

#include "Platform/ByteCountFormatter.hpp"

namespace unbulk {

std::string formatByteCount(std::int64_t bytes) {
    @autoreleasepool {
        NSString* text = [NSByteCountFormatter stringFromByteCount:bytes
                                                        countStyle:NSByteCountFormatterCountStyleFile];
        const char* utf8 = text.UTF8String;
        return utf8 != nullptr ? std::string(utf8) : std::string();
    }
}

} // namespace unbulk
