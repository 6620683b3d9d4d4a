#include <fmt/format.h>
#include <fmt/ranges.h>

#include "CoreObjects.hpp"
#include "Handlers.hpp"
#include "Output.hpp"
#include "Platform/FileSystem.hpp"
#include "Rules/RuleRegistry.hpp"

namespace unbulk::cli {

int handleRules(const Arguments&) {
    // The listing is the whole command: no word behind it means anything.
    RuleRegistry registry(std::nullopt, userHomeURL(), makeDefaultFileSystem());
    // Disabled rules are listed too, under the same heading.
    const auto rules = registry.allRules();
    printLine(fmt::format("Active cleanup rules ({}):", rules.size()));
    for (const auto& rule : rules) {
        printLine(fmt::format("  \u2022 [{}] {}: {} [{}]", rule.id, rule.name, fmt::join(rule.patterns, ", "),
                              displayName(rule.riskTier)));
    }
    return 0;
}

} // namespace unbulk::cli
