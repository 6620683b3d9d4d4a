// Writes the shell completions of unbulk from the one description of its
// command line that the help text is built from:
//   unbulk-completions bash|zsh|fish
// Category values come from the category table; application names are asked
// of `unbulk uninstaller list --json` when they are wanted.

#include <cstdio>
#include <string>

#include <fmt/format.h>

#include "CommandLineDescription.hpp"
#include "Models/Categories.hpp"

namespace {

using namespace unbulk;
using namespace unbulk::cli;

std::string joined(const auto& items, std::string_view separator = " ") {
    std::string out;
    for (const auto& item : items) {
        if (!out.empty()) out += separator;
        out += std::string(item);
    }
    return out;
}

std::string categories() {
    std::vector<std::string> raw;
    for (auto category : allCases<StorageCategory>())
        raw.emplace_back(rawValue(category));
    return joined(raw);
}

std::vector<std::string_view> words(const CommandDescription& command) {
    std::vector<std::string_view> out{command.word};
    if (!command.alias.empty()) out.push_back(command.alias);
    return out;
}

std::vector<std::string_view> optionNames(const CommandDescription& command) {
    std::vector<std::string_view> out;
    for (const auto& option : command.options)
        out.push_back(option.name);
    return out;
}

// The display names of installed applications, one per line.
constexpr std::string_view appNamesCommand =
    R"sh(unbulk uninstaller list --json 2>/dev/null | sed -n 's/^ *"displayName": "\(.*\)",\{0,1\}$/\1/p')sh";

std::string bash() {
    std::string all;
    for (const auto& command : commandDescriptions())
        all += " " + joined(words(command));
    std::string cases;
    for (const auto& command : commandDescriptions()) {
        std::string body;
        if (!command.subcommands.empty()) {
            body += fmt::format(
                "      if [ \"$COMP_CWORD\" -eq 2 ]; then COMPREPLY=($(compgen -W \"{}\" -- \"$cur\")); return; fi\n",
                joined(command.subcommands));
        }
        if (!command.subcommandsTakingAnApplication.empty()) {
            body += fmt::format(
                "      case \"${{COMP_WORDS[2]}}\" in {}) if [ \"$COMP_CWORD\" -eq 3 ]; then\n"
                "        local IFS=$'\\n'; COMPREPLY=($(compgen -W \"$({})\" -- \"$cur\")); return; fi;; esac\n",
                joined(command.subcommandsTakingAnApplication, "|"), appNamesCommand);
        }
        body += fmt::format("      COMPREPLY=($(compgen -W \"{}\" -- \"$cur\"));;\n", joined(optionNames(command)));
        cases += fmt::format("    {})\n{}", joined(words(command), "|"), body);
    }
    return fmt::format(R"sh(# bash completion for unbulk (generated from its command-line description)
_unbulk() {{
  local cur="${{COMP_WORDS[COMP_CWORD]}}" prev="${{COMP_WORDS[COMP_CWORD-1]}}"
  if [ "$COMP_CWORD" -eq 1 ]; then
    COMPREPLY=($(compgen -W "{} --help -h" -- "$cur")); return
  fi
  case "$prev" in
    --category) COMPREPLY=($(compgen -W "{}" -- "$cur")); return;;
    --path) COMPREPLY=($(compgen -d -- "$cur")); return;;
    --depth) COMPREPLY=(); return;;
  esac
  case "${{COMP_WORDS[1]}}" in
{}  esac
}}
complete -F _unbulk unbulk
)sh",
                       all.substr(1), categories(), cases);
}

std::string fish() {
    std::string out =
        "# fish completion for unbulk (generated from its command-line description)\n"
        "function __unbulk_applications\n"
        "    unbulk uninstaller list --json 2>/dev/null | string match -r -g '^\\s*\"displayName\": \"(.*)\",?$'\n"
        "end\n"
        "complete -c unbulk -f\n";
    std::string all;
    for (const auto& command : commandDescriptions())
        all += " " + joined(words(command));
    for (const auto& command : commandDescriptions()) {
        for (auto word : words(command)) {
            out += fmt::format("complete -c unbulk -n '__fish_use_subcommand' -a {} -d '{}'\n", word, command.summary);
        }
        const std::string seen = fmt::format("__fish_seen_subcommand_from {}", joined(words(command)));
        for (const auto& option : command.options) {
            const std::string name(option.name.substr(option.name.starts_with("--") ? 2 : 1));
            const char* flag = option.name.starts_with("--") ? "-l" : "-s";
            std::string extra;
            if (option.value == OptionValue::category) extra = fmt::format(" -x -a '{}'", categories());
            if (option.value == OptionValue::directory) extra = " -x -a '(__fish_complete_directories)'";
            if (option.value == OptionValue::number) extra = " -x";
            out += fmt::format("complete -c unbulk -n '{}' {} {}{}\n", seen, flag, name, extra);
        }
        if (!command.subcommands.empty()) {
            out += fmt::format("complete -c unbulk -n '{}; and not __fish_seen_subcommand_from {}' -a '{}'\n", seen,
                               joined(command.subcommands), joined(command.subcommands));
        }
        if (!command.subcommandsTakingAnApplication.empty()) {
            out += fmt::format(
                "complete -c unbulk -n '{}; and __fish_seen_subcommand_from {}' -a '(__unbulk_applications)'\n", seen,
                joined(command.subcommandsTakingAnApplication));
        }
    }
    return out;
}

std::string zsh() {
    std::string commandList, cases;
    for (const auto& command : commandDescriptions()) {
        for (auto word : words(command))
            commandList += fmt::format("    '{}:{}'\n", word, command.summary);
        std::string specs;
        for (const auto& option : command.options) {
            switch (option.value) {
            case OptionValue::category:
                specs += fmt::format(" '{}[category]:category:({})'", option.name, categories());
                break;
            case OptionValue::directory:
                specs += fmt::format(" '{}[directory]:directory:_files -/'", option.name);
                break;
            case OptionValue::number: specs += fmt::format(" '{}[depth]:depth:'", option.name); break;
            case OptionValue::none: specs += fmt::format(" '{}'", option.name); break;
            }
        }
        if (!command.subcommands.empty()) {
            specs += fmt::format(" '1:subcommand:({})'", joined(command.subcommands));
        }
        if (!command.subcommandsTakingAnApplication.empty()) {
            specs += " '2:application:_unbulk_applications'";
        }
        cases += fmt::format("    {}) _arguments{} ;;\n", joined(words(command), "|"), specs.empty() ? " ''" : specs);
    }
    return fmt::format(R"sh(#compdef unbulk
# zsh completion for unbulk (generated from its command-line description)
_unbulk_applications() {{
  local -a apps
  apps=("${{(@f)$({})}}")
  _describe 'application' apps
}}
_unbulk() {{
  local -a commands
  commands=(
{}  )
  if (( CURRENT == 2 )); then
    _describe 'command' commands
    return
  fi
  local command=$words[2]
  shift words
  (( CURRENT-- ))
  case $command in
{}  esac
}}
_unbulk "$@"
)sh",
                       appNamesCommand, commandList, cases);
}

} // namespace

int main(int argc, char** argv) {
    const std::string shell = argc > 1 ? argv[1] : "";
    std::string text;
    if (shell == "bash") {
        text = bash();
    } else if (shell == "zsh") {
        text = zsh();
    } else if (shell == "fish") {
        text = fish();
    } else {
        std::fputs("usage: unbulk-completions bash|zsh|fish\n", stderr);
        return 2;
    }
    std::fwrite(text.data(), 1, text.size(), stdout);
    return 0;
}
