#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace unbulk::cli {

// What follows an option on the command line.
enum class OptionValue { none, category, directory, number };

struct OptionDescription {
    std::string_view name;
    OptionValue value = OptionValue::none;
};

// One command as the help text lists it and the shells complete it: its
// word and second form, its summary line, its options, and its subcommands
// (the first word after it) with what the word after a subcommand names.
struct CommandDescription {
    std::string_view word;
    std::string_view alias;   // "uninstall", "space"; empty when none
    std::string_view summary; // the help line's text
    std::vector<OptionDescription> options;
    std::vector<std::string_view> subcommands;
    std::vector<std::string_view> subcommandsTakingAnApplication;
    // The help text's words are fixed: commands added after them are
    // completed and documented, but not listed there.
    bool listedInHelp = true;
};

// In the order of the help text, the commands it does not list last.
std::span<const CommandDescription> commandDescriptions();

// The help text, built from the descriptions.
std::string helpText();

} // namespace unbulk::cli
