#include <fmt/format.h>
#include <fmt/ranges.h>

#include "Handlers.hpp"
#include "Output.hpp"
#include "Operations/Engines.hpp"

namespace unbulk::cli {

int handleRules(const Environment& environment, const Arguments&) {
    // The listing is the whole command: no word behind it means anything.
    // Disabled rules are listed too, under the same heading.
    const auto rules = Engines::ruleRegistry(environment)->allRules();
    printLine(fmt::format("Active cleanup rules ({}):", rules.size()));
    for (const auto& rule : rules) {
        printLine(fmt::format("  \u2022 [{}] {}: {} [{}]", rule.id, rule.name, fmt::join(rule.patterns, ", "),
                              displayName(rule.riskTier)));
    }
    return 0;
}

} // namespace unbulk::cli
