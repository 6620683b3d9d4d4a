#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

namespace unbulk {

// What a bundle's code signature says, before any classification.
struct SigningInformation {
    std::optional<std::string> teamIdentifier;
    bool hasPlatformIdentifier = false;   // the "platform-identifier" key is present
    std::uint32_t flags = 0;              // kSecCodeInfoFlags
    std::optional<std::string> authority; // subject summary of the leaf certificate
};

class CodeSigning {
public:
    virtual ~CodeSigning() = default;
    // Nothing for code that is not signed or cannot be read.
    virtual std::optional<SigningInformation> signingInformation(const std::string& bundlePath) const = 0;
};

// The Security framework on the Mac; elsewhere every bundle reads as unsigned.
std::shared_ptr<CodeSigning> makeDefaultCodeSigning();

} // namespace unbulk
