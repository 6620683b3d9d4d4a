#include "CommandLineDescription.hpp"

#include <fmt/format.h>

namespace unbulk::cli {

std::span<const CommandDescription> commandDescriptions() {
    using V = OptionValue;
    static const std::vector<CommandDescription> commands{
        {"scan",
         "",
         "Scan disk for developer bloat, AI model weights, and system junk",
         {{"--json"}, {"--category", V::category}},
         {},
         {}},
        {"clean",
         "",
         "Clean discovered bloat or specified paths (Trash-first safety)",
         {{"--json"}, {"--execute"}, {"--no-dry-run"}, {"--permanent"}, {"--yes"}, {"-y"}, {"--category", V::category}},
         {},
         {}},
        {"uninstaller",
         "uninstall",
         "List installed apps, orphaned files, or uninstall an app",
         {{"--json"}, {"--execute"}, {"--force"}},
         {"list", "remove", "uninstall"},
         {"remove", "uninstall"}},
        {"spacelens",
         "space",
         "Contoura: hierarchical directory storage analyzer (subcommand: spacelens)",
         {{"--path", V::directory}, {"--depth", V::number}, {"--json"}},
         {},
         {}},
        {"maintenance",
         "",
         "Execute system maintenance (flush DNS, APFS purgeable, Spotlight)",
         {},
         {"dns", "purgeable", "spotlight", "all"},
         {}},
        {"vitals", "", "Show real-time Mach kernel CPU, RAM, disk, and battery vitals", {{"--json"}}, {}, {}},
        {"rules", "", "View and manage dynamic cleanup rules", {}, {}, {}},
        {"fda", "", "Check Full Disk Access permissions or open System Settings", {{"--open"}}, {}, {}},
        {"mcp", "", "Start Model Context Protocol (MCP) server over stdio", {}, {}, {}},
        {"review",
         "",
         "Go through what a scan finds and choose what goes to the Trash",
         {{"--category", V::category}},
         {},
         {},
         false},
        {"explore",
         "",
         "Walk the disk usage of a directory and move entries to the Trash",
         {{"--path", V::directory}},
         {},
         {},
         false},
    };
    return commands;
}

std::string helpText() {
    std::string text = "Unbulk: High-performance, developer-aware macOS system cleaner\n"
                       "\n"
                       "USAGE:\n"
                       "  unbulk <command> [options]\n"
                       "\n"
                       "COMMANDS:\n";
    for (const auto& command : commandDescriptions()) {
        if (command.listedInHelp) text += fmt::format("  {:<13} {}\n", command.word, command.summary);
    }
    text += "\n"
            "GLOBAL FLAGS:\n"
            "  --json        Output machine-readable JSON on stdout\n"
            "  --dry-run     Simulate cleanup without touching files (default for clean)\n"
            "  -h, --help    Show help information";
    return text;
}

} // namespace unbulk::cli
