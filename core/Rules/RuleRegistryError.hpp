#pragma once

#include <exception>
#include <string>

namespace unbulk {

struct RuleRegistryError : std::exception {
    enum class Kind {
        invalidRuleId,
        duplicateRuleId,
        emptyPatterns,
        cannotOverwriteBuiltIn,
        sandboxViolation,
        catalogPersistenceFailed,
        catalogDecodingFailed,
    };

    RuleRegistryError(Kind kind, std::string payload);

    Kind kind;
    std::string payload;

    const char* what() const noexcept override { return description.c_str(); }

    friend bool operator==(const RuleRegistryError& a, const RuleRegistryError& b) {
        return a.kind == b.kind && a.payload == b.payload;
    }

private:
    std::string description;
};

} // namespace unbulk
