#include "Uninstaller/CodeSignature.hpp"

namespace unbulk {

CodeSignatureReport CodeSignatureReport::classify(const std::optional<SigningInformation>& signing) {
    CodeSignatureReport report;
    if (!signing) return report;
    report.teamIdentifier = signing->teamIdentifier;
    report.authority = signing->authority;
    report.isHardenedRuntime = (signing->flags & 0x10000) != 0;
    const std::string authority = signing->authority.value_or("");
    if (signing->hasPlatformIdentifier) {
        report.category = CodeSignerCategory::applePlatform;
        report.isApplePlatformSigned = true;
    } else if (!signing->authority) {
        report.category = CodeSignerCategory::unsignedCode;
    } else if (authority == "Software Signing" || authority == "Apple Software Signing" ||
               authority.starts_with("Apple System")) {
        report.category = CodeSignerCategory::applePlatform;
        report.isApplePlatformSigned = true;
    } else if (authority.starts_with("Developer ID Application:")) {
        report.category = CodeSignerCategory::developerId;
    } else if (authority.starts_with("3rd Party Mac Developer Application:") ||
               authority == "Apple Mac OS Application Signing") {
        report.category = CodeSignerCategory::macAppStore;
    } else {
        report.category = CodeSignerCategory::adHoc;
    }
    return report;
}

} // namespace unbulk
