#include "Platform/CodeSigning.hpp"

namespace unbulk {
namespace {

// Linux has no code signatures of application bundles.
class UnsignedCodeSigning final : public CodeSigning {
public:
    std::optional<SigningInformation> signingInformation(const std::string&) const override { return std::nullopt; }
};

} // namespace

std::shared_ptr<CodeSigning> makeDefaultCodeSigning() { return std::make_shared<UnsignedCodeSigning>(); }

} // namespace unbulk
