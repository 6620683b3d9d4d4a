// The system's own ordering of names, as Finder lists them. Built with ARC.

#import <Foundation/Foundation.h>

#include "Platform/LocalizedCompare.hpp"

namespace unbulk {
namespace {

NSString* stringOf(std::string_view text) {
    return [[NSString alloc] initWithBytes:text.data() length:text.size() encoding:NSUTF8StringEncoding];
}

} // namespace

std::weak_ordering localizedCaseInsensitiveCompare(std::string_view a, std::string_view b) {
    @autoreleasepool {
        NSString* left = stringOf(a);
        NSString* right = stringOf(b);
        // Bytes that are not UTF-8 have no string form: ordered by their bytes.
        if (left == nil || right == nil) return a <=> b;
        switch ([left localizedCaseInsensitiveCompare:right]) {
        case NSOrderedAscending: return std::weak_ordering::less;
        case NSOrderedDescending: return std::weak_ordering::greater;
        case NSOrderedSame: return std::weak_ordering::equivalent;
        }
        return std::weak_ordering::equivalent;
    }
}

} // namespace unbulk
