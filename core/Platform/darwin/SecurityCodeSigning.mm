// Code signatures through the Security framework: a static code object for
// the bundle and its signing information.

#import <Foundation/Foundation.h>
#import <Security/Security.h>

#include "Platform/CodeSigning.hpp"
#include "Platform/darwin/FoundationStrings.hpp"

namespace unbulk {
namespace {

class SecurityCodeSigning final : public CodeSigning {
public:
    std::optional<SigningInformation> signingInformation(const std::string& bundlePath) const override {
        @autoreleasepool {
            // A path Foundation cannot take reads as unsigned.
            NSURL* url = foundation::fileURL(bundlePath);
            if (url == nil) return std::nullopt;
            SecStaticCodeRef code = nullptr;
            if (SecStaticCodeCreateWithPath((__bridge CFURLRef)url, kSecCSDefaultFlags, &code) != errSecSuccess ||
                code == nullptr) {
                return std::nullopt;
            }
            CFDictionaryRef raw = nullptr;
            const OSStatus status = SecCodeCopySigningInformation(code, kSecCSSigningInformation, &raw);
            CFRelease(code);
            if (status != errSecSuccess || raw == nullptr) return std::nullopt;
            NSDictionary* info = CFBridgingRelease(raw);
            if (![info isKindOfClass:[NSDictionary class]]) return std::nullopt;

            SigningInformation signing;
            id team = info[(__bridge NSString*)kSecCodeInfoTeamIdentifier];
            if ([team isKindOfClass:[NSString class]]) signing.teamIdentifier = foundation::utf8(team);
            signing.hasPlatformIdentifier = info[@"platform-identifier"] != nil;
            id flags = info[(__bridge NSString*)kSecCodeInfoFlags];
            if ([flags isKindOfClass:[NSNumber class]]) signing.flags = [flags unsignedIntValue];
            id certificates = info[(__bridge NSString*)kSecCodeInfoCertificates];
            if ([certificates isKindOfClass:[NSArray class]] && [certificates count] > 0) {
                SecCertificateRef leaf = (__bridge SecCertificateRef)[certificates objectAtIndex:0];
                CFStringRef summary = SecCertificateCopySubjectSummary(leaf);
                if (summary != nullptr) {
                    signing.authority = foundation::utf8((__bridge NSString*)summary);
                    CFRelease(summary);
                }
            }
            return signing;
        }
    }
};

} // namespace

std::shared_ptr<CodeSigning> makeDefaultCodeSigning() { return std::make_shared<SecurityCodeSigning>(); }

} // namespace unbulk
