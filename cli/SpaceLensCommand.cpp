#include <charconv>
#include <cstdint>

#include <fmt/format.h>

#include "Handlers.hpp"
#include "Output.hpp"
#include "ProgressLine.hpp"
#include "Platform/ByteCountFormatter.hpp"
#include "Platform/CurrentDirectory.hpp"
#include "Operations/Engines.hpp"
#include "Support/Json.hpp"
#include "Support/Paths.hpp"

namespace unbulk::cli {
namespace {

// A whole decimal number in 64 bits with at most one leading sign, or 2:
// "--depth x", "+-1", an empty value, a number out of range and a missing
// value all analyse two levels.
std::int64_t depthOf(const Arguments& args) {
    const auto value = optionValue(args, "--depth");
    if (!value || value->empty()) return 2;
    std::string_view text = *value;
    if (text.front() == '+') {
        text.remove_prefix(1);
        if (text.starts_with('-')) return 2; // from_chars would take this second sign
    }
    std::int64_t depth = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), depth);
    if (error != std::errc() || end != text.data() + text.size()) return 2;
    return depth;
}

} // namespace

int handleSpaceLens(const Environment& environment, const Arguments& args) {
    // The path as typed: no "~" expansion; a relative one is read against
    // the working directory, as a file URL made of it would be.
    const std::string path = optionValue(args, "--path").value_or(environment.homeURL.path());
    const std::string absolute = paths::isAbsolute(path) ? path : paths::appending(currentDirectory(), path);
    const SpaceNode root = [&] {
        ProgressLine progress(!hasFlag(args, "--json"));
        return Engines::spaceLensEngine(environment).scanDirectory(FileURL(absolute), depthOf(args), {}, progress.countingItems());
    }();

    if (hasFlag(args, "--json")) {
        printJson(toJson(root));
        return 0;
    }
    printLine("Contoura: " + path);
    printLine("Total Size: " + formatByteCount(root.allocatedSizeBytes));
    if (root.children) {
        const std::size_t shown = std::min<std::size_t>(root.children->size(), 10);
        for (std::size_t i = 0; i < shown; ++i) {
            const SpaceNode& child = (*root.children)[i];
            printLine(fmt::format("  \u2022 {}: {}", child.name, formatByteCount(child.allocatedSizeBytes)));
        }
    }
    return 0;
}

} // namespace unbulk::cli
